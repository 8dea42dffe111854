#include "host/exchange/sceneplan.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <filesystem>
#include <map>
#include <tuple>
#include <unordered_map>
#include <utility>

#include "host/exchange/meshpool.h"
#include "host/exchange/viewermesh.h"
#include "host/interface.h"
#include "host/math/elementary.h"
#include "host/scene/animatedmesh.h"
#include "host/scene/camera.h"
#include "host/scene/instancesource.h"
#include "host/scene/modifier.h"
#include "host/scene/node.h"
#include "host/scene/primitives.h"
#include "host/scene/proxyobjects.h"
#include "host/scene/shape.h"
#include "host/scene/triobject.h"

namespace host {

namespace {

constexpr int kNone = -1;  // of indices into the plan

bool IsFiniteMatrix(const Matrix3& m) {
  return IsFinite(m.GetRow(0)) && IsFinite(m.GetRow(1)) && IsFinite(m.GetRow(2)) &&
         IsFinite(m.GetRow(3));
}

// The nearest matrix that glTF can say, and whether it is the same within rounding.
struct Nearest {
  TransformParts parts{{1, 1, 1}, {0, 0, 0, 1}, {0, 0, 0}};
  Matrix3 matrix;
  bool same = false;
};

Nearest NearestOf(const Matrix3& m) {
  constexpr float kRounding = 1e-5f;  // of the way to a quaternion and back
  Nearest n;
  if (!IsFiniteMatrix(m)) return n;
  n.parts.position = m.GetTrans();
  if (m.IsInvertible()) n.parts = PartsOf(m);
  n.matrix = MatrixOf(n.parts);
  float largest = 0, error = 0;
  for (int i = 0; i < 3; ++i) {
    largest = std::max(largest, Length(m.GetRow(i)));
    error = std::max(error, Length(m.GetRow(i) - n.matrix.GetRow(i)));
  }
  n.same = m.IsInvertible() && error <= kRounding * largest;
  return n;
}

// Keys, or the value without any. What isn't finite can't move in a viewer.
bool IsFinite(const Track& track) {
  const auto finite = [](float v) { return std::isfinite(v); };
  const std::vector<float>& keys = track.KeyValues();
  std::vector<double> rest(track.Width());
  Interval valid = FOREVER;
  track.At(0, rest.data(), valid);
  return std::all_of(keys.begin(), keys.end(), finite) &&
         std::all_of(rest.begin(), rest.end(), [](double v) { return std::isfinite(float(v)); });
}

INode* BoneOf(const AnimatedMesh& animated, size_t i) {
  const int reference = 1 + int(i);
  return reference < animated.NumRefs() ? static_cast<INode*>(animated.GetReference(reference))
                                        : nullptr;
}

// What moves the vertices of a mesh; null for what doesn't.
struct Motion {
  const AnimatedMesh* mesh = nullptr;
  const std::vector<VertexBones>* bones = nullptr;  // one a vertex
};

// Whether the mesh of an object is what the scene holds. A plug-in's own one is what it shows at
// the moment.
bool IsPartOfScene(const Object& base) {
  static constexpr Class_ID kOwn[] = {
      triObjectClassID,       polyObjectClassID,     EditableMesh::kClassID, BoxObject::kClassID,
      SphereObject::kClassID, PlaneObject::kClassID, AnimatedMesh::kClassID};
  return base.SuperClassID() == GEOMOBJECT_CLASS_ID &&
         (std::find(std::begin(kOwn), std::end(kOwn), base.ClassID()) != std::end(kOwn) ||
          dynamic_cast<const ProxyObject*>(&base));
}

// The colour and the picture as numbers: a NaN is like itself.
using MtlKey = std::tuple<std::string, std::array<std::uint32_t, 3>, int>;

MtlKey KeyOf(const PlannedMtl& mtl) {
  const auto bits = [](float v) { return std::bit_cast<std::uint32_t>(v); };
  return {mtl.name, {bits(mtl.diffuse.r), bits(mtl.diffuse.g), bits(mtl.diffuse.b)}, mtl.image};
}

class ScenePlanner {
 public:
  explicit ScenePlanner(Interface& ip) {
    plan_.name = "Sowfield scene";
    const double unit = MetresPer(ip.MasterUnitType()) * double(ip.MasterUnitScale());
    if (std::isfinite(unit) && unit > 0) plan_.metres = unit;
    places_[ip.GetRootNode()] = {kNone, Matrix3()};
  }

