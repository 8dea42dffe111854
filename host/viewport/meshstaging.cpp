#include "host/viewport/meshstaging.h"

#include <algorithm>

namespace host {

namespace {

// Three vertices of a face at most, so that 16 bits count them all.
constexpr size_t kFacesOfChunk = 1 << 14;
constexpr std::uint32_t kNone = ~0u;

Point3 AreaNormal(const Mesh& mesh, const Face& f) {
  const Point3& a = mesh.verts[f.v[0]];
  return CrossProd(mesh.verts[f.v[1]] - a, mesh.verts[f.v[2]] - a);
}

void SetNormal(StagedVertex& v, const Point3& n) {
  for (int k = 0; k < 3; ++k) v.normal[k] = std::int16_t(std::clamp(n[k], -1.0f, 1.0f) * 32767.0f);
}

}  // namespace

std::optional<std::vector<size_t>> MeshStaging::PieceEnds(size_t first, size_t last) {
  at_.resize(mesh_.verts.size());
  for (size_t i = first; i < last; ++i)
    for (const std::uint32_t v : mesh_.faces[i].v) {
      if (v >= mesh_.verts.size() || !IsFinite(mesh_.verts[v])) return std::nullopt;
      at_[v].lastFace = std::uint32_t(i);
    }
  std::vector<size_t> all;
  size_t begin = first, reach = first;
  for (size_t i = first; i < last; ++i) {
    for (const std::uint32_t v : mesh_.faces[i].v) reach = std::max<size_t>(reach, at_[v].lastFace);
    const bool ends = reach <= i && i + 1 - begin >= kFacesOfPiece &&
                      last - (i + 1) >= kFacesOfPiece / 2;  // else the rest comes along
    if (i + 1 < last && !ends) continue;
    all.push_back(begin = i + 1);
  }
  return all;
}

// The making of one piece.
class MeshStaging::PieceMaker {
 public:
  PieceMaker(const Mesh& mesh, Buffer<AtVertex>& at, size_t first, size_t last)
      : mesh_(mesh), at_(at), first_(first), last_(last) {}

  StagedPiece Make() {
    SumNormals();
    StagedPiece piece;
    for (size_t begin = first_; begin < last_; begin += kFacesOfChunk) {
      const size_t end = std::min(begin + kFacesOfChunk, last_);
      StagedChunk& chunk = piece.chunks.emplace_back();
      chunk.indices.reserve((end - begin) * 3);
      chunk.vertices.reserve(end - begin);
      for (size_t i = begin; i < end; ++i) AddFace(mesh_.faces[i], chunk);
      for (const StagedVertex& v : chunk.vertices) piece.box += v.position;
      base_ += std::uint32_t(chunk.vertices.size());
    }
    return piece;
  }

 private:
  void SumNormals() {
    for (size_t i = first_; i < last_; ++i)
      for (const std::uint32_t v : mesh_.faces[i].v) {
        AtVertex& at = at_[v];
        at.sum = {0, 0, 0};
        at.smGroup = at.mixed = at.madeSmooth = 0;
        at.made = kNone;
      }
    for (size_t i = first_; i < last_; ++i) {
      const Face& f = mesh_.faces[i];
      if (f.smGroup == 0) continue;
      const Point3 own = AreaNormal(mesh_, f);
      for (const std::uint32_t v : f.v) {
        AtVertex& at = at_[v];
        at.sum += own;
        if (at.smGroup == 0) at.smGroup = f.smGroup;
        at.mixed |= at.smGroup != f.smGroup;
      }
    }
  }

  void AddFace(const Face& f, StagedChunk& chunk) {
    std::optional<Point3> own;
    for (const std::uint32_t v : f.v) {
      AtVertex& at = at_[v];
      const bool here = at.made != kNone && at.made >= base_;
      const bool plain = f.smGroup != 0 && !at.mixed;
      if (plain && here && at.madeSmooth &&
          chunk.vertices[at.made - base_].material == f.getMatID()) {
        chunk.indices.push_back(std::uint16_t(at.made - base_));
        continue;
      }
      StagedVertex made{mesh_.verts[v], {}, f.getMatID()};
      Point3 n(0, 0, 0);
      if (f.smGroup != 0) n = Normalize(plain ? at.sum : MixedSum(v, f.smGroup));
      const bool smooth = Length(n) > 0.5f;
      if (!smooth && !own) own = Normalize(AreaNormal(mesh_, f));
      SetNormal(made, smooth ? n : *own);
      if (!here || chunk.vertices[at.made - base_] != made) {
        at.made = base_ + std::uint32_t(chunk.vertices.size());
        at.madeSmooth = plain && smooth;
        chunk.vertices.push_back(made);
      }
      chunk.indices.push_back(std::uint16_t(at.made - base_));
    }
  }

  // Of the faces round a vertex that share a group, where not all have the same.
  Point3 MixedSum(std::uint32_t v, std::uint32_t smGroup) {
    if (around_.empty()) {
      for (size_t i = first_; i < last_; ++i)
        for (const std::uint32_t w : mesh_.faces[i].v)
          if (at_[w].mixed) around_.push_back({w, std::uint32_t(i)});
      std::sort(around_.begin(), around_.end());
    }
    Point3 sum(0, 0, 0);
    auto it = std::lower_bound(around_.begin(), around_.end(), std::pair(v, 0u));
    for (; it != around_.end() && it->first == v; ++it) {
      const Face& f = mesh_.faces[it->second];
      if (f.smGroup & smGroup) sum += AreaNormal(mesh_, f);
    }
    return sum;
  }

  const Mesh& mesh_;
  Buffer<AtVertex>& at_;
  size_t first_, last_;
  std::uint32_t base_ = 0;                                       // vertices of the chunks before
  std::vector<std::pair<std::uint32_t, std::uint32_t>> around_;  // vertex, face
};

StagedPiece MeshStaging::Stage(size_t first, size_t last) {
  return PieceMaker(mesh_, at_, first, last).Make();
}

}  // namespace host
