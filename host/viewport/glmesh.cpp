#include "host/viewport/glmesh.h"

#include <epoxy/gl.h>

#include <algorithm>

#include "host/core/parallel.h"
#include "host/viewport/meshstaging.h"

namespace host {

namespace {

constexpr size_t kPiecesAtOnce = 64;  // staged before they are sent: some ten megabytes

const void* At(size_t offset) { return reinterpret_cast<const void*>(offset); }

}  // namespace

GlMesh::~GlMesh() { DropAll(); }

void GlMesh::Drop(Piece& piece) {
  for (const Chunk& chunk : piece.chunks) {
    glDeleteVertexArrays(1, &chunk.array);
    glDeleteBuffers(1, &chunk.buffer);
  }
  piece.chunks.clear();
}

void GlMesh::DropAll() {
  for (Piece& piece : pieces_) Drop(piece);
  pieces_.clear();
}

Box3 GlMesh::Box() const {
  Box3 box;
  for (const Piece& piece : pieces_) box += piece.box;
  return box;
}

void GlMesh::Update(const Mesh& mesh) {
  if (mesh.Stamp() == stamp_) return;
  sent_ = 0;
  if (!drawable_ || !Follow(mesh)) {
    DropAll();
    if (!mesh.faces.empty()) pieces_.push_back({mesh.faces.size(), true, {}, {}});
  }
  stamp_ = 0;  // of no mesh, so that a failure under way is followed by all anew
  Restage(mesh);
  stamp_ = mesh.Stamp();
}

// Marks the pieces that the mesh's splices name as stale; false if they can't be followed.
bool GlMesh::Follow(const Mesh& mesh) {
  const auto splices = mesh.SplicesSince(stamp_);
  if (!splices) return false;
  for (const MeshSplice& splice : *splices)
    if (!Apply(splice.faces)) return false;
  JoinSmall();
  size_t faces = 0;
  for (const Piece& piece : pieces_) faces += piece.faces;
  return faces == mesh.faces.size();
}

bool GlMesh::Apply(const MeshSplice::Run& faces) {
  if (faces.removed == 0 && faces.added == 0) return true;
  auto at = pieces_.begin();
  size_t within = faces.first;
  while (at != pieces_.end() && within >= at->faces) within -= at++->faces;
  if (at == pieces_.end()) {
    // Behind all: into the last piece while it is small.
    if (pieces_.empty() || pieces_.back().faces >= MeshStaging::kFacesOfPiece)
      pieces_.emplace_back();
    at = pieces_.end() - 1;
  }
  at->stale = true;
  for (size_t left = faces.removed; left > 0;) {
    const size_t here = std::min(left, at->faces - within);
    at->faces -= here, left -= here;
    if (left == 0) break;
    within = 0;
    if (++at == pieces_.end()) return false;
    at->stale = true;
  }
  at->faces += faces.added;
  return true;
}

// A stale piece that has become small takes the next one in, so that their number stays bounded.
void GlMesh::JoinSmall() {
  std::vector<Piece> joined;
  for (Piece& piece : pieces_) {
    if (piece.stale) Drop(piece);
    if (piece.faces == 0) continue;
    const bool small = !joined.empty() && joined.back().stale &&
                       joined.back().faces < MeshStaging::kFacesOfPiece / 4;
    if (small || (!joined.empty() && joined.back().stale && piece.stale)) {
      Drop(piece);
      joined.back().faces += piece.faces;
    } else {
      joined.push_back(std::move(piece));
    }
  }
  pieces_ = std::move(joined);
}

void GlMesh::Restage(const Mesh& mesh) {
  MeshStaging staging(mesh);
  std::vector<Piece> made;
  size_t first = 0;
  drawable_ = true;
  for (Piece& piece : pieces_) {
    const size_t faces = piece.faces;
    if (!piece.stale) {
      made.push_back(std::move(piece));
    } else if (const auto ends = staging.PieceEnds(first, first + faces)) {
      Send(staging, first, *ends, made);
      sent_ += faces;
    } else {
      drawable_ = false;
      break;
    }
    first += faces;
  }
  if (drawable_) {
    pieces_ = std::move(made);
  } else {
    for (Piece& piece : made) Drop(piece);
    DropAll();
  }
}

void GlMesh::Send(MeshStaging& staging, size_t first, const std::vector<size_t>& ends,
                  std::vector<Piece>& made) {
  using Vertex = StagedVertex;
  std::vector<StagedPiece> staged(std::min(ends.size(), kPiecesAtOnce));
  for (size_t from = 0; from < ends.size(); from += kPiecesAtOnce) {
    const size_t count = std::min(kPiecesAtOnce, ends.size() - from);
    const auto begin = [&](size_t i) { return i == 0 ? first : ends[i - 1]; };
    ParallelFor(count, 1, [&](size_t a, size_t b) {
      for (size_t i = a; i < b; ++i) staged[i] = staging.Stage(begin(from + i), ends[from + i]);
    });
    for (size_t i = 0; i < count; ++i) {
      Piece& piece = made.emplace_back();
      piece.faces = ends[from + i] - begin(from + i);
      piece.stale = false;
      piece.box = staged[i].box;
      for (const StagedChunk& c : staged[i].chunks) {
        Chunk& chunk = piece.chunks.emplace_back();
        chunk.vertices = c.vertices.size(), chunk.indices = c.indices.size();
        const size_t size = c.vertices.size() * sizeof(Vertex), more = c.indices.size() * 2;
        glGenVertexArrays(1, &chunk.array);
        glGenBuffers(1, &chunk.buffer);
        glBindVertexArray(chunk.array);
        glBindBuffer(GL_ARRAY_BUFFER, chunk.buffer);
        glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, chunk.buffer);
        glBufferData(GL_ARRAY_BUFFER, GLsizeiptr(size + more), nullptr, GL_STATIC_DRAW);
        glBufferSubData(GL_ARRAY_BUFFER, 0, GLsizeiptr(size), c.vertices.data());
        glBufferSubData(GL_ARRAY_BUFFER, GLintptr(size), GLsizeiptr(more), c.indices.data());
        glVertexAttribPointer(0, 3, GL_FLOAT, GL_FALSE, sizeof(Vertex), At(0));
        glVertexAttribPointer(1, 3, GL_SHORT, GL_TRUE, sizeof(Vertex), At(12));
        glVertexAttribIPointer(2, 1, GL_UNSIGNED_SHORT, sizeof(Vertex), At(18));
        for (GLuint k = 0; k < 3; ++k) glEnableVertexAttribArray(k);
      }
    }
  }
  glBindVertexArray(0);
}

void GlMesh::Draw() const {
  for (const Piece& piece : pieces_)
    for (const Chunk& chunk : piece.chunks) {
      glBindVertexArray(chunk.array);
      glDrawElements(GL_TRIANGLES, GLsizei(chunk.indices), GL_UNSIGNED_SHORT,
                     At(chunk.vertices * sizeof(StagedVertex)));
    }
}

}  // namespace host