  ExportPlan Take(const std::vector<INode*>& nodes) {
    for (INode* n : nodes) AddNode(*n);
    for (INode* n : skinned_) AddSkinned(*n);
    return std::move(plan_);
  }

 private:
  struct Place {
    int index;      // of the planned node that children hang on
    Matrix3 world;  // of that node, at time 0
  };

  // How faces look: by the material, or in the wire colour where there is none.
  struct Look {
    const Mtl* mtl;
    ColorRef wire;
  };
  static Look LookOf(const INode& node) { return {node.GetMtl(), node.GetWireColor()}; }

  // What all nodes that show an object get, one a list of instances.
  struct InstanceNodes {
    Matrix3 toObject;
    std::vector<ExportNode> nodes;
  };

  int Child(int parent, ExportNode node) {
    node.parent = parent;
    plan_.nodes.push_back(std::move(node));
    return int(plan_.nodes.size()) - 1;
  }
  int Child(int parent, const TransformParts& place) {
    ExportNode node;
    node.place = place;
    return Child(parent, std::move(node));
  }
  ExportNode& At(int index) { return plan_.nodes[size_t(index)]; }

  void AddNode(INode& node) {
    const Place above = places_.at(node.GetParentNode());
    ExportNode value;
    value.name = ToUtf8(node.GetName());
    Place place;
    const auto* control = dynamic_cast<TransformControl*>(node.GetReference(INode::kTMRef));
    if (!control || !AddMoving(*control, above, value, place)) {
      const Matrix3 world = node.GetNodeTM(0);
      const Nearest n = NearestOf(world * Inverse(above.world));
      value.place = n.parts;
      place.index = Child(above.index, std::move(value));
      place.world = n.same ? world : n.matrix * above.world;
    }
    places_[&node] = place;
    AddObject(node, place);
  }

  // What moves: the constant behind the keys is a node above, the one before them a node below.
  bool AddMoving(const TransformControl& control, const Place& above, ExportNode& value,
                 Place& place) {
    if (!control.IsKeyed()) return false;
    const MotionTracks m = control.Tracks();
    const Nearest after = NearestOf(m.after), before = NearestOf(m.before);
    if (!after.same || !before.same || !IsFinite(*m.position) || !IsFinite(*m.rotation) ||
        !IsFinite(*m.scale))
      return false;
    const int parent = m.after.IsIdentity() ? above.index : Child(above.index, after.parts);
    TransformParts& now = value.place;
    double position[3];
    Interval valid = FOREVER;
    m.scale->At(0, now.scale.data(), valid);
    m.rotation->RotationAt(0, now.rotation.data(), valid);
    m.position->At(0, position, valid);
    now.position = {float(position[0]), float(position[1]), float(position[2])};
    value.position = ViewerKeys(*m.position, false);
    value.rotation = ViewerKeys(*m.rotation, true);
    value.scale = ViewerKeys(*m.scale, false);
    place.index = Child(parent, std::move(value));
    if (!m.before.IsIdentity()) place.index = Child(place.index, before.parts);
    place.world = control.GetValue(0, valid) * above.world;
    return true;
  }

  void AddObject(INode& node, const Place& place) {
    if (node.IsHidden() || (node.GetLayer() && node.GetLayer()->IsHidden())) return;
    Object* base = FindBaseObject(node.GetObjectRef());
    if (!base) return;
    const Matrix3 rest = RestOf(node, place);
    if (const auto* camera = dynamic_cast<const CameraObject*>(base)) {
      const float fov = camera->GetFOV(0);
      if (fov > 0 && double(fov) < kPi) At(Under(place, NearestOf(rest))).fov = fov;
      return;
    }
    if (const auto* shape = dynamic_cast<const SplineShape*>(base)) {
      const Nearest n = NearestOf(rest);
      const int lines = n.same ? LinesOfNode(node, *shape) : MakeLines(node, *shape, &rest);
      if (lines != kNone) At(n.same ? Under(place, n) : place.index).mesh = lines;
      return;
    }
    if (auto* source = dynamic_cast<InstanceSource*>(base)) AddInstances(node, place, *source);
    if (!IsPartOfScene(*base)) return;
    if (SkinOf(node)) {
      skinned_.push_back(&node);  // its bones may still be to come
      return;
    }
    const Nearest n = NearestOf(rest);
    const int mesh = n.same ? MeshOfNode(node) : MeshAt0(node, &rest);
    if (mesh != kNone) Show(n.same ? Under(place, n) : place.index, mesh, MorphedOf(node));
  }

