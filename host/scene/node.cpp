#include "host/scene/node.h"

#include <algorithm>

#include "host/core/notify.h"
#include "host/core/session.h"
#include "host/scene/scene.h"
#include "host/scene/triobject.h"

INode::~INode() {
  if (host::CoreSession* session = host::CoreSession::InForceOrNull())
    session->notifications.Broadcast({NOTIFY_NODE_DESTROYED, 0, this});
  if (Scene* scene = parent_ ? HomeScene() : nullptr) scene->NodeWent(this);
  parent_ = nullptr;
  INode::DeleteAllRefsFromMe();
}

/// Undo record of a node's name.
class NameRecord : public RestoreObj {
 public:
  explicit NameRecord(INode* node) : node_(node), other_(node->GetName()) {}
  void Restore() override { Exchange(); }
  void Redo() override { Exchange(); }
  ReferenceTarget* Target() const override { return node_.get(); }

 private:
  void Exchange() {
    const WStr present = node_->GetName();
    node_->Rename(other_);
    other_ = present;
  }
  Pin<INode> node_;
  WStr other_;
};

void INode::SetName(const WStr& name) {
  if (theHold.Holding()) theHold->Put(std::make_unique<NameRecord>(this));
  Rename(name);
  Changed();
}

void INode::Rename(const WStr& name) {
  Scene* scene = HomeScene();
  if (scene) scene->NameGoes(this);
  name_ = name;
  if (scene) scene->NameComes(this);
}

Matrix3 INode::LocalTM(TimeValue t) const {
  if (!IsKeyed()) return local_;
  Interval valid = FOREVER;
  return control_->GetValue(t, valid);
}

Matrix3 INode::GetNodeTM(TimeValue t) const {
  if (!parent_ || parent_->isRoot_) return LocalTM(t);
  return LocalTM(t) * parent_->GetNodeTM(t);
}

void INode::SetNodeTM(TimeValue t, const Matrix3& tm) {
  const Matrix3 local = !parent_ || parent_->isRoot_ ? tm : tm * Inverse(parent_->GetNodeTM(t));
  if (IsKeyed()) return control_->SetValue(t, local);  // whose message comes by here
  RecordValue(this, &local_);
  local_ = local;
  Changed();
}

Interval INode::TMValidity(TimeValue t) const {
  Interval valid = FOREVER;
  for (const INode* n = this; n; n = n->parent_)
    if (n->control_) n->control_->GetValue(t, valid);
  return valid;
}

TransformControl* INode::GetTMController() {
  if (!control_) {
    RecordReference(this, kTMRef);
    ReplaceReference(kTMRef, new TransformControl);
  }
  if (!IsKeyed()) control_->Follow(local_);
  return control_;
}

void INode::SetTMController(TransformControl* control) {
  RecordValue(this, &local_);
  Interval valid = FOREVER;
  local_ = control ? control->GetValue(0, valid) : LocalTM(0);
  RecordReference(this, kTMRef);
  ReplaceReference(kTMRef, control);
  Changed();
}

Matrix3 INode::GetObjectTM(TimeValue t) const {
  const Matrix3 node = GetNodeTM(t);
  return offset_.IsIdentity() ? node : offset_ * node;
}

void INode::SetObjectOffset(const Matrix3& offset) {
  RecordValue(this, &offset_);
  offset_ = offset;
  Changed();
}

void INode::SetObjOffsetPos(const Point3& p) {
  Matrix3 offset = offset_;
  offset.SetTrans(p);
  SetObjectOffset(offset);
}

std::vector<INode::ChildPlace> INode::ChildPlaces(TimeValue t) const {
  std::vector<ChildPlace> places;
  for (INode* c : children_) places.push_back({Pin<INode>(c), c->GetNodeTM(t)});
  return places;
}

void INode::MoveChildrenBack(TimeValue t, const std::vector<ChildPlace>& before) {
  for (const ChildPlace& p : before)
    if (p.child->parent_ == this) p.child->SetNodeTM(t, p.world);  // a handler may take one away
}

// The object keeps its world matrix, so the offset takes up what the pivot moved. A node matrix
// that flattens space has no such offset, and its pivot stays.
void INode::SetPivot(TimeValue t, const Matrix3& pivot) {
  if (!pivot.IsInvertible()) return;
  const std::vector<ChildPlace> children = ChildPlaces(t);
  const Matrix3 node = GetNodeTM(t);
  Matrix3 offset = offset_;
  const bool onlyMoved = node.GetRow(0) == pivot.GetRow(0) && node.GetRow(1) == pivot.GetRow(1) &&
                         node.GetRow(2) == pivot.GetRow(2);
  if (onlyMoved) {
    const Point3 moved = pivot.GetTrans() - node.GetTrans();
    offset.SetTrans(offset.GetTrans() - VectorTransform(moved, Inverse(pivot)));
  } else {
    offset = GetObjectTM(t) * Inverse(pivot);
  }
  RecordValue(this, &offset_);
  offset_ = offset;
  if (IsKeyed()) {
    // A moving pivot takes the same place in the object at all times.
    control_->Precede(
        onlyMoved ? TransMatrix(VectorTransform(pivot.GetTrans() - node.GetTrans(), Inverse(node)))
                  : pivot * Inverse(node));
  } else {
    RecordValue(this, &local_);
    local_ = !parent_ || parent_->isRoot_ ? pivot : pivot * Inverse(parent_->GetNodeTM(t));
  }
  MoveChildrenBack(t, children);
  Changed();
}

