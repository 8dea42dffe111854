#pragma once

#include "host/scene/simpleobject.h"

namespace host {
struct SceneAccess;
}

/// A block standing on its base: `width` along X, `length` along Y, `height` along Z from 0. Six
/// sides with eight shared vertices, a smoothing group and a material id (0 to 5) a side, the
/// diagonals hidden, texture vertices on channel 1.
class BoxObject : public SimpleObject2 {
 public:
  static constexpr Class_ID kClassID{0x10, 0};
  Class_ID ClassID() const override { return kClassID; }
  void GetClassName(WStr& name) const override { name = L"Box"; }
  const wchar_t* GetObjectName() override { return L"Box"; }
  void SetSize(float width, float length, float height);
  void BuildMesh(TimeValue t) override;
  ReferenceTarget* Clone(RemapDir& remap) override;

 private:
  friend struct host::SceneAccess;
  float width_ = 1, length_ = 1, height_ = 1;
};

/// A sphere about the origin: `segments` (at least 3) round, half as many from pole to pole, one
/// smoothing group.
class SphereObject : public SimpleObject2 {
 public:
  static constexpr Class_ID kClassID{0x11, 0};
  Class_ID ClassID() const override { return kClassID; }
  void GetClassName(WStr& name) const override { name = L"Sphere"; }
  const wchar_t* GetObjectName() override { return L"Sphere"; }
  void SetSize(float radius, int segments);
  void BuildMesh(TimeValue t) override;
  ReferenceTarget* Clone(RemapDir& remap) override;

 private:
  friend struct host::SceneAccess;
  float radius_ = 1;
  int segments_ = 32;
};

/// A flat grid about the origin facing +Z: `width` along X, `length` along Y, cells along each.
class PlaneObject : public SimpleObject2 {
 public:
  static constexpr Class_ID kClassID{0x12, 0};
  Class_ID ClassID() const override { return kClassID; }
  void GetClassName(WStr& name) const override { name = L"Plane"; }
  const wchar_t* GetObjectName() override { return L"Plane"; }
  void SetSize(float width, float length, int cellsX, int cellsY);
  void BuildMesh(TimeValue t) override;
  ReferenceTarget* Clone(RemapDir& remap) override;

 private:
  friend struct host::SceneAccess;
  float width_ = 1, length_ = 1;
  int cellsX_ = 1, cellsY_ = 1;
};

namespace host {
class ClassRegistry;
void RegisterPrimitiveClasses(ClassRegistry& classes);
}  // namespace host
