#pragma once

#include <vector>

#include "host/scene/triobject.h"

inline constexpr SClass_ID OSM_CLASS_ID = 0x810;

/// Changes the mesh of the object below it in a stack.
class Modifier : public ReferenceTarget {
 public:
  SClass_ID SuperClassID() const override { return OSM_CLASS_ID; }
  virtual const wchar_t* GetObjectName() = 0;
  virtual void ModifyMesh(TimeValue t, Mesh& mesh) const = 0;
  /// How long its effect stays what it is at t.
  virtual Interval LocalValidity(TimeValue) const { return FOREVER; }
};

/// "XForm": a matrix worked into the vertices. A matrix that mirrors leaves the order of a face's
/// corners as it is.
class XFormModifier : public Modifier {
 public:
  static constexpr Class_ID kClassID{0x25215824, 0};
  Class_ID ClassID() const override { return kClassID; }
  void GetClassName(WStr& name) const override { name = L"XForm"; }
  const wchar_t* GetObjectName() override { return L"XForm"; }
  void ModifyMesh(TimeValue t, Mesh& mesh) const override;
  ReferenceTarget* Clone(RemapDir& remap) override;

  const Matrix3& GetMatrix() const { return matrix_; }
  /// Recorded for undo.
  void SetMatrix(const Matrix3& matrix);

 private:
  Matrix3 matrix_;
};

/// An object under a stack of modifiers: it shows the base object's mesh as they leave it, from the
/// first to the last. Objects that hold no mesh pass through.
class DerivedObject : public Object {
 public:
  static constexpr Class_ID kClassID{0x29263a68, 0x405f22f5};
  explicit DerivedObject(Object* base);
  ~DerivedObject() override;

  int NumModifiers() const { return int(modifiers_.size()); }
  Modifier* GetModifier(int i) const { return modifiers_[size_t(i)]; }
  /// On top of the stack. Recorded for undo.
  void AddModifier(Modifier* modifier);
  Object* GetObjRef() const { return base_; }

  SClass_ID SuperClassID() const override { return GEN_DERIVOB_CLASS_ID; }
  Class_ID ClassID() const override { return kClassID; }
  void GetClassName(WStr& name) const override { name = L"Derived Object"; }
  const wchar_t* GetObjectName() override { return base_ ? base_->GetObjectName() : L""; }
  /// A TriObject, good until the object is evaluated at another time.
  ObjectState Eval(TimeValue t) override;
  Interval ObjectValidity(TimeValue t) override { return Eval(t).valid; }
  bool CanConvertToType(Class_ID id) override;
  Object* ConvertToType(TimeValue t, Class_ID id) override;
  void GetLocalBoundBox(TimeValue t, INode* node, ViewExp* view, Box3& box) override;
  ReferenceTarget* Clone(RemapDir& remap) override;

  // Reference 0 is the base object, 1 the mesh that was made last, the others are the modifiers.
  static constexpr int kBaseRef = 0, kShownRef = 1, kFirstModifierRef = 2;
  int NumRefs() const override { return kFirstModifierRef + NumModifiers(); }
  ReferenceTarget* GetReference(int i) const override;
  RefResult NotifyRefChanged(const Interval& changeInt, ReferenceTarget* target, PartID& partID,
                             RefMessage message) override;

 protected:
  void SetReference(int i, ReferenceTarget* t) override;

 private:
  friend class ModifierRecord;
  Object* base_ = nullptr;
  std::vector<Modifier*> modifiers_;
  TriObject* shown_ = nullptr;
  std::uint64_t shownBase_ = 0;  // stamp of the base mesh that it was made from; 0 for none
  Interval shownValid_ = NEVER;
};

/// The object at the bottom of a stack, or the object itself.
Object* FindBaseObject(Object* object);

/// What a stack shows at t, as one mesh object without modifiers and with nothing shared, so that
/// changing it changes no other node. Null for an object that holds no mesh.
TriObject* CollapseStack(Object* object, TimeValue t);

namespace host {
class ClassRegistry;
void RegisterModifierClasses(ClassRegistry& classes);
}  // namespace host
