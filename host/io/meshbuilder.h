#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "host/io/importplan.h"
#include "host/scene/mesh.h"

namespace host {

/// Numbers points so that those with the same three numbers share one index; -0 counts as 0.
class PointWelder {
 public:
  std::uint32_t IndexOf(const Point3& p);
  const std::vector<Point3>& Points() const { return points_; }

 private:
  void Grow();
  std::vector<Point3> points_;
  std::vector<std::uint32_t> table_;  // index + 1 into points_, 0 for free; a power of two long
};

/// Triangles as files hold them: one index for position, normal and texture coordinate.
struct TrianglePart {
  std::vector<Point3> positions;
  std::vector<Point3> normals;         // none, or one per position
  std::vector<Point3> uvs;             // none, or one per position
  std::vector<std::uint32_t> corners;  // three a face
  std::vector<std::uint8_t> edges;     // EDGE_A to EDGE_C of each face; empty: all visible
  int material = -1;                   // of the plan
};

/// Joins the parts of one mesh.
class MeshBuilder {
 public:
  /// Throws ImportFault, naming the first coordinate that isn't finite or index out of range; `who`
  /// names the owner.
  void Add(const TrianglePart& part, const std::string& who);
  size_t NumFaces() const { return faces_.size(); }
  PlannedMesh Take();

 private:
  int SlotOf(int material, const std::string& who);

  PointWelder verts_, uvs_;
  std::vector<Face> faces_;
  std::vector<TVFace> mapFaces_;
  std::vector<int> slots_;
  bool mapped_ = false;
};

}  // namespace host
