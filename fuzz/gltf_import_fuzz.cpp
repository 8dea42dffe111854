// Imports any bytes as a glTF, GLB or JSON.
#include "fuzz/import_check.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  host::Host host;
  std::string error;
  const auto bytes = std::as_bytes(std::span(data, size));
  const auto result = host::ImportGltfBytes(host.Services(), bytes, {}, error);
  CheckImport(host, result, error);
  return 0;
}
