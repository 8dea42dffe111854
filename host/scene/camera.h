#pragma once

#include "host/scene/object.h"

/// A camera. It looks along -Z of its node, +Y up.
class CameraObject : public Object {
 public:
  static constexpr Class_ID kClassID{0x1001, 0};
  SClass_ID SuperClassID() const override { return CAMERA_CLASS_ID; }
  Class_ID ClassID() const override { return kClassID; }
  void GetClassName(WStr& name) const override { name = L"Camera"; }
  const wchar_t* GetObjectName() override { return L"Camera"; }
  ObjectState Eval(TimeValue) override { return ObjectState(this); }
  void GetLocalBoundBox(TimeValue, INode*, ViewExp*, Box3& box) override { box = {}; }

  /// Horizontal, radians, between 0 and pi.
  float GetFOV(TimeValue) const { return fov_; }
  void SetFOV(TimeValue, float fov) {
    fov_ = fov;
    NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE);
  }

 private:
  float fov_ = 0.785398f;
};