void INode::CenterPivot(TimeValue t, bool moveObject) {
  const Box3 box = TightWorldBox(this, t);
  if (box.IsEmpty()) return;
  const Matrix3 node = GetNodeTM(t);
  if (moveObject) {
    const Point3 back = node.GetTrans() - box.Center();
    SetObjOffsetPos(offset_.GetTrans() + VectorTransform(back, Inverse(node)));
    return;
  }
  Matrix3 pivot = node;
  pivot.SetTrans(box.Center());
  SetPivot(t, pivot);
}

void INode::ResetPivot(TimeValue t) { SetPivot(t, GetObjectTM(t)); }

void INode::Move(TimeValue t, const Matrix3& axis, const Point3& delta, bool, bool affectChildren,
                 bool pivotOnly) {
  Matrix3 moved = GetNodeTM(t);
  moved.Translate(VectorTransform(delta, axis));
  if (pivotOnly) {
    SetPivot(t, moved);
    return;
  }
  const std::vector<ChildPlace> children = ChildPlaces(t);
  SetNodeTM(t, moved);
  if (!affectChildren) MoveChildrenBack(t, children);
}

void INode::SetObjectRef(Object* object) {
  RecordReference(this, kObjectRef);
  ReplaceReference(kObjectRef, object);
  Changed();
}

ObjectState INode::EvalWorldState(TimeValue t, bool evalHidden) const {
  if (!object_ || (hidden_ && !evalHidden)) return ObjectState(nullptr);
  return object_->Eval(t);
}

void INode::SetMtl(Mtl* material) {
  RecordReference(this, kMtlRef);
  ReplaceReference(kMtlRef, material);
  Changed();
}

void INode::SetLayer(ILayer* layer) {
  RecordReference(this, kLayerRef);
  ReplaceReference(kLayerRef, layer);
}

void INode::SetWireColor(ColorRef color) {
  RecordValue(this, &wireColor_);
  wireColor_ = color;
}

void INode::Hide(bool on) {
  RecordValue(this, &hidden_);
  hidden_ = on;
  Changed();
}

void INode::SetRenderable(bool on) {
  RecordValue(this, &renderable_);
  renderable_ = on;
}

ReferenceTarget* INode::GetReference(int i) const {
  switch (i) {
    case kObjectRef:
      return object_;
    case kMtlRef:
      return material_;
    case kTMRef:
      return control_;
    case kLayerRef:
      return layer_;
    default:
      return nullptr;
  }
}

void INode::SetReference(int i, ReferenceTarget* t) {
  switch (i) {
    case kObjectRef:
      object_ = static_cast<Object*>(t);
      break;
    case kMtlRef:
      material_ = static_cast<Mtl*>(t);
      break;
    case kTMRef:
      control_ = static_cast<TransformControl*>(t);
      break;
    case kLayerRef:
      layer_ = static_cast<ILayer*>(t);
      break;
    default:
      break;
  }
}

RefResult INode::NotifyRefChanged(const Interval&, ReferenceTarget* target, PartID&, RefMessage) {
  // Without keys the node's own matrix holds. Undo brings that one back by itself.
  if (target == control_ && target && !IsKeyed() && theHold.RestoreOrRedoing() == 0) {
    RecordValue(this, &local_);
    Interval valid = FOREVER;
    local_ = control_->GetValue(0, valid);
  }
  if (target && target->SuperClassID() == BASENODE_CLASS_ID) {
    if (auto* child = static_cast<INode*>(target); child->parent_ == this) ChildChanged(child);
    return REF_FAIL;
  }
  // A child's change is no change of its parent, nor is a layer's.
  return target == object_ || target == material_ || target == control_ ? REF_SUCCEED : REF_FAIL;
}

