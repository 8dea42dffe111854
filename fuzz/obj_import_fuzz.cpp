// Imports any bytes as an OBJ. What is accepted must hold sound meshes.
#include <cstdint>
#include <cstdlib>

#include "host/host.h"
#include "host/io/import.h"
#include "host/scene/triobject.h"

// The library that reads the text leaves its half-made mesh behind when it gives up.
extern "C" const char* __lsan_default_suppressions() { return "leak:libassimp\n"; }

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  host::Host host;
  std::string error;
  const auto result =
      host::ImportObjBytes(host.Services(), std::as_bytes(std::span(data, size)), {}, error);
  const bool oneLine = error.find('\n') == std::string::npos;
  if (result.has_value() != error.empty() || !oneLine) std::abort();
  if (!result && !host.GetScene().AllNodes().empty()) std::abort();
  for (INode* node : host.GetScene().AllNodes()) {
    const EvaluatedMesh shown = EvalMesh(node, 0);
    if (shown && !shown.mesh->FirstFault().empty()) std::abort();
    if (!node->GetObjectTM(0).IsInvertible()) std::abort();
  }
  return 0;
}
