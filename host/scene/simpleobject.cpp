#include "host/scene/simpleobject.h"

Object* SimpleObject2::ConvertToType(TimeValue t, Class_ID id) {
  if (id == ClassID()) return this;
  if (id != triObjectClassID && id != polyObjectClassID) return nullptr;
  UpdateMesh(t);
  TriObject* tri = id == triObjectClassID ? new TriObject : new PolyObject;
  tri->mesh = mesh;
  return tri;
}

void SimpleObject2::GetLocalBoundBox(TimeValue t, INode*, ViewExp*, Box3& box) {
  UpdateMesh(t);
  box = mesh.getBoundingBox();
}

Mesh* SimpleObject2::GetRenderMesh(TimeValue t, INode*, ViewExp*, bool& needDelete) {
  UpdateMesh(t);
  needDelete = false;
  return &mesh;
}
