#pragma once

#include <cstdint>
#include <unordered_map>
#include <vector>

#include "host/exchange/exportplan.h"

namespace host {

/// The meshes of a plan, each once: those that are equal to the bit, materials included, are one.
class MeshPool {
 public:
  explicit MeshPool(std::vector<ExportMesh>& meshes) : meshes_(meshes) {}
  /// Its number in the plan.
  int IndexOf(ExportMesh mesh);

 private:
  std::vector<ExportMesh>& meshes_;
  std::unordered_multimap<std::uint64_t, int> byHash_;
};

}  // namespace host
