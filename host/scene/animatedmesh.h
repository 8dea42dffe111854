#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "host/core/track.h"
#include "host/scene/triobject.h"
#include "host/scene/vertexbones.h"

/// The shapes that an animated mesh is made from. Lists have one entry a vertex of `base`.
struct MeshMotion {
  Mesh base;
  /// Whole shapes over time, straight lines between; empty: `base` stands for all times.
  std::vector<TimeValue> frameTimes;  // rising
  std::vector<std::vector<Point3>> frames;
  /// Morph targets: what full weight adds to the shape.
  std::vector<std::vector<Point3>> targets;
  /// Skin; none without bones. `inverseBind` takes the mesh to a bone, one a bone.
  std::vector<Matrix3> inverseBind;
  std::vector<host::VertexBones> vertexBones;
};

/// A triangle mesh that moves: frames, then weighted morph targets, then bones.
///
/// Bones are nodes. The skin stands in the world where the bones are, whatever the node's own
/// matrix: it is brought into the object space of the first node that shows the object. A bone
/// that has left the scene keeps the place it was bound in. A vertex that leaves the range of
/// single precision stands where `base` has it. Shapes are shared by copies and never change;
/// weights and bones may.
class AnimatedMesh : public GeomObject {
 public:
  static constexpr Class_ID kClassID{0x13, 0};
  AnimatedMesh();
  ~AnimatedMesh() override;
  /// `weights` is as wide as there are targets.
  void SetMotion(std::shared_ptr<const MeshMotion> motion, host::Track weights);
  const MeshMotion& Motion() const { return *motion_; }
  const host::Track& Weights() const { return weights_; }
  void SetWeights(const host::Track& weights);
  /// One node a bone, null for none.
  void SetBones(const std::vector<INode*>& bones);

  Class_ID ClassID() const override { return kClassID; }
  void GetClassName(WStr& name) const override { name = L"Animated Mesh"; }
  const wchar_t* GetObjectName() override { return L"Mesh"; }
  /// A TriObject, good until the object is evaluated at another time.
  ObjectState Eval(TimeValue t) override;
  Interval ObjectValidity(TimeValue t) override;
  bool CanConvertToType(Class_ID id) override;
  Object* ConvertToType(TimeValue t, Class_ID id) override;
  void GetLocalBoundBox(TimeValue t, INode* node, ViewExp* view, Box3& box) override;
  Mesh* GetRenderMesh(TimeValue t, INode* node, ViewExp* view, bool& needDelete) override;
  ReferenceTarget* Clone(RemapDir& remap) override;

  // Reference 0 is the shape that was evaluated last, the others are the bones.
  int NumRefs() const override { return 1 + int(bones_.size()); }
  ReferenceTarget* GetReference(int i) const override;
  RefResult NotifyRefChanged(const Interval& changeInt, ReferenceTarget* target, PartID& partID,
                             RefMessage message) override;

 protected:
  void SetReference(int i, ReferenceTarget* t) override;

 private:
  /// All that a shape depends on, at one time.
  struct Pose {
    host::KeyPlace frame{};
    std::vector<double> weights;
    std::vector<Matrix3> bones;  // from the bound mesh to object space
    bool SameShape(const Pose& o) const;
  };
  Pose PoseAt(TimeValue t, Interval& valid) const;
  std::vector<Matrix3> BonesAt(TimeValue t, Interval& valid) const;
  void Shape(const Pose& pose, host::Buffer<Point3>& verts) const;
  INode* OwnNode() const;

  std::shared_ptr<const MeshMotion> motion_;
  host::Track weights_{{}};
  std::vector<INode*> bones_;
  TriObject* shown_ = nullptr;
  std::optional<Pose> shownPose_;
};

namespace host {
void RegisterAnimatedMeshClass(ClassRegistry& classes);
}  // namespace host
