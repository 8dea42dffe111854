#include "host/scene/triobject.h"

#include "host/core/builtinclass.h"
#include "host/scene/node.h"

bool TriObject::CanConvertToType(Class_ID id) {
  return id == triObjectClassID || id == polyObjectClassID;
}

Object* TriObject::ConvertToType(TimeValue, Class_ID id) {
  if (id == triObjectClassID) return this;
  if (id != polyObjectClassID) return nullptr;
  auto* poly = new PolyObject;
  poly->mesh = mesh;
  return poly;
}

Object* PolyObject::ConvertToType(TimeValue, Class_ID id) {
  if (id == polyObjectClassID) return this;
  if (id != triObjectClassID) return nullptr;
  auto* tri = new TriObject;
  tri->mesh = mesh;
  return tri;
}

void TriObject::GetLocalBoundBox(TimeValue, INode*, ViewExp*, Box3& box) {
  if (cachedBox_.stamp != mesh.Stamp()) cachedBox_ = {mesh.Stamp(), mesh.getBoundingBox()};
  box = cachedBox_.box;
}

Mesh* TriObject::GetRenderMesh(TimeValue, INode*, ViewExp*, bool& needDelete) {
  needDelete = false;
  return &mesh;
}

ReferenceTarget* TriObject::Clone(RemapDir&) {
  auto* copy = new TriObject;
  copy->mesh = mesh;
  return copy;
}

ReferenceTarget* EditableMesh::Clone(RemapDir&) {
  auto* copy = new EditableMesh;
  copy->mesh = mesh;
  return copy;
}

ReferenceTarget* PolyObject::Clone(RemapDir&) {
  auto* copy = new PolyObject;
  copy->mesh = mesh;
  return copy;
}

EvaluatedMesh MeshOf(Object* object, TimeValue t) {
  EvaluatedMesh result;
  if (!object || !object->CanConvertToType(triObjectClassID)) return result;
  Object* converted = object->ConvertToType(t, triObjectClassID);
  if (!converted) return result;
  if (converted != object) result.converted.reset(converted);
  result.mesh = &static_cast<TriObject*>(converted)->mesh;
  return result;
}

EvaluatedMesh EvalMesh(INode* node, TimeValue t) {
  return node ? MeshOf(node->EvalWorldState(t).obj, t) : EvaluatedMesh{};
}

Box3 TightWorldBox(INode* node, TimeValue t) {
  Box3 box;
  Object* object = node->EvalWorldState(t).obj;
  if (!object) return box;
  const Matrix3 tm = node->GetObjectTM(t);
  if (const EvaluatedMesh shown = MeshOf(object, t)) return shown.mesh->getBoundingBox(&tm);
  object->GetWorldBoundBox(t, node, nullptr, box);
  return box;
}

namespace host {

void RegisterMeshClasses(ClassRegistry& classes) {
  static BuiltinClass<TriObject> tri(GEOMOBJECT_CLASS_ID, triObjectClassID, L"Mesh");
  static BuiltinClass<PolyObject> poly(GEOMOBJECT_CLASS_ID, polyObjectClassID, L"Poly");
  static BuiltinClass<EditableMesh> editable(GEOMOBJECT_CLASS_ID, EditableMesh::kClassID,
                                             L"Editable Mesh");
  classes.Add(&tri);
  classes.Add(&editable);
  classes.Add(&poly);
}

}  // namespace host
