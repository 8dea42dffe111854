#pragma once

#include "host/core/paramblock.h"
#include "host/scene/object.h"
#include "host/scene/triobject.h"

/// Base of objects that build one mesh from parameters, on demand.
class SimpleObject2 : public GeomObject {
 public:
  /// Builds the mesh when t lies outside its validity.
  virtual void UpdateMesh(TimeValue t) {
    if (!ivalid.InInterval(t)) BuildMesh(t);
  }
  /// Fills `mesh` for t and sets `ivalid`.
  virtual void BuildMesh(TimeValue t) = 0;

  ObjectState Eval(TimeValue) override { return ObjectState(this); }
  bool CanConvertToType(Class_ID id) override {
    return id == triObjectClassID || id == polyObjectClassID || id == ClassID();
  }
  Object* ConvertToType(TimeValue t, Class_ID id) override;
  void GetLocalBoundBox(TimeValue t, INode* node, ViewExp* view, Box3& box) override;
  /// Builds the mesh for the redraw that asks.
  int Display(TimeValue t, INode*, ViewExp*, int) override {
    UpdateMesh(t);
    return 0;
  }
  Mesh* GetRenderMesh(TimeValue t, INode* node, ViewExp* view, bool& needDelete) override;

  IParamBlock2* pblock2 = nullptr;
  Mesh mesh;
  Interval ivalid;  // never
  int suspendSnap = 0;
};
