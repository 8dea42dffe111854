#include "host/scene/animatedmesh.h"

#include "host/core/builtinclass.h"
#include "host/scene/node.h"

AnimatedMesh::AnimatedMesh() : motion_(std::make_shared<MeshMotion>()) {}

AnimatedMesh::~AnimatedMesh() { AnimatedMesh::DeleteAllRefsFromMe(); }

void AnimatedMesh::SetMotion(std::shared_ptr<const MeshMotion> motion, host::Track weights) {
  motion_ = std::move(motion);
  weights_ = std::move(weights);
  shownPose_.reset();
  NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE);
}

void AnimatedMesh::SetWeights(const host::Track& weights) {
  RecordValue(this, &weights_);
  weights_ = weights;
  NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE);
}

void AnimatedMesh::SetBones(const std::vector<INode*>& bones) {
  for (int i = NumRefs(); i-- > 1;) ReplaceReference(i, nullptr);
  bones_.assign(bones.size(), nullptr);
  for (size_t i = 0; i < bones.size(); ++i) ReplaceReference(1 + int(i), bones[i]);
  NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE);
}

ReferenceTarget* AnimatedMesh::GetReference(int i) const {
  return i == 0 ? static_cast<ReferenceTarget*>(shown_) : bones_[size_t(i - 1)];
}

void AnimatedMesh::SetReference(int i, ReferenceTarget* t) {
  if (i == 0) {
    shown_ = static_cast<TriObject*>(t);
    shownPose_.reset();
  } else {
    bones_[size_t(i - 1)] = static_cast<INode*>(t);
  }
}

RefResult AnimatedMesh::NotifyRefChanged(const Interval&, ReferenceTarget* target, PartID&,
                                         RefMessage) {
  return target == shown_ ? REF_FAIL : REF_SUCCEED;
}

INode* AnimatedMesh::OwnNode() const {
  for (ReferenceTarget* d : Dependents())
    if (d->SuperClassID() == BASENODE_CLASS_ID) return static_cast<INode*>(d);
  return nullptr;
}

// A bone's object matrix is its node matrix unless its pivot was moved, which moves no skin.
std::vector<Matrix3> AnimatedMesh::BonesAt(TimeValue t, Interval& valid) const {
  std::vector<Matrix3> bones(motion_->inverseBind.size());
  if (bones.empty()) return bones;
  Matrix3 toObject;
  if (const INode* own = OwnNode()) {
    valid = Overlap(valid, own->TMValidity(t));
    toObject = own->GetObjectTM(t);
    if (!toObject.IsInvertible()) return bones;  // a flat node shows the mesh as it was bound
    toObject = Inverse(toObject);
  }
  for (size_t i = 0; i < bones.size(); ++i) {
    const INode* bone = i < bones_.size() ? bones_[i] : nullptr;
    if (!bone || !bone->InScene()) continue;
    valid = Overlap(valid, bone->TMValidity(t));
    bones[i] = motion_->inverseBind[i] * bone->GetObjectTM(t) * toObject;
  }
  return bones;
}

AnimatedMesh::Pose AnimatedMesh::PoseAt(TimeValue t, Interval& valid) const {
  Pose pose;
  if (!motion_->frames.empty()) {
    pose.frame = host::PlaceAmong(motion_->frameTimes, t);
    valid = Overlap(valid, pose.frame.valid);
  }
  pose.weights.resize(weights_.Width());
  if (!pose.weights.empty()) weights_.At(t, pose.weights.data(), valid);
  pose.bones = BonesAt(t, valid);
  return pose;
}

bool AnimatedMesh::Pose::SameShape(const Pose& o) const {
  return frame.key == o.frame.key && frame.part == o.frame.part && weights == o.weights &&
         bones == o.bones;
}