// Who stands under a node moves with it, and so has changed for whoever looks at that one. Those
// below are told one after the other, not in depth, and once where references run in a ring.
// What a telling that runs has marked is left to it.
void INode::ChildChanged(INode* child) {
  if (child->told_ == Told::Now) return;
  Scene* scene = HomeScene();
  if (scene) scene->NodeChanged(child);
  if (child->children_.empty() || child->told_ != Told::No) return;
  std::vector<Pin<INode>> all = {Pin<INode>(child)};
  for (size_t i = 0; i < all.size(); ++i)
    for (INode* n : all[i]->children_)
      if (n->told_ == Told::No) all.emplace_back(n);
  struct Marks {
    explicit Marks(const std::vector<Pin<INode>>& n) : nodes(n) { Set(Told::InTurn); }
    ~Marks() { Set(Told::No); }
    void Set(Told told) const {
      for (const Pin<INode>& n : nodes) n->told_ = told;
    }
    const std::vector<Pin<INode>>& nodes;
  } const marks(all);
  for (size_t i = 1; i < all.size(); ++i) {
    INode& below = *all[i].get();
    if (scene) scene->NodeChanged(&below);
    if (below.Dependents().size() == 1) continue;  // its parent alone
    below.told_ = Told::Now;
    below.Changed();
    below.told_ = Told::InTurn;
  }
}

Scene* INode::HomeScene() const {
  const INode* n = this;
  while (n->parent_) n = n->parent_;
  return n->scene_;
}

// A number between those of the neighbours; where there is none left, all get new ones.
std::uint64_t INode::RankAt(size_t at) {
  constexpr std::uint64_t kApart = 1 << 20;
  const std::uint64_t before = at > 0 ? children_[at - 1]->rank_ : 0;
  if (at == children_.size()) return before + kApart;
  const std::uint64_t behind = children_[at]->rank_;
  if (behind - before > 1) return before + (behind - before) / 2;
  for (size_t i = 0; i < children_.size(); ++i) children_[i]->rank_ = (i + 1 + (i >= at)) * kApart;
  return (at + 1) * kApart;
}

bool INode::ComesBefore(const INode* other) const {
  const auto depth = [](const INode* n) {
    int steps = 0;
    for (; n->parent_; n = n->parent_) ++steps;
    return steps;
  };
  const INode *a = this, *b = other;
  int da = depth(a), db = depth(b);
  const bool deeper = da > db;
  for (; da > db; --da) a = a->parent_;
  for (; db > da; --db) b = b->parent_;
  if (a == b) return this != other && !deeper;  // one stands under the other
  for (; a->parent_ != b->parent_; a = a->parent_, b = b->parent_) continue;
  return a->rank_ < b->rank_;
}

void INode::InsertChild(INode* child, size_t at) {
  at = std::min(at, children_.size());
  child->rank_ = RankAt(at);
  children_.insert(children_.begin() + long(at), child);
  child->parent_ = this;
  ReferTo(child);
  if (Scene* scene = HomeScene()) scene->NodeCame(child);
}

size_t INode::RemoveChild(INode* child) {
  const auto found = std::find(children_.rbegin(), children_.rend(), child);
  if (found == children_.rend()) return 0;
  const size_t at = size_t(std::next(found).base() - children_.begin());
  children_.erase(std::next(found).base());
  if (child->parent_ == this)
    if (Scene* scene = HomeScene()) scene->NodeWent(child);
  child->parent_ = nullptr;
  LetGo(child);
  return at;
}

void INode::AttachChild(INode* child, bool keepPos) {
  const Pin<INode> alive(child);
  const TimeValue now = keepPos ? host::CoreSession::InForce().time : 0;
  const Matrix3 world = child->GetNodeTM(now);
  if (INode* old = child->parent_) {
    const size_t at = old->RemoveChild(child);
    theHold->Put(std::make_unique<NodeLinkRecord>(child, old, at, NodeLinkRecord::Kind::Detached));
  }
  InsertChild(child, children_.size());
  theHold->Put(std::make_unique<NodeLinkRecord>(child, this, children_.size() - 1,
                                                NodeLinkRecord::Kind::Attached));
  if (keepPos) child->SetNodeTM(now, world);
}

bool INode::InScene() const {
  const INode* n = this;
  while (n->parent_) n = n->parent_;
  return n->isRoot_;
}

void INode::DeleteAllRefsFromMe() {
  while (!children_.empty()) RemoveChild(children_.back());
  ReferenceTarget::DeleteAllRefsFromMe();
}

void INode::ForgetTarget(ReferenceTarget* target) {
  const auto child = std::find(children_.begin(), children_.end(), target);
  if (child != children_.end()) RemoveChild(*child);
  ReferenceTarget::ForgetTarget(target);
}

void NodeLinkRecord::Attach() { parent_->InsertChild(node_.get(), at_); }

void NodeLinkRecord::Detach() {
  at_ = parent_->RemoveChild(node_.get());
  detached_ = true;
}

// A node that only changes its parent is out of the scene for a moment, and hasn't left it.
void NodeLinkRecord::Settled() {
  if (!std::exchange(detached_, false) || node_->InScene()) return;
  node_->selectedAs_ = 0;
  BroadcastNotification({NOTIFY_NODE_LEFT_SCENE, 0, node_.get()});
}

ReferenceTarget* TargetOf(INode* node) { return node; }
void FromTarget(ReferenceTarget* target, INode*& node) { node = static_cast<INode*>(target); }
