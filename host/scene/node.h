#pragma once

#include <vector>

#include "host/core/control.h"
#include "host/core/hold.h"
#include "host/math/color.h"
#include "host/math/matrix3.h"
#include "host/scene/layer.h"
#include "host/scene/mtl.h"
#include "host/scene/object.h"

class Scene;

namespace host {
struct SceneAccess;
}

/// A place in the scene: a name, a matrix under its parent, and the object that stands there.
///
/// The node matrix is that of the pivot, in world space; the object matrix is the object offset
/// followed by the node matrix. Setters are recorded for undo while a step is open.
class INode : public ReferenceTarget {
 public:
  explicit INode(const WStr& name) : name_(name) {}
  ~INode() override;
  SClass_ID SuperClassID() const override { return BASENODE_CLASS_ID; }

  const WStr& GetName() const { return name_; }
  void SetName(const WStr& name);

  Matrix3 GetNodeTM(TimeValue t) const;
  /// The matrix at t becomes `tm`. The motion of a node with keys is moved along as a whole, its
  /// keys stay where they are in time.
  void SetNodeTM(TimeValue t, const Matrix3& tm);
  /// How long GetNodeTM and GetObjectTM stay what they are at t.
  Interval TMValidity(TimeValue t) const;
  /// What moves the node under its parent; made for a node that has none.
  TransformControl* GetTMController();
  /// Null leaves the matrix of time 0 for good.
  void SetTMController(TransformControl* control);
  Matrix3 GetObjectTM(TimeValue t) const;
  const Matrix3& GetObjectOffset() const { return offset_; }
  void SetObjectOffset(const Matrix3& offset);
  Point3 GetObjOffsetPos() const { return offset_.GetTrans(); }
  void SetObjOffsetPos(const Point3& p);

  /// The pivot goes to the centre of the object's tight box in the world; the object and the
  /// children stay.
  void CenterPivot(TimeValue t, bool moveObject = false);
  /// The pivot goes to the object's own frame; the object and the children stay.
  void ResetPivot(TimeValue t);
  /// Moves by `delta`, given along the axes of `axis` (its rotation and scale). With pivotOnly the
  /// object stays. Children stay unless affectChildren. The origin takes no part in a move.
  void Move(TimeValue t, const Matrix3& axis, const Point3& delta, bool localOrigin,
            bool affectChildren, bool pivotOnly);

  Object* GetObjectRef() const { return object_; }
  void SetObjectRef(Object* object);
  /// What the node shows at t. Without evalHidden a hidden node shows nothing.
  ObjectState EvalWorldState(TimeValue t, bool evalHidden = true) const;

  Mtl* GetMtl() const { return material_; }
  void SetMtl(Mtl* material);
  ColorRef GetWireColor() const { return wireColor_; }
  void SetWireColor(ColorRef color);
  bool IsHidden() const { return hidden_; }
  void Hide(bool on);
  bool Renderable() const { return renderable_; }
  void SetRenderable(bool on);
  bool Selected() const { return selectedAs_ > 0; }
  ILayer* GetLayer() const { return layer_; }
  void SetLayer(ILayer* layer);

  int NumberOfChildren() const { return int(children_.size()); }
  INode* GetChildNode(int i) const { return children_[size_t(i)]; }
  INode* GetParentNode() const { return parent_; }
  bool IsRootNode() const { return isRoot_; }
  /// Takes a node under this one, at the end; keepPos keeps its world matrix of the
  /// present time.
  void AttachChild(INode* child, bool keepPos = true);
  /// True if the node hangs under a root.
  bool InScene() const;
  /// The order of a walk that meets parents before their children. Both in one tree.
  bool ComesBefore(const INode* other) const;

  static constexpr int kObjectRef = 0, kMtlRef = 1, kTMRef = 2, kLayerRef = 6;
  int NumRefs() const override { return 7; }
  ReferenceTarget* GetReference(int i) const override;
  RefResult NotifyRefChanged(const Interval& changeInt, ReferenceTarget* target, PartID& partID,
                             RefMessage message) override;
  void DeleteAllRefsFromMe() override;
  void ForgetTarget(ReferenceTarget* target) override;

 protected:
  void SetReference(int i, ReferenceTarget* t) override;

 private:
  friend class Scene;
  friend class NodeLinkRecord;
  friend class NameRecord;
  friend struct host::SceneAccess;
  Scene* HomeScene() const;
  void Rename(const WStr& name);
  std::uint64_t RankAt(size_t at);
  /// That it moved with a parent, by the telling that runs.
  enum class Told : std::uint8_t { No, InTurn, Now };
  void ChildChanged(INode* child);
  void InsertChild(INode* child, size_t at);
  size_t RemoveChild(INode* child);
  bool IsKeyed() const { return control_ && control_->IsKeyed(); }
  Matrix3 LocalTM(TimeValue t) const;
  void SetPivot(TimeValue t, const Matrix3& pivot);
  struct ChildPlace {
    Pin<INode> child;
    Matrix3 world;
  };
  std::vector<ChildPlace> ChildPlaces(TimeValue t) const;
  void MoveChildrenBack(TimeValue t, const std::vector<ChildPlace>& before);
  void Changed() { NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE); }

  WStr name_;
  Matrix3 local_;  // under the parent's node matrix, for a node without keys
  TransformControl* control_ = nullptr;
  Matrix3 offset_;  // object offset
  Object* object_ = nullptr;
  Mtl* material_ = nullptr;
  ILayer* layer_ = nullptr;
  ColorRef wireColor_ = 0x808080;
  bool hidden_ = false;
  bool renderable_ = true;
  bool isRoot_ = false;
  Told told_ = Told::No;
  unsigned selectedAs_ = 0;  // rises in the order of selection; 0 for a node that isn't selected
  INode* parent_ = nullptr;
  std::vector<INode*> children_;
  std::uint64_t rank_ = 0;  // rises among the children of one parent
  Scene* scene_ = nullptr;  // that a root is the root of
};

/// Undo record of a node that came under a parent or left it.
class NodeLinkRecord : public RestoreObj {
 public:
  enum class Kind { Attached, Detached };
  NodeLinkRecord(INode* node, INode* parent, size_t at, Kind kind)
      : node_(node), parent_(parent), at_(at), kind_(kind) {}
  void Restore() override { kind_ == Kind::Attached ? Detach() : Attach(); }
  void Redo() override { kind_ == Kind::Attached ? Attach() : Detach(); }
  void Settled() override;
  ReferenceTarget* Target() const override { return node_.get(); }
  Kind GetKind() const { return kind_; }

 private:
  void Attach();
  void Detach();
  Pin<INode> node_;
  Pin<INode> parent_;
  size_t at_;
  Kind kind_;
  bool detached_ = false;  // by the restoring that runs
};
