#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

#include "host/exchange/importplan.h"
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

/// Joins the parts of one mesh. Corners of one position are one vertex, unless morph targets or
/// bones move them apart.
class MeshBuilder {
 public:
  /// Throws ImportFault, naming the first coordinate that isn't finite or index out of range; `who`
  /// names the owner.
  void Add(const TrianglePart& part, const std::string& who);
  size_t NumFaces() const { return faces_.size(); }
  /// With its targets, and a skin if the parts have bones; the skin's nodes are the caller's to
  /// add.
  PlannedMesh Take();

 private:
  struct Channel {
    PointWelder points;
    std::vector<TVFace> faces;  // none as long as no part has texture coordinates
    bool used = false;
  };

  int SlotOf(int material, const std::string& who);
  std::uint32_t VertexOf(const TrianglePart& part, std::uint32_t c);
  std::uint32_t AddVertex(const TrianglePart& part, std::uint32_t c);
  void AddMapFaces(Channel& channel, const std::vector<Point3>& uvs,
                   const std::vector<std::uint32_t>& corners);

  std::vector<Point3> verts_;
  PointWelder positions_;
  std::vector<std::uint32_t> vertOfPosition_;              // of vertices that nothing moves
  std::unordered_map<std::string, std::uint32_t> moving_;  // by the bytes of all that moves one
  std::vector<std::vector<Point3>> targets_;
  std::vector<VertexBones> bones_;
  std::vector<Face> faces_;
  std::vector<Channel> channels_;  // from map channel 1 on
  std::vector<int> slots_;
};

}  // namespace host
