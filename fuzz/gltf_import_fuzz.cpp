// Imports any bytes as a glTF, GLB or JSON.
#include "fuzz/import_check.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  return CheckImport(data, size, host::ImportGltfBytes);
}
