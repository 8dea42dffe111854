#include "sowfield/display/bakedplacements.h"

#include <cstring>
#include <limits>

#include "host/core/parallel.h"
#include "host/interface.h"
#include "host/math/samebits.h"
#include "sowfield/model/placementbatch.h"

namespace sowfield {
namespace {

// Placements are written in parts of at most this many, each with its own place in the mesh.
constexpr size_t kPart = 4096;
// Matrices worked out in one call.
constexpr size_t kRun = 256;
// Faces whose indices are moved in one go.
constexpr size_t kFacePart = size_t(1) << 16;
// Changes of the mesh that are told one by one; more are told as one that reaches from the first to
// the last.
constexpr size_t kMostSplices = 256;

bool SameForm(const KernelForm& a, const KernelForm& b) {
  return std::memcmp(&a, &b, offsetof(KernelForm, n) + sizeof a.n) == 0;
}

// Whether the entries that both lists have are the same.
template <class List, class Same>
bool SameStart(const List& a, const List& b, const Same& same) {
  return std::equal(a.begin(), a.begin() + std::ptrdiff_t(std::min(a.size(), b.size())), b.begin(),
                    same);
}

void WriteVerts(const Shape& shape, const Matrix3& m, const Matrix3& worldToObject, Point3* out) {
  if (worldToObject.IsIdentity()) {
    for (const Point3& v : shape.verts) *out++ = v * m;
  } else {
    for (const Point3& v : shape.verts) *out++ = (v * m) * worldToObject;
  }
}

void WriteFaces(const Shape& shape, int type, std::uint32_t first, Face* out) {
  const std::uint32_t id = std::uint32_t(type + 1) << 16;
  for (const Face& f : shape.faces)
    *out++ = {{f.v[0] + first, f.v[1] + first, f.v[2] + first}, f.smGroup, f.edgeVisFlags() | id};
}

// Adds `by` to the vertex indices of faces that stay, modulo 2^32: it may be a way back.
void MoveIndices(std::span<Face> faces, std::uint32_t by) {
  if (by == 0) return;
  host::ParallelFor(faces.size(), kFacePart, [&](size_t first, size_t last) {
    for (size_t f = first; f < last; ++f)
      for (std::uint32_t& v : faces[f].v) v += by;
  });
}

// What stays behind each edit has moved by what the edits up to it have put in and taken out.
void MoveIndicesOfKept(Mesh& mesh, std::span<const ListEdit> verts,
                       std::span<const ListEdit> faces) {
  size_t byVerts = 0, byFaces = 0;  // modulo 2^64
  for (size_t k = 0; k < verts.size(); ++k) {
    byVerts += verts[k].added - verts[k].removed, byFaces += faces[k].added - faces[k].removed;
    const size_t first = faces[k].at + faces[k].removed + byFaces;
    const size_t last = k + 1 < faces.size() ? faces[k + 1].at + byFaces : mesh.faces.size();
    MoveIndices({mesh.faces.data() + first, last - first}, std::uint32_t(byVerts));
  }
}

// One edit that reaches over all.
ListEdit Whole(std::span<const ListEdit> edits) {
  ListEdit whole{edits.front().at, edits.back().at + edits.back().removed - edits.front().at, 0};
  whole.added = whole.removed;
  for (const ListEdit& e : edits) whole.added += e.added - e.removed;
  return whole;
}

void TellSplices(Mesh& mesh, std::span<const ListEdit> verts, std::span<const ListEdit> faces) {
  if (verts.size() > kMostSplices) {
    const ListEdit allVerts = Whole(verts), allFaces = Whole(faces);
    return TellSplices(mesh, {&allVerts, 1}, {&allFaces, 1});
  }
  size_t byVerts = 0, byFaces = 0;
  for (size_t k = 0; k < verts.size(); ++k) {
    mesh.Spliced({{verts[k].at + byVerts, verts[k].removed, verts[k].added},
                  {faces[k].at + byFaces, faces[k].removed, faces[k].added}});
    byVerts += verts[k].added - verts[k].removed, byFaces += faces[k].added - faces[k].removed;
  }
}

}  // namespace

/// The placements as they are now, ready to be written.
class BakedPlacements::Bake {
 public:
  Bake(Distribution& d, const BakeTask& task)
      : evaluator_(*d.block, task.time), batch_(evaluator_), worldToObject_(task.worldToObject) {
    const PlacementFilter filter(d, task.time, kSeen);
    shapes_.resize(size_t(d.TypeCount()));
    for (const TypeRef& type : TypeWalk(*d.block))
      if (filter.TakesType(type.type))
        shapes_[size_t(type.type)] = TypeShapes(d, type, task.mode, task.time);
    places_ = filter.Passing();
    // Shapes at times of their own are made here, since only this thread may ask the sources.
    if (std::any_of(shapes_.begin(), shapes_.end(), [](auto& s) { return s.Moves(); }))
      for (size_t i = 0; i < places_.size(); ++i)
        timed_.push_back(&shapes_[size_t(Type(i))].At(evaluator_.Time(places_[i])));
  }

