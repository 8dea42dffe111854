#include "sowfield/display/viewerinstances.h"

#include <vector>

#include "host/scene/modifier.h"
#include "host/scene/node.h"
#include "sowfield/model/classids.h"
#include "sowfield/model/invariants.h"
#include "sowfield/model/palette.h"
#include "sowfield/model/placementbatch.h"
#include "sowfield/sources/sourceframe.h"
#include "sowfield/sources/typemesh.h"

namespace sowfield {
namespace {

class ViewerInstances : public InstanceSet {
 public:
  ViewerInstances(const Distribution& d, const INode& own, TimeValue t)
      : d_(d),
        block_(*d.block),
        time_(t),
        toObject_(Inverse(own.GetNodeTM(t))),
        evaluator_(block_, t),
        batch_(evaluator_) {
    for (const TypeRef& type : TypeWalk(block_)) {
      types_.push_back(type);
      nodes_.push_back(d.SourceNode(type));
    }
  }

  Matrix3 ToObject() const override { return toObject_; }
  size_t GroupCount() const override { return types_.size(); }
  std::span<const int> Groups() const override { return evaluator_.Types(); }
  void Matrices(size_t first, size_t count, Matrix3* out) const override {
    batch_.Matrices(first, count, out);
  }

  Group GetGroup(size_t type) const override {
    Group group{block_.Strings(Geo_Names)[type], SourceMatrix(nodes_[type], time_)};
    if (const INode* node = nodes_[type]) {
      group.material = node->GetMtl();
      group.wireColor = node->GetWireColor();
    } else {
      const int material = block_.Ints(Proxy_MtlIndex)[size_t(types_[type].file)];
      if (material >= 0) group.material = block_.Mtls(Proxy_Mtls)[size_t(material)];
      group.wireColor = TypeColor(int(type));
    }
    return group;
  }

  const Mesh* GetMesh(size_t type) override {
    // The mesh of another Sowfield object is what views show of it at the moment.
    const INode* node = nodes_[type];
    const Object* base = node ? FindBaseObject(node->GetObjectRef()) : nullptr;
    if (types_[type].HasNode() && (!base || base->ClassID() == kSowfieldClassID)) return nullptr;
    shown_ = MeshOfType(d_, types_[type], time_);
    return shown_.Get();
  }

 private:
  const Distribution& d_;
  const IParamBlock2& block_;
  TimeValue time_;
  Matrix3 toObject_;
  PlacementEvaluator evaluator_;
  PlacementBatch batch_;
  std::vector<TypeRef> types_;
  std::vector<INode*> nodes_;  // null for a type from a file
  TypeMesh shown_;             // what was asked for last
};

}  // namespace

std::unique_ptr<InstanceSet> MakeViewerInstances(Distribution& d, TimeValue t) {
  const INode* own = d.OwnNode();
  if (!own || !d.block || d.PlacementCount() == 0 || !FirstBreach(*d.block).empty()) return nullptr;
  return std::make_unique<ViewerInstances>(d, *own, t);
}

}  // namespace sowfield
