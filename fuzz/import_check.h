#pragma once

#include <cstdint>
#include <cstdlib>
#include <string>

#include "host/host.h"
#include "host/import/import.h"
#include "host/scene/triobject.h"

/// Aborts unless an import is all or nothing, says its fault in one line, and what it brought is
/// sound.
inline int CheckImport(const std::uint8_t* data, std::size_t size,
                       decltype(host::ImportGltfBytes) import) {
  host::Host host;
  std::string error;
  const auto result = import(host.Services(), std::as_bytes(std::span(data, size)), {}, error);
  const bool oneLine = error.find('\n') == std::string::npos;
  if (result.has_value() != error.empty() || !oneLine) std::abort();
  if (!result && !host.GetScene().AllNodes().empty()) std::abort();
  for (INode* node : host.GetScene().AllNodes()) {
    const EvaluatedMesh shown = EvalMesh(node, 0);
    if (shown && !shown.mesh->FirstFault().empty()) std::abort();
    const bool moves = node->TMValidity(0) != FOREVER;  // and may be flat at times
    if (!moves && !node->GetObjectTM(0).IsInvertible()) std::abort();
  }
  return 0;
}
