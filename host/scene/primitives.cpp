#include "host/scene/primitives.h"

#include <algorithm>

#include "host/core/builtinclass.h"
#include "host/math/elementary.h"

namespace {

void AllTime(SimpleObject2& object) {
  object.mesh.InvalidateTopologyCache();
  object.ivalid = FOREVER;
}

// Two triangles of the quad a b c d with their diagonal hidden.
void SetQuad(Mesh& mesh, int face, const std::uint32_t (&q)[4], std::uint32_t group, MtlID id) {
  Face& first = mesh.faces[size_t(face)];
  Face& second = mesh.faces[size_t(face) + 1];
  first.setVerts(q[0], q[1], q[2]);
  first.setEdgeVisFlags(true, true, false);
  second.setVerts(q[2], q[3], q[0]);
  second.setEdgeVisFlags(true, true, false);
  for (Face* f : {&first, &second}) {
    f->smGroup = group;
    f->setMatID(id);
  }
}

}  // namespace

void BoxObject::SetSize(float width, float length, float height) {
  width_ = width, length_ = length, height_ = height;
  ivalid.SetEmpty();
  NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE);
}

void BoxObject::BuildMesh(TimeValue) {
  mesh.setNumVerts(8);
  for (int i = 0; i < 8; ++i)
    mesh.setVert(i, {(i & 1 ? 0.5f : -0.5f) * width_, (i & 2 ? 0.5f : -0.5f) * length_,
                     i & 4 ? height_ : 0.0f});
  static constexpr std::uint32_t kSides[6][4] = {{0, 2, 3, 1}, {4, 5, 7, 6}, {0, 1, 5, 4},
                                                 {1, 3, 7, 5}, {3, 2, 6, 7}, {2, 0, 4, 6}};
  mesh.setNumFaces(12);
  for (int s = 0; s < 6; ++s) SetQuad(mesh, 2 * s, kSides[s], 1u << s, MtlID(s));

  mesh.setMapSupport(1, true);
  mesh.setNumMapVerts(1, 4);
  for (int i = 0; i < 4; ++i)
    mesh.maps[1].verts[size_t(i)] = Point3(i == 1 || i == 2, i == 2 || i == 3, 0);
  for (size_t f = 0; f < 12; f += 2) {
    mesh.maps[1].faces[f] = {{0, 1, 2}};
    mesh.maps[1].faces[f + 1] = {{2, 3, 0}};
  }
  AllTime(*this);
}

ReferenceTarget* BoxObject::Clone(RemapDir&) {
  auto* copy = new BoxObject;
  copy->SetSize(width_, length_, height_);
  return copy;
}

void SphereObject::SetSize(float radius, int segments) {
  radius_ = radius;
  segments_ = std::max(segments, 3);
  ivalid.SetEmpty();
  NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE);
}

void SphereObject::BuildMesh(TimeValue) {
  const int around = segments_;
  const int rings = std::max(around / 2 - 1, 1);  // between the poles
  mesh.setNumVerts(around * rings + 2);
  const int north = around * rings, south = north + 1;
  mesh.setVert(north, {0, 0, radius_});
  mesh.setVert(south, {0, 0, -radius_});
  for (int r = 0; r < rings; ++r) {
    const host::SinCos tilt = host::SinCosOf(host::kPi * (r + 1) / (rings + 1));
    for (int i = 0; i < around; ++i) {
      const host::SinCos turn = host::SinCosOf(2 * host::kPi * i / around);
      mesh.setVert(r * around + i,
                   {float(radius_ * tilt.sin * turn.cos), float(radius_ * tilt.sin * turn.sin),
                    float(radius_ * tilt.cos)});
    }
  }

  mesh.setNumFaces(2 * around * rings);
  int f = 0;
  for (int i = 0; i < around; ++i) {
    const auto a = std::uint32_t(i), b = std::uint32_t((i + 1) % around);
    Face& top = mesh.faces[size_t(f++)];
    top.setVerts(std::uint32_t(north), a, b);
    Face& bottom = mesh.faces[size_t(f++)];
    const auto last = std::uint32_t((rings - 1) * around);
    bottom.setVerts(std::uint32_t(south), last + b, last + a);
    for (Face* cap : {&top, &bottom}) {
      cap->smGroup = 1;
      cap->setEdgeVisFlags(true, true, true);
    }
    for (int r = 0; r + 1 < rings; ++r) {
      const auto u = std::uint32_t(r * around), d = std::uint32_t((r + 1) * around);
      SetQuad(mesh, f, {u + a, d + a, d + b, u + b}, 1, 0);
      f += 2;
    }
  }
  AllTime(*this);
}

ReferenceTarget* SphereObject::Clone(RemapDir&) {
  auto* copy = new SphereObject;
  copy->SetSize(radius_, segments_);
  return copy;
}

void PlaneObject::SetSize(float width, float length, int cellsX, int cellsY) {
  width_ = width, length_ = length;
  cellsX_ = std::max(cellsX, 1);
  cellsY_ = std::max(cellsY, 1);
  ivalid.SetEmpty();
  NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE);
}

void PlaneObject::BuildMesh(TimeValue) {
  const int row = cellsX_ + 1;
  mesh.setNumVerts(row * (cellsY_ + 1));
  for (int y = 0; y <= cellsY_; ++y)
    for (int x = 0; x <= cellsX_; ++x)
      mesh.setVert(y * row + x, {(float(x) / float(cellsX_) - 0.5f) * width_,
                                 (float(y) / float(cellsY_) - 0.5f) * length_, 0});
  mesh.setNumFaces(2 * cellsX_ * cellsY_);
  for (int y = 0, f = 0; y < cellsY_; ++y) {
    for (int x = 0; x < cellsX_; ++x, f += 2) {
      const auto a = std::uint32_t(y * row + x), d = a + std::uint32_t(row);
      SetQuad(mesh, f, {a, a + 1, d + 1, d}, 1, 0);
    }
  }
  AllTime(*this);
}

ReferenceTarget* PlaneObject::Clone(RemapDir&) {
  auto* copy = new PlaneObject;
  copy->SetSize(width_, length_, cellsX_, cellsY_);
  return copy;
}

namespace host {

void RegisterPrimitiveClasses(ClassRegistry& classes) {
  static BuiltinClass<BoxObject> box(GEOMOBJECT_CLASS_ID, BoxObject::kClassID, L"Box");
  static BuiltinClass<SphereObject> sphere(GEOMOBJECT_CLASS_ID, SphereObject::kClassID, L"Sphere");
  static BuiltinClass<PlaneObject> plane(GEOMOBJECT_CLASS_ID, PlaneObject::kClassID, L"Plane");
  classes.Add(&box);
  classes.Add(&sphere);
  classes.Add(&plane);
}

}  // namespace host
