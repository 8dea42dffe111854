#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "host/math/color.h"
#include "host/math/matrix3.h"
#include "host/scene/mesh.h"

namespace host {

/// Ends the reading of a model; its text is one line. Caught where the import was asked for.
class ImportFault : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct PlannedMtl {
  std::string name;
  Color diffuse;
};

struct PlannedMesh {
  Mesh mesh;
  /// The plan's material for each material id, -1 for none.
  std::vector<int> slots;
};

struct PlannedNode {
  std::string name;  // may be empty
  Matrix3 local;     // under the parent; in file units and axes
  int parent = -1;   // earlier in the plan
  int mesh = -1;
  std::optional<float> fov;  // a camera, horizontal, radians
};

/// A model that was read and checked, and is not in the scene yet.
struct ImportPlan {
  std::vector<PlannedMtl> materials;
  std::vector<PlannedMesh> meshes;
  std::vector<PlannedNode> nodes;
  std::vector<std::string> warnings;
};

/// Faces that one import may hold in all.
inline constexpr size_t kMostImportedFaces = 100'000'000;
/// How deep nodes may lie under one another.
inline constexpr int kDeepestNode = 256;

/// How to call a node in a message: its name in quotes, else its number.
std::string NodeLabel(const std::string& name, size_t number);

/// `folder` is where files named by the model lie, empty for none. Throw ImportFault.
ImportPlan ReadGltf(std::span<const std::byte> bytes, const std::string& folder);
/// `fileName` is the file's own name, without folders.
ImportPlan ReadObj(std::span<const std::byte> bytes, const std::string& folder,
                   const std::string& fileName);

}  // namespace host
