#pragma once

#include <memory>

#include "host/scene/object.h"

/// A triangle mesh as an object.
class TriObject : public GeomObject {
 public:
  Class_ID ClassID() const override { return triObjectClassID; }
  void GetClassName(WStr& name) const override { name = L"Mesh"; }
  const wchar_t* GetObjectName() override { return L"Mesh"; }
  ObjectState Eval(TimeValue) override { return ObjectState(this); }
  bool IsSubClassOf(Class_ID id) const override { return id == triObjectClassID; }
  bool CanConvertToType(Class_ID id) override;
  Object* ConvertToType(TimeValue t, Class_ID id) override;
  void GetLocalBoundBox(TimeValue t, INode* node, ViewExp* view, Box3& box) override;
  Mesh* GetRenderMesh(TimeValue t, INode* node, ViewExp* view, bool& needDelete) override;
  ReferenceTarget* Clone(RemapDir& remap) override;

  Mesh& GetMesh() { return mesh; }
  Mesh mesh;

 private:
  struct BoxOfStamp {
    std::uint64_t stamp = 0;
    Box3 box;
  } cachedBox_;
};

/// A mesh that the user edits. It is a triangle object under a class of its own.
class EditableMesh : public TriObject {
 public:
  static constexpr Class_ID kClassID{0xe44f10b3, 0};
  Class_ID ClassID() const override { return kClassID; }
  void GetClassName(WStr& name) const override { name = L"Editable Mesh"; }
  bool IsSubClassOf(Class_ID id) const override { return id == kClassID || id == triObjectClassID; }
  ReferenceTarget* Clone(RemapDir& remap) override;
};

/// A polygon object. Our polygons are the triangles of the mesh that it was converted from.
class PolyObject : public TriObject {
 public:
  Class_ID ClassID() const override { return polyObjectClassID; }
  void GetClassName(WStr& name) const override { name = L"Poly"; }
  bool IsSubClassOf(Class_ID id) const override { return id == polyObjectClassID; }
  Object* ConvertToType(TimeValue t, Class_ID id) override;
  ReferenceTarget* Clone(RemapDir& remap) override;
};

/// The mesh of a node's evaluated object at t, hidden nodes included; null for a node whose object
/// can't be converted. The second member keeps a converted object alive.
struct EvaluatedMesh {
  const Mesh* mesh = nullptr;
  std::unique_ptr<Object, DeleteUnreferenced> converted;
  explicit operator bool() const { return mesh != nullptr; }
};
EvaluatedMesh EvalMesh(INode* node, TimeValue t);
/// The same for an evaluated object.
EvaluatedMesh MeshOf(Object* object, TimeValue t);
/// The box in the world of what the node shows at t, around the mesh's own vertices: no larger than
/// they need, which that of GetWorldBoundBox is for a mesh that was turned. Of an object without a
/// mesh it is that.
Box3 TightWorldBox(INode* node, TimeValue t);

namespace host {
class ClassRegistry;
void RegisterMeshClasses(ClassRegistry& classes);
}  // namespace host