  size_t Count() const { return places_.size(); }
  /// Whether placements of one type may look different.
  bool IsTimed() const { return !timed_.empty(); }
  std::span<const KernelForm> Forms() const { return batch_.Forms(); }
  const std::vector<TypeShapes>& Shapes() const { return shapes_; }
  std::vector<TypeShapes>& Shapes() { return shapes_; }
  const Shape& ShapeOf(size_t i) const {
    return timed_.empty() ? shapes_[size_t(Type(i))].Base() : *timed_[i];
  }
  bool IsAsLaid(size_t i, const Laid& laid) const {
    const size_t p = places_[i];
    return host::SameBits(evaluator_.Positions()[p], laid.position) &&
           host::SameBits(evaluator_.Angles()[p], laid.angles) &&
           evaluator_.Types()[p] == laid.type && evaluator_.Rows()[p] == laid.row;
  }

  /// Writes entries [first, last) from a place in the mesh on, and what they are made from.
  void Write(size_t first, size_t last, MeshPlace at, Mesh& mesh, Laid* laid) const {
    Matrix3 matrices[kRun];
    for (size_t i = first; i < last;) {
      const size_t end = std::min(last, i + kRun);
      batch_.Matrices(places_, i, end - i, matrices);
      for (const Matrix3* m = matrices; i < end; ++i, ++m) {
        const Shape& shape = ShapeOf(i);
        WriteVerts(shape, *m, worldToObject_, mesh.verts.data() + at.vert);
        WriteFaces(shape, Type(i), std::uint32_t(at.vert), mesh.faces.data() + at.face);
        at += shape;
        const size_t p = places_[i];
        laid[i] = {evaluator_.Positions()[p], evaluator_.Angles()[p], Type(i),
                   evaluator_.Rows()[p]};
      }
    }
  }

 private:
  int Type(size_t i) const { return evaluator_.Type(places_[i]); }

