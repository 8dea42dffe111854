#include "host/scene/modifier.h"

#include "host/core/builtinclass.h"
#include "host/core/hold.h"
#include "host/core/track.h"

void XFormModifier::SetMatrix(const Matrix3& matrix) {
  RecordValue(this, &matrix_);
  matrix_ = matrix;
  NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE);
}

void XFormModifier::ModifyMesh(TimeValue, Mesh& mesh) const {
  for (Point3& v : mesh.verts) v = v * matrix_;
  mesh.InvalidateGeomCache();
}

ReferenceTarget* XFormModifier::Clone(RemapDir&) {
  auto* copy = new XFormModifier;
  copy->matrix_ = matrix_;
  return copy;
}

/// Undo record of a modifier that came on top of a stack.
class ModifierRecord : public RestoreObj {
 public:
  ModifierRecord(DerivedObject* stack, Modifier* modifier) : stack_(stack), modifier_(modifier) {}
  void Restore() override {
    stack_->ReplaceReference(stack_->NumRefs() - 1, nullptr);
    stack_->modifiers_.pop_back();
  }
  void Redo() override {
    stack_->modifiers_.push_back(nullptr);
    stack_->ReplaceReference(stack_->NumRefs() - 1, modifier_.get());
  }
  ReferenceTarget* Target() const override { return stack_.get(); }

 private:
  Pin<DerivedObject> stack_;
  Pin<Modifier> modifier_;
};

DerivedObject::DerivedObject(Object* base) { ReplaceReference(kBaseRef, base); }

DerivedObject::~DerivedObject() { DerivedObject::DeleteAllRefsFromMe(); }

void DerivedObject::AddModifier(Modifier* modifier) {
  modifiers_.push_back(nullptr);
  ReplaceReference(NumRefs() - 1, modifier);
  theHold->Put(std::make_unique<ModifierRecord>(this, modifier));
  NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE);
}

ReferenceTarget* DerivedObject::GetReference(int i) const {
  if (i == kBaseRef) return base_;
  if (i == kShownRef) return shown_;
  return modifiers_[size_t(i - kFirstModifierRef)];
}

void DerivedObject::SetReference(int i, ReferenceTarget* t) {
  if (i == kBaseRef) {
    base_ = static_cast<Object*>(t);
  } else if (i == kShownRef) {
    shown_ = static_cast<TriObject*>(t);
  } else {
    modifiers_[size_t(i - kFirstModifierRef)] = static_cast<Modifier*>(t);
  }
  shownBase_ = 0;
}

RefResult DerivedObject::NotifyRefChanged(const Interval&, ReferenceTarget* target, PartID&,
                                          RefMessage) {
  if (target == shown_) return REF_FAIL;
  shownBase_ = 0;
  return REF_SUCCEED;
}

ObjectState DerivedObject::Eval(TimeValue t) {
  if (!base_) return ObjectState(nullptr);
  const ObjectState below = base_->Eval(t);
  if (modifiers_.empty()) return below;
  const EvaluatedMesh source = MeshOf(below.obj, t);
  if (!source) return below;
  // A converted mesh is made anew each time, so its stamp says nothing.
  const bool same = !source.converted && shownBase_ == source.mesh->Stamp();
  if (shown_ && same && shownValid_.InInterval(t)) return ObjectState(shown_, shownValid_);

  // A shape that someone else has come to hold is theirs.
  if (!shown_ || shown_->IsPinned() || shown_->Dependents().size() > 1)
    ReplaceReference(kShownRef, new TriObject);
  shown_->mesh = *source.mesh;
  shownValid_ = below.valid;
  for (const Modifier* m : modifiers_) {
    m->ModifyMesh(t, shown_->mesh);
    shownValid_ = Overlap(shownValid_, m->LocalValidity(t));
  }
  shown_->mesh.InvalidateGeomCache();
  shownBase_ = source.mesh->Stamp();
  return ObjectState(shown_, shownValid_);
}

bool DerivedObject::CanConvertToType(Class_ID id) {
  return id == kClassID || (base_ && base_->CanConvertToType(id));
}

Object* DerivedObject::ConvertToType(TimeValue t, Class_ID id) {
  if (id == kClassID) return this;
  Object* shown = Eval(t).obj;
  return shown ? shown->ConvertToType(t, id) : nullptr;
}

void DerivedObject::GetLocalBoundBox(TimeValue t, INode* node, ViewExp* view, Box3& box) {
  box = {};
  if (Object* shown = Eval(t).obj) shown->GetLocalBoundBox(t, node, view, box);
}

ReferenceTarget* DerivedObject::Clone(RemapDir& remap) {
  auto* copy = new DerivedObject(static_cast<Object*>(remap.CloneRef(base_)));
  for (Modifier* m : modifiers_) {
    copy->modifiers_.push_back(nullptr);
    copy->ReplaceReference(copy->NumRefs() - 1, remap.CloneRef(m));
  }
  return copy;
}

Object* FindBaseObject(Object* object) {
  while (object && object->SuperClassID() == GEN_DERIVOB_CLASS_ID)
    object = static_cast<DerivedObject*>(object)->GetObjRef();
  return object;
}

TriObject* CollapseStack(Object* object, TimeValue t) {
  if (!object) return nullptr;
  const EvaluatedMesh shown = MeshOf(object->Eval(t).obj, t);
  if (!shown) return nullptr;
  auto* made = new TriObject;
  made->mesh = *shown.mesh;
  return made;
}

namespace host {

void RegisterModifierClasses(ClassRegistry& classes) {
  static BuiltinClass<XFormModifier> xform(OSM_CLASS_ID, XFormModifier::kClassID, L"XForm");
  classes.Add(&xform);
}

}  // namespace host
