#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/core/track.h"
#include "host/math/color.h"
#include "host/math/matrix3.h"
#include "host/scene/vertexbones.h"

namespace host {

// What plans of both directions are made of: of a model that is read, and of a scene that is
// written for other programs.

struct PlannedMtl {
  std::string name;
  Color diffuse;
  int image = -1;  // diffuse texture, on map channel 1
};

/// Values over time; before the first key and after the last one they stay. Empty: not animated.
struct PlannedTrack {
  KeyShape shape = KeyShape::Linear;
  std::vector<float> times;   // seconds, rising
  std::vector<float> values;  // `width` of them a key, three times as many in a cubic track
  bool IsEmpty() const { return times.empty(); }
};

struct PlannedSkin {
  std::vector<int> nodes;            // of the plan, one a bone
  std::vector<Matrix3> inverseBind;  // mesh to bone, one a bone
  std::vector<VertexBones> vertices;
};

/// Triangles as files hold them: one index for all that a corner has.
struct TrianglePart {
  std::vector<Point3> positions;
  std::vector<Point3> normals;               // none, or one per position
  std::vector<Point3> uvs;                   // map channel 1: none, or one per position
  std::vector<std::vector<Point3>> moreUvs;  // map channels 2 and on, each like `uvs`
  std::vector<std::uint32_t> corners;        // three a face
  std::vector<std::uint8_t> edges;           // EDGE_A to EDGE_C of each face; empty: all visible
  int material = -1;                         // of the plan
  /// Morph targets: differences from the positions, one per position in each.
  std::vector<std::vector<Point3>> targets;
  /// None, or one per position; then all parts of the mesh have them.
  std::vector<VertexBones> bones;
};

}  // namespace host
