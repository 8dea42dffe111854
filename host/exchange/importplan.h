#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "host/exchange/importfault.h"
#include "host/exchange/planparts.h"
#include "host/scene/mesh.h"

namespace host {

/// A picture that a material shows: a file that was found, or the encoded bytes (PNG, JPEG and so
/// on) that the model holds.
struct PlannedImage {
  std::string name;
  std::string path;
  std::vector<std::byte> bytes;
};

struct PlannedMesh {
  Mesh mesh;
  /// The plan's material for each material id, -1 for none.
  std::vector<int> slots;
  /// Morph targets: differences from the mesh's vertices, one list a target, as many as vertices.
  std::vector<std::vector<Point3>> targets;
  std::vector<float> weights;  // at rest, one a target
  std::optional<PlannedSkin> skin;
  /// Whole shapes over time, for files that store them: one list of vertices a frame.
  std::vector<float> frameTimes;  // seconds, rising
  std::vector<std::vector<Point3>> frames;
};

struct PlannedNode {
  std::string name;  // may be empty
  Matrix3 local;     // under the parent; in file units and axes
  int parent = -1;   // earlier in the plan
  int mesh = -1;
  std::optional<float> fov;  // a camera, horizontal, radians
  // An animated node's matrix is scale, then rotation, then position; parts without a track stay
  // as `local` has them.
  PlannedTrack position;  // width 3
  PlannedTrack rotation;  // width 4: unit quaternions x, y, z, w, of points taken as columns
  PlannedTrack scale;     // width 3
  PlannedTrack weights;   // of the mesh's morph targets
};

/// A model that was read and checked, and is not in the scene yet.
struct ImportPlan {
  bool zUp = false;   // of the file's axes, else Y
  double metres = 0;  // a file unit; 0 where neither file nor format says: then it is a scene unit
  std::vector<PlannedImage> images;
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

}  // namespace host