  void Show(int index, int mesh, const AnimatedMesh* morphed) {
    At(index).mesh = mesh;
    if (morphed) At(index).weights = ViewerKeys(morphed->Weights(), false);
  }

  // The animated mesh of a node if no modifier lies above it and its targets can be told.
  static const AnimatedMesh* MorphedOf(const INode& node) {
    const auto* animated = dynamic_cast<const AnimatedMesh*>(node.GetObjectRef());
    if (!animated || animated->Motion().targets.empty()) return nullptr;
    const bool skinned = !animated->Motion().inverseBind.empty();
    return skinned && !SkinOf(node) ? nullptr : animated;
  }

  // The same for bones, which stand in the world: only the first node shows the skin there.
  static const AnimatedMesh* SkinOf(const INode& node) {
    const auto* animated = dynamic_cast<const AnimatedMesh*>(node.GetObjectRef());
    if (!animated || animated->Motion().inverseBind.empty()) return nullptr;
    const auto isNode = [](const ReferenceTarget* d) {
      return d->SuperClassID() == BASENODE_CLASS_ID && static_cast<const INode*>(d)->InScene();
    };
    const auto& all = animated->Dependents();
    const auto first = std::find_if(all.begin(), all.end(), isNode);
    if (first == all.end() || *first != &node || !node.GetObjectTM(0).IsInvertible() ||
        !ViewerBones(animated->Motion()))
      return nullptr;
    return animated;
  }

  void AddSkinned(INode& node) {
    const AnimatedMesh& animated = *SkinOf(node);
    const std::optional<std::vector<VertexBones>> bones = ViewerBones(animated.Motion());
    const int mesh =
        MakeMesh(StartOf(animated.Motion()), nullptr, LookOf(node), {&animated, &*bones});
    if (mesh == kNone) return;
    plan_.skins.push_back(SkinFor(node, animated));
    ExportNode value;
    value.name = ToUtf8(node.GetName());
    value.skin = int(plan_.skins.size()) - 1;
    Show(Child(kNone, std::move(value)), mesh, MorphedOf(node));
  }

  PlannedSkin SkinFor(INode& node, const AnimatedMesh& animated) {
    const std::vector<Matrix3>& binds = animated.Motion().inverseBind;
    PlannedSkin skin;
    for (size_t i = 0; i < binds.size(); ++i) {
      INode* bone = BoneOf(animated, i);
      const bool lost = !bone || !places_.contains(bone);  // it stays as it was bound
      INode& holder = lost ? node : *bone;
      const Place& place = places_.at(&holder);
      const Matrix3 rest = RestOf(holder, place), whole = lost ? rest : binds[i] * rest;
      skin.inverseBind.push_back(IsFiniteMatrix(whole) ? whole : Matrix3());
      const bool taken =
          std::find(skin.nodes.begin(), skin.nodes.end(), place.index) != skin.nodes.end();
      skin.nodes.push_back(taken ? Child(place.index, ExportNode()) : place.index);
    }
    return skin;
  }

  // Instances that stand in the world hang on the node as long as it is no more than a place.
  void AddInstances(INode& node, const Place& place, InstanceSource& source) {
    const auto [at, isNew] = instancesOf_.try_emplace(&source);
    if (isNew) at->second = MakeInstances(source);
    const InstanceNodes& shown = at->second;
    if (shown.nodes.empty()) return;
    const Matrix3 own = node.GetNodeTM(0);
    const bool inWorld = node.GetObjectOffset().IsIdentity() && shown.toObject == Inverse(own);
    const bool onlyPlaced = own == TransMatrix(own.GetTrans()) && node.TMValidity(0) == FOREVER;
    const bool atTop = inWorld && !onlyPlaced;
    const int parent = atTop ? kNone : place.index;
    const Nearest frame = NearestOf(atTop ? Matrix3() : shown.toObject * RestOf(node, place));
    for (ExportNode value : shown.nodes) {
      value.place = frame.parts;
      Child(parent, std::move(value));
    }
  }

