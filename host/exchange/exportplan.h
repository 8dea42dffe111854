#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/core/control.h"
#include "host/exchange/planparts.h"
#include "host/exchange/viewerinstances.h"

namespace host {

/// A picture of a material: a file, whether it is there or not, or the encoded bytes.
struct ExportImage {
  std::string name;  // for messages
  std::string path;
  std::shared_ptr<const std::vector<std::byte>> bytes;  // null for a file
};

/// A polygonal line.
struct ExportLine {
  std::vector<Point3> points;  // two or more
  bool closed = false;
  int material = -1;
};

/// Triangles, one part a material, and lines. Each part has normals of unit length; all have as
/// many morph targets.
struct ExportMesh {
  std::vector<TrianglePart> parts;
  std::vector<ExportLine> lines;
  std::vector<float> weights;  // of the morph targets at rest
};

/// One list of instances, each of which shows the mesh of the node.
struct ExportInstances {
  std::shared_ptr<InstanceLists> lists;
  size_t group = 0;
  bool mirrored = false;
};

struct ExportNode {
  std::string name;                                          // may be empty
  TransformParts place{{1, 1, 1}, {0, 0, 0, 1}, {0, 0, 0}};  // under the parent, at time 0
  int parent = -1;                                           // earlier in the plan
  int mesh = -1;
  int skin = -1;             // its mesh stands where the bones are, whatever the node's place
  std::optional<float> fov;  // a camera, horizontal, radians
  std::optional<ExportInstances> instances;
  // From time 0 on; parts without a track stay as `place` has them.
  PlannedTrack position;  // width 3
  PlannedTrack rotation;  // width 4: unit quaternions x, y, z, w, of points taken as columns
  PlannedTrack scale;     // width 3
  PlannedTrack weights;   // of the mesh's morph targets
};

/// What other programs are shown of a scene, in words that any of their formats has: every number
/// is finite, places are a scale, a rotation and a translation, and equal meshes are one. Z is up.
struct ExportPlan {
  std::string name;   // of what holds all nodes; empty: nothing does, and then no top node moves
  double metres = 1;  // a unit
  std::vector<ExportImage> images;
  std::vector<PlannedMtl> materials;
  std::vector<ExportMesh> meshes;
  std::vector<PlannedSkin> skins;  // without vertices, which the parts of a mesh have
  std::vector<ExportNode> nodes;
};

}  // namespace host
