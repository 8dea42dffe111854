#include "host/scene/modifier.h"
#include "host/scene/renderer.h"
#include "host/scenefile/sceneclasses.h"

namespace host {

namespace {

class UnknownObject : public Object, public UnknownThing {
 public:
  UnknownObject(SClass_ID super, Class_ID id) : super_(super), id_(id) {}
  SClass_ID SuperClassID() const override { return super_; }
  Class_ID ClassID() const override { return id_; }
  ObjectState Eval(TimeValue) override { return ObjectState(this); }
  void GetLocalBoundBox(TimeValue, INode*, ViewExp*, Box3& box) override { box = {}; }

 private:
  SClass_ID super_;
  Class_ID id_;
};

class UnknownMtl : public Mtl, public UnknownThing {
 public:
  explicit UnknownMtl(Class_ID id) : id_(id) {}
  Class_ID ClassID() const override { return id_; }
  Color GetDiffuse() const override { return StdMtl().GetDiffuse(); }
  void SetDiffuse(const Color&, TimeValue) override {}

 private:
  Class_ID id_;
};

class UnknownTexmap : public Texmap, public UnknownThing {
 public:
  explicit UnknownTexmap(Class_ID id) : id_(id) {}
  Class_ID ClassID() const override { return id_; }

 private:
  Class_ID id_;
};

class UnknownModifier : public Modifier, public UnknownThing {
 public:
  explicit UnknownModifier(Class_ID id) : id_(id) {}
  Class_ID ClassID() const override { return id_; }
  const wchar_t* GetObjectName() override { return L""; }
  void ModifyMesh(TimeValue, Mesh&) const override {}

 private:
  Class_ID id_;
};

class UnknownRenderer : public Renderer, public UnknownThing {
 public:
  explicit UnknownRenderer(Class_ID id) : id_(id) {}
  Class_ID ClassID() const override { return id_; }

 private:
  Class_ID id_;
};

// Of a kind that this program doesn't know: only unknown things refer to it.
class UnknownKind : public ReferenceTarget, public UnknownThing {
 public:
  UnknownKind(SClass_ID super, Class_ID id) : super_(super), id_(id) {}
  SClass_ID SuperClassID() const override { return super_; }
  Class_ID ClassID() const override { return id_; }

 private:
  SClass_ID super_;
  Class_ID id_;
};

}  // namespace

ReferenceTarget* MakeUnknownThing(SClass_ID super, Class_ID id) {
  switch (super) {
    case GEOMOBJECT_CLASS_ID:
    case CAMERA_CLASS_ID:
    case LIGHT_CLASS_ID:
    case SHAPE_CLASS_ID:
    case HELPER_CLASS_ID:
      return new UnknownObject(super, id);
    case MATERIAL_CLASS_ID:
      return new UnknownMtl(id);
    case OSM_CLASS_ID:
      return new UnknownModifier(id);
    case TEXMAP_CLASS_ID:
      return new UnknownTexmap(id);
    case RENDERER_CLASS_ID:
      return new UnknownRenderer(id);
    case FLOAT_CONTROL_CLASS_ID:
    case TRANSFORM_CONTROL_CLASS_ID:
    case GEN_DERIVOB_CLASS_ID:
    case BASENODE_CLASS_ID:
    case PARAMETER_BLOCK2_CLASS_ID:
    case LAYER_CLASS_ID:
      return nullptr;
    default:
      return new UnknownKind(super, id);
  }
}

}  // namespace host