  InstanceNodes MakeInstances(InstanceSource& source) {
    InstanceNodes made;
    std::unique_ptr<InstanceSet> set = source.InstancesAt(0);
    if (!set) return made;
    made.toObject = set->ToObject();
    const auto lists = std::make_shared<InstanceLists>(std::move(set));
    for (size_t g = 0; g < lists->Set().GroupCount(); ++g) {
      if (lists->Count(g, false) + lists->Count(g, true) == 0) continue;
      const InstanceSet::Group group = lists->Set().GetGroup(g);
      const Mesh* mesh = lists->Set().GetMesh(g);
      if (!mesh || !IsFiniteMatrix(group.meshToInstance)) continue;
      for (const bool mirrored : {false, true}) {
        if (lists->Count(g, mirrored) == 0) continue;
        const Matrix3 baked =
            mirrored ? group.meshToInstance * InstanceLists::Mirror() : group.meshToInstance;
        ExportNode value;
        value.mesh = MakeMesh(*mesh, &baked, {group.material, group.wireColor});
        if (value.mesh == kNone) break;
        value.name = ToUtf8(group.name);
        value.instances = {lists, g, mirrored};
        made.nodes.push_back(std::move(value));
      }
    }
    return made;
  }

  // From object space to the planned node.
  static Matrix3 RestOf(INode& node, const Place& place) {
    if (place.world == node.GetNodeTM(0)) return node.GetObjectOffset();
    return node.GetObjectTM(0) * Inverse(place.world);
  }

  int Under(const Place& place, const Nearest& n) {
    return n.matrix.IsIdentity() ? place.index : Child(place.index, n.parts);
  }

  // Nodes that show the same share it.
  int MeshOfNode(INode& node) {
    const Mtl* mtl = node.GetMtl();
    const auto key = std::tuple(static_cast<const void*>(node.GetObjectRef()),
                                static_cast<const void*>(mtl), WireOf(node, mtl));
    const auto found = meshOf_.find(key);
    if (found != meshOf_.end()) return found->second;
    return meshOf_[key] = MeshAt0(node, nullptr);
  }

  // Where a material has empty slots, the wire colour shows.
  static ColorRef WireOf(const INode& node, const Mtl* mtl) {
    return mtl && mtl->NumSubMtls() == 0 ? 0 : node.GetWireColor();
  }

  int MeshAt0(INode& node, const Matrix3* baked) {
    if (const AnimatedMesh* morphed = MorphedOf(node))
      return MakeMesh(StartOf(morphed->Motion()), baked, LookOf(node), {morphed});
    const EvaluatedMesh evaluated = EvalMesh(&node, 0);
    if (!evaluated) return kNone;
    return MakeMesh(*evaluated.mesh, baked, LookOf(node));
  }

  int MakeMesh(const Mesh& mesh, const Matrix3* baked, const Look& look,
               const Motion& motion = {}) {
    if (!mesh.FirstFault().empty()) return kNone;
    const auto materialOf = [&](int id) { return MaterialOf(look, id); };
    ExportMesh made;
    for (ViewerPart& part : ViewerParts(mesh, baked, materialOf)) {
      if (motion.bones)
        for (const std::uint32_t v : part.vertices)
          part.triangles.bones.push_back((*motion.bones)[v]);
      if (motion.mesh)
        for (const std::vector<Point3>& target : motion.mesh->Motion().targets)
          part.triangles.targets.push_back(Moves(part, target, baked));
      made.parts.push_back(std::move(part.triangles));
    }
    if (made.parts.empty()) return kNone;
    if (motion.mesh) made.weights = WeightsAt0(motion.mesh->Weights());
    return meshes_.IndexOf(std::move(made));
  }

