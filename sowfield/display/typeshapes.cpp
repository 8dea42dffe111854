#include "sowfield/display/typeshapes.h"

#include <cstring>

#include "sowfield/display/figures.h"
#include "sowfield/model/displaymode.h"
#include "sowfield/model/typedata.h"

namespace sowfield {
namespace {

// Faces have no padding, so that their bytes are their value.
static_assert(sizeof(Face) == 5 * sizeof(std::uint32_t));

template <class A>
bool SameBytes(const A& a, const A& b) {
  return a.size() == b.size() &&
         (a.empty() || std::memcmp(a.data(), b.data(), a.size() * sizeof a[0]) == 0);
}

}  // namespace

bool Shape::IsSame(const Shape& other) const {
  return SameBytes(verts, other.verts) && SameBytes(faces, other.faces);
}

TypeShapes::TypeShapes(const Distribution& d, const TypeRef& type, int mode, TimeValue t)
    : node_(d.SourceNode(type)), kind_(type.kind), time_(t) {
  if (type.HasNode() && !node_) return;  // shows nothing until its removal
  if (mode == kShowOriginal) {
    frame_ = MeshFrame(node_, t);
    const TypeMesh mesh = MeshOfType(d, type, t);
    valid_ = mesh.valid;
    base_ = ShapeOf(mesh);
  } else {
    base_ = FigureShape(mode, BoxOf(d, type.type));
  }
}

const Shape& TypeShapes::At(TimeValue t) {
  if (!Moves() || t == time_ || valid_.InInterval(t)) return base_;
  const auto [found, isNew] = others_.try_emplace(t);
  if (isNew) found->second = ShapeOf(MeshOfSource(node_, kind_, t));
  return found->second;
}

// The figure stands on the floor of the source's box, centred on it.
Shape TypeShapes::FigureShape(int mode, const Box3& box) const {
  const Matrix3 turn = SourceTurn(node_, time_);
  const Point3 top = box.pmax * turn, bottom = box.pmin * turn;
  Mesh figure =
      mode == kShowPyramid ? MakePyramidMesh(top, bottom) : MakeSquirrelMesh(top.z - bottom.z);
  const Point3 offset = FigureOffset(node_, time_, box.pmax, box.pmin);
  Shape shape;
  for (const Point3& v : figure.verts) shape.verts.push_back(v - offset);
  shape.faces = std::move(figure.faces);
  return shape;
}

Shape TypeShapes::ShapeOf(const TypeMesh& source) const {
  Shape shape;
  const Mesh* mesh = source.Get();
  if (!mesh) return shape;
  shape.verts.reserve(mesh->verts.size());
  for (const Point3& v : mesh->verts) shape.verts.push_back(frame_(v));
  shape.faces = mesh->faces;
  return shape;
}

}  // namespace sowfield