void AnimatedMesh::Shape(const Pose& pose, host::Buffer<Point3>& verts) const {
  const MeshMotion& m = *motion_;
  if (!m.frames.empty()) {
    const auto& from = m.frames[pose.frame.key];
    verts.assign(from.begin(), from.end());
    const auto part = float(pose.frame.part);
    if (part > 0)
      for (size_t v = 0; v < verts.size(); ++v)
        verts[v] = from[v] * (1 - part) + m.frames[pose.frame.key + 1][v] * part;
  } else {
    verts = m.base.verts;
  }
  for (size_t k = 0; k < m.targets.size(); ++k) {
    const auto weight = float(pose.weights[k]);
    if (weight == 0) continue;
    for (size_t v = 0; v < verts.size(); ++v) verts[v] += m.targets[k][v] * weight;
  }
  for (size_t v = 0; v < verts.size() && !pose.bones.empty(); ++v) {
    const host::VertexBones& b = m.vertexBones[v];
    Point3 sum(0, 0, 0);
    for (int k = 0; k < 4; ++k)
      if (b.weight[k] != 0) sum += (verts[v] * pose.bones[b.bone[k]]) * b.weight[k];
    verts[v] = sum;
  }
  for (size_t v = 0; v < verts.size(); ++v)
    if (!IsFinite(verts[v])) verts[v] = m.base.verts[v];
}

ObjectState AnimatedMesh::Eval(TimeValue t) {
  Interval valid = FOREVER;
  Pose pose = PoseAt(t, valid);
  if (shown_ && shownPose_ && shownPose_->SameShape(pose)) return ObjectState(shown_, valid);
  // A shape that someone else has come to hold is theirs.
  if (!shown_ || shown_->IsPinned() || shown_->Dependents().size() > 1) {
    auto* fresh = new TriObject;
    fresh->mesh = motion_->base;
    ReplaceReference(0, fresh);
  }
  Shape(pose, shown_->mesh.verts);
  shown_->mesh.InvalidateGeomCache();
  shownPose_ = std::move(pose);
  return ObjectState(shown_, valid);
}

Interval AnimatedMesh::ObjectValidity(TimeValue t) {
  Interval valid = FOREVER;
  PoseAt(t, valid);
  return valid;
}

bool AnimatedMesh::CanConvertToType(Class_ID id) {
  return id == kClassID || id == triObjectClassID || id == polyObjectClassID;
}

Object* AnimatedMesh::ConvertToType(TimeValue t, Class_ID id) {
  if (id == kClassID) return this;
  if (!CanConvertToType(id)) return nullptr;
  TriObject* made = id == triObjectClassID ? new TriObject : new PolyObject;
  made->mesh = static_cast<TriObject*>(Eval(t).obj)->mesh;
  return made;
}

void AnimatedMesh::GetLocalBoundBox(TimeValue t, INode* node, ViewExp* view, Box3& box) {
  Eval(t).obj->GetLocalBoundBox(t, node, view, box);
}

Mesh* AnimatedMesh::GetRenderMesh(TimeValue t, INode* node, ViewExp* view, bool& needDelete) {
  return static_cast<TriObject*>(Eval(t).obj)->GetRenderMesh(t, node, view, needDelete);
}

ReferenceTarget* AnimatedMesh::Clone(RemapDir& remap) {
  auto* copy = new AnimatedMesh;
  copy->motion_ = motion_;
  copy->weights_ = weights_;
  std::vector<INode*> bones = bones_;
  for (INode*& b : bones)
    if (ReferenceTarget* mapped = b ? remap.FindMapping(b) : nullptr)
      b = static_cast<INode*>(mapped);
  copy->SetBones(bones);
  return copy;
}

namespace host {

void RegisterAnimatedMeshClass(ClassRegistry& classes) {
  static BuiltinClass<AnimatedMesh> animated(GEOMOBJECT_CLASS_ID, AnimatedMesh::kClassID,
                                             L"Animated Mesh");
  classes.Add(&animated);
}

}  // namespace host
