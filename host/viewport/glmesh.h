#pragma once

#include <cstdint>
#include <vector>

#include "host/math/box3.h"
#include "host/scene/mesh.h"

namespace host {

class MeshStaging;

/// A mesh's buffers with the current OpenGL context. They follow the mesh: what its splices don't
/// name stays with OpenGL as it is.
class GlMesh {
 public:
  GlMesh() = default;
  GlMesh(const GlMesh&) = delete;
  GlMesh& operator=(const GlMesh&) = delete;
  ~GlMesh();

  /// Brings the buffers to the mesh's present content. It need not be the mesh of the last time:
  /// its stamps tell.
  void Update(const Mesh& mesh);
  std::uint64_t Stamp() const { return stamp_; }
  /// False for a mesh without faces or one of whose faces can't be drawn: nothing of it is.
  bool Drawable() const { return drawable_ && !pieces_.empty(); }
  Box3 Box() const;
  /// With the program and its values in force.
  void Draw() const;
  /// Faces that the last update has sent, for measures.
  size_t FacesSent() const { return sent_; }

 private:
  // What is drawn in one call: vertices and behind them the indices in one buffer.
  struct Chunk {
    unsigned array = 0, buffer = 0;
    size_t vertices = 0, indices = 0;
  };
  // See StagedPiece; its buffers are made anew if it is stale.
  struct Piece {
    size_t faces = 0;
    bool stale = true;
    Box3 box;
    std::vector<Chunk> chunks;
  };

  bool Apply(const MeshSplice::Run& faces);
  bool Follow(const Mesh& mesh);
  void JoinSmall();
  void Restage(const Mesh& mesh);
  static void Send(MeshStaging& staging, size_t first, const std::vector<size_t>& ends,
                   std::vector<Piece>& made);
  static void Drop(Piece& piece);
  void DropAll();

  std::uint64_t stamp_ = 0;
  bool drawable_ = true;
  size_t sent_ = 0;
  std::vector<Piece> pieces_;
};

}  // namespace host
