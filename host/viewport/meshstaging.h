#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "host/math/box3.h"
#include "host/math/buffer.h"
#include "host/scene/mesh.h"

namespace host {

/// A corner of a face as OpenGL gets it. The normal's full length is 32767.
struct StagedVertex {
  Point3 position;
  std::int16_t normal[3];
  std::uint16_t material;
  bool operator==(const StagedVertex&) const = default;
};

/// Faces that are drawn in one call. Corners that agree in all, mostly, are one vertex.
struct StagedChunk {
  std::vector<StagedVertex> vertices;
  std::vector<std::uint16_t> indices;  // three a face
};

/// A run of faces that shares no vertex with any other face: it can be made anew alone. Its box is
/// that of its faces.
struct StagedPiece {
  std::vector<StagedChunk> chunks;
  Box3 box;
};

/// Makes what OpenGL gets of a mesh. A corner's normal is that of CornerNormals, or the face's own
/// where those of two sides that share their corners cancel each other.
class MeshStaging {
 public:
  /// A piece has this many faces and then as many as it takes to share no vertex with the next.
  static constexpr size_t kFacesOfPiece = 1 << 13;

  explicit MeshStaging(const Mesh& mesh) : mesh_(mesh) {}
  /// Where the pieces end that the faces from `first` to before `last` fall into; these must share
  /// no vertex with other faces. Nothing if one of them can't be drawn, because it uses a vertex
  /// that isn't there or isn't finite.
  std::optional<std::vector<size_t>> PieceEnds(size_t first, size_t last);
  /// One piece of the last PieceEnds. Different ones may be made at the same time.
  StagedPiece Stage(size_t first, size_t last);

 private:
  // What is known of a vertex while its piece is made.
  struct AtVertex {
    Point3 sum;                // of the normals of its smooth faces
    std::uint32_t lastFace;    // that uses it
    std::uint32_t smGroup;     // of its smooth faces; 0 without any
    std::uint32_t mixed;       // they differ in it
    std::uint32_t made;        // the staged vertex made of it last
    std::uint32_t madeSmooth;  // that one has the normal of `sum`
  };
  class PieceMaker;

  const Mesh& mesh_;
  Buffer<AtVertex> at_;  // by vertex; what hasn't been asked for stays untouched
};

}  // namespace host