  int LinesOfNode(const INode& node, const SplineShape& shape) {
    const auto [at, isNew] = meshOf_.try_emplace(
        std::tuple(static_cast<const void*>(&shape), nullptr, node.GetWireColor()));
    if (isNew) at->second = MakeLines(node, shape, nullptr);
    return at->second;
  }

  // As views draw it: whatever the node's material, lines have the wire colour.
  int MakeLines(const INode& node, const SplineShape& shape, const Matrix3* baked) {
    ExportMesh made;
    for (const Spline3D& spline : shape.GetShape().splines) {
      std::vector<Point3> points = ViewerLine(spline, baked);
      if (points.empty()) continue;
      made.lines.push_back(
          {std::move(points), spline.Closed(), MaterialOf({nullptr, node.GetWireColor()}, 0)});
    }
    return made.lines.empty() ? kNone : meshes_.IndexOf(std::move(made));
  }

  static std::vector<Point3> Moves(const ViewerPart& part, const std::vector<Point3>& target,
                                   const Matrix3* baked) {
    std::vector<Point3> moves;
    for (const std::uint32_t v : part.vertices) {
      const Point3 move = baked ? VectorTransform(target[v], *baked) : target[v];
      moves.push_back(IsFinite(move) ? move : Point3(0, 0, 0));
    }
    return moves;
  }

  static std::vector<float> WeightsAt0(const Track& track) {
    std::vector<double> now(track.Width());
    Interval valid = FOREVER;
    track.At(0, now.data(), valid);
    std::vector<float> weights;
    for (const double w : now) weights.push_back(std::isfinite(w) ? float(w) : 0.0f);
    return weights;
  }

  // Equal ones are one.
  int MaterialOf(const Look& look, int id) {
    const Mtl* mtl = MtlOfFace(look.mtl, id);
    const auto known = std::pair(static_cast<const void*>(mtl), mtl ? 0 : look.wire);
    const auto [at, isNew] = materialOf_.try_emplace(known, kNone);
    if (!isNew) return at->second;
    PlannedMtl planned;
    planned.diffuse = mtl ? mtl->GetDiffuse() : UnpackColor(look.wire);
    if (mtl) planned.name = ToUtf8(mtl->GetName());
    if (const auto* picture =
            mtl ? dynamic_cast<const BitmapTex*>(mtl->GetSubTexmap(StdMtl::kDiffuseMap)) : nullptr)
      planned.image = ImageOf(*picture);
    const auto [equal, first] = materialOfValue_.try_emplace(KeyOf(planned), kNone);
    if (first) {
      equal->second = int(plan_.materials.size());
      plan_.materials.push_back(std::move(planned));
    }
    return at->second = equal->second;
  }

  int ImageOf(const BitmapTex& picture) {
    const std::string name = ToUtf8(picture.GetMapName());
    if (!picture.GetBytes() && name.empty()) return kNone;
    const void* bytes = picture.GetBytes().get();
    const auto [at, isNew] = imageOf_.try_emplace(std::pair(bytes, bytes ? "" : name), kNone);
    if (!isNew) return at->second;
    ExportImage image{name, "", picture.GetBytes()};
    if (!bytes) {
      std::string file = name;
      std::replace(file.begin(), file.end(), '\\', '/');
      std::error_code code;  // it stays as it is named then
      image.path =
          std::filesystem::weakly_canonical(std::filesystem::absolute(file, code), code).string();
      if (code) image.path = file;
    }
    plan_.images.push_back(std::move(image));
    return at->second = int(plan_.images.size()) - 1;
  }

  ExportPlan plan_;
  MeshPool meshes_{plan_.meshes};
  std::unordered_map<const INode*, Place> places_;
  std::map<std::tuple<const void*, const void*, ColorRef>, int> meshOf_;
  std::map<std::pair<const void*, ColorRef>, int> materialOf_;
  std::map<MtlKey, int> materialOfValue_;
  std::map<std::pair<const void*, std::string>, int> imageOf_;
  std::map<const InstanceSource*, InstanceNodes> instancesOf_;
  std::vector<INode*> skinned_;
};

}  // namespace

ExportPlan PlanOfScene(Interface& ip, const std::vector<INode*>& nodes) {
  return ScenePlanner(ip).Take(nodes);
}

}  // namespace host