  PlacementEvaluator evaluator_;
  PlacementBatch batch_;
  Matrix3 worldToObject_;
  std::vector<TypeShapes> shapes_;
  Places places_;
  std::vector<const Shape*> timed_;  // by place, where shapes have times of their own
};

void BakedPlacements::Forget() {
  known_ = false;
  laid_ = {};
  shapes_ = {};
  forms_ = {};
}

bool BakedPlacements::CanKeep(const BakeTask& task, const Bake& bake) const {
  const auto sameShape = [](const Shape& a, const TypeShapes& b) { return a.IsSame(b.Base()); };
  const std::span<const KernelForm> forms = bake.Forms();
  const size_t types = std::min(shapes_.size(), bake.Shapes().size());
  // Without placements there are no forms.
  return known_ && !bake.IsTimed() && task.base == task_.base && !forms.empty() &&
         host::SameBits(task.worldToObject, task_.worldToObject) &&
         SameStart(std::span(forms_), forms, SameForm) &&
         std::equal(shapes_.begin(), shapes_.begin() + std::ptrdiff_t(types), bake.Shapes().begin(),
                    sameShape);
}

// Those of vertices and faces are in their own numbers, at the same places.
BakedPlacements::Edits BakedPlacements::FindEdits(const BakeTask& task, const Bake& bake) const {
  Edits edits;
  edits.placements = EditsBetween(laid_.size(), bake.Count(),
                                  [&](size_t i, size_t j) { return bake.IsAsLaid(j, laid_[i]); });
  MeshPlace at = task.base;
  size_t i = 0, j = 0;
  for (const ListEdit& e : edits.placements) {
    for (; i < e.at; ++i, ++j) at += shapes_[size_t(laid_[i].type)];
    MeshPlace removed, added;
    for (; i < e.at + e.removed; ++i) removed += shapes_[size_t(laid_[i].type)];
    for (const size_t end = j + e.added; j < end; ++j) added += bake.ShapeOf(j);
    edits.verts.push_back({at.vert, removed.vert, added.vert});
    edits.faces.push_back({at.face, removed.face, added.face});
    at.vert += removed.vert, at.face += removed.face;
  }
  return edits;
}

void BakedPlacements::WriteNew(const Edits& edits, const Bake& bake, Mesh& mesh) {
  struct Part {
    size_t first, last;
    MeshPlace at;
  };
  std::vector<Part> parts;
  size_t byPlaces = 0, byVerts = 0, byFaces = 0;
  for (size_t k = 0; k < edits.placements.size(); ++k) {
    const ListEdit &e = edits.placements[k], &v = edits.verts[k], &f = edits.faces[k];
    MeshPlace at{v.at + byVerts, f.at + byFaces};
    const size_t first = e.at + byPlaces;
    for (size_t i = first; i < first + e.added; ++i) {
      if ((i - first) % kPart == 0) parts.push_back({i, std::min(i + kPart, first + e.added), at});
      at += bake.ShapeOf(i);
    }
    byPlaces += e.added - e.removed;
    byVerts += v.added - v.removed, byFaces += f.added - f.removed;
  }
  host::ParallelFor(parts.size(), 1, [&](size_t first, size_t last) {
    for (size_t k = first; k < last; ++k)
      bake.Write(parts[k].first, parts[k].last, parts[k].at, mesh, laid_.data());
  });
}

void BakedPlacements::Keep(const BakeTask& task, Bake& bake) {
  if (bake.IsTimed()) return Forget();
  task_ = task;
  shapes_.clear();
  for (TypeShapes& shape : bake.Shapes()) shapes_.push_back(shape.TakeBase());
  forms_.assign(bake.Forms().begin(), bake.Forms().end());
  known_ = true;
}

void BakedPlacements::Update(const BakeTask& task, Mesh& mesh) {
  Bake bake(d_, task);
  const bool kept = CanKeep(task, bake);
  known_ = false;  // until all is done
  if (!kept) {
    laid_.clear();
    mesh.verts.resize(task.base.vert);
    mesh.faces.resize(task.base.face);
  }
  const Edits edits = FindEdits(task, bake);
  MeshPlace end{mesh.verts.size(), mesh.faces.size()};
  for (const ListEdit& e : edits.verts) end.vert += e.added - e.removed;
  for (const ListEdit& e : edits.faces) end.face += e.added - e.removed;
  const auto most = size_t(std::numeric_limits<int>::max());
  if (end.vert > most || end.face > most) {
    GetCOREInterface()->PrintToListener(
        L"Sowfield: the placements are too many for one display mesh; none is shown.\n");
    mesh.verts.resize(task.base.vert);
    mesh.faces.resize(task.base.face);
    mesh.InvalidateTopologyCache();
    return Forget();
  }
  ApplyEdits(mesh.verts, edits.verts);
  ApplyEdits(mesh.faces, edits.faces);
  ApplyEdits(laid_, edits.placements);
  MoveIndicesOfKept(mesh, edits.verts, edits.faces);
  WriteNew(edits, bake, mesh);
  if (kept) {
    TellSplices(mesh, edits.verts, edits.faces);
  } else {
    mesh.InvalidateTopologyCache();
  }
  Keep(task, bake);
}

}  // namespace sowfield
