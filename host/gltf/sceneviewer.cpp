#include "host/gltf/sceneviewer.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <tuple>
#include <unordered_map>

#include "host/gltf/viewerinstances.h"
#include "host/gltf/viewermesh.h"
#include "host/import/modelfiles.h"
#include "host/interface.h"
#include "host/math/elementary.h"
#include "host/scene/animatedmesh.h"
#include "host/scene/camera.h"
#include "host/scene/instancesource.h"
#include "host/scene/modifier.h"
#include "host/scene/node.h"
#include "host/scene/proxyobjects.h"
#include "host/scene/shape.h"
#include "host/scenefile/sceneclasses.h"

namespace host {

using nlohmann::json;

namespace {

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

void SetParts(json& node, const TransformParts& p) {
  if (!(p.position == Point3(0, 0, 0)))
    node["translation"] = {p.position.x, p.position.y, p.position.z};
  if (!(p.rotation == std::array<double, 4>{0, 0, 0, 1}))
    node["rotation"] = {float(p.rotation[0]), float(p.rotation[1]), float(p.rotation[2]),
                        float(p.rotation[3])};
  if (!(p.scale == std::array<double, 3>{1, 1, 1}))
    node["scale"] = {float(p.scale[0]), float(p.scale[1]), float(p.scale[2])};
}

// Keys, or the value without any. What isn't finite can't move in a viewer.
bool IsFinite(const Track& track) {
  const auto finite = [](float v) { return std::isfinite(v); };
  const std::vector<float>& keys = KeyValuesOf(track);
  std::vector<double> rest(track.Width());
  Interval valid = FOREVER;
  track.At(0, rest.data(), valid);
  return std::all_of(keys.begin(), keys.end(), finite) &&
         std::all_of(rest.begin(), rest.end(), [](double v) { return std::isfinite(float(v)); });
}

double LinearChannel(float screen) {
  const double v = std::clamp(std::isfinite(screen) ? double(screen) : 0.0, 0.0, 1.0);
  return v <= 0.04045 ? v / 12.92 : std::pow((v + 0.055) / 1.055, 2.4);
}

const char* MimeOf(std::span<const std::byte> bytes) {
  static constexpr unsigned char kPng[] = {0x89, 'P', 'N', 'G'}, kJpeg[] = {0xFF, 0xD8, 0xFF};
  if (bytes.size() >= 4 && std::memcmp(bytes.data(), kPng, 4) == 0) return "image/png";
  if (bytes.size() >= 3 && std::memcmp(bytes.data(), kJpeg, 3) == 0) return "image/jpeg";
  return nullptr;
}

// Viewers take no other files.
bool IsWebPicture(const std::string& file) {
  const std::string extension = ExtensionOf(file);
  return extension == ".png" || extension == ".jpg" || extension == ".jpeg";
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

class ViewerScene {
 public:
  ViewerScene(Interface& ip, const std::string& path, BinaryParts& parts) : ip_(ip), parts_(parts) {
    std::error_code code;  // pictures stay absolute then
    folder_ = std::filesystem::weakly_canonical(std::filesystem::absolute(path, code), code)
                  .parent_path();
  }

  void Add(const std::vector<INode*>& nodes, json& root) {
    json scene = json::object();
    if (!nodes.empty()) {
      AddFrame();
      for (INode* n : nodes) AddNode(*n);
      scene["nodes"] = {0};
      for (INode* n : skinned_)
        if (const std::optional<size_t> index = AddSkinned(*n)) scene["nodes"].push_back(*index);
    }
    root["scenes"] = {std::move(scene)};
    root["scene"] = 0;
    const auto put = [&](const char* name, json& list) {
      if (!list.empty()) root[name] = std::move(list);
    };
    put("nodes", nodes_);
    put("meshes", meshes_);
    put("skins", skins_);
    put("materials", materials_);
    put("textures", textures_);
    put("images", images_);
    put("cameras", cameras_);
    put("accessors", accessors_);
    if (showsInstances_) root["extensionsUsed"].push_back(kInstancingExtension);
    if (!channels_.empty())
      root["animations"] = {
          {{"channels", std::move(channels_)}, {"samplers", std::move(samplers_)}}};
  }

 private:
  struct Place {
    size_t index;   // of the glTF node that children hang on
    Matrix3 world;  // of that node, in the scene's axes and units, at time 0
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
    std::vector<json> nodes;
  };

  // Turns Z up to Y up, and scene units to metres.
  void AddFrame() {
    const double unit = MetresPer(ip_.MasterUnitType()) * double(ip_.MasterUnitScale());
    const float half = float(std::sqrt(0.5));
    json frame = {{"name", "Sowfield scene"}, {"rotation", {-half, 0, 0, half}}};
    if (unit != 1 && std::isfinite(unit) && unit > 0) frame["scale"] = {unit, unit, unit};
    nodes_.push_back(std::move(frame));
    places_[ip_.GetRootNode()] = {0, Matrix3()};
  }

  size_t Child(size_t parent, json node) {
    nodes_.push_back(std::move(node));
    nodes_[parent]["children"].push_back(nodes_.size() - 1);
    return nodes_.size() - 1;
  }

  void AddNode(INode& node) {
    const Place above = places_.at(node.GetParentNode());
    json value = {{"name", ToUtf8(node.GetName())}};
    Place place;
    const auto* control = dynamic_cast<TransformControl*>(node.GetReference(INode::kTMRef));
    if (!control || !AddMoving(*control, above, value, place)) {
      const Matrix3 world = node.GetNodeTM(0);
      const Nearest n = NearestOf(world * Inverse(above.world));
      SetParts(value, n.parts);
      place.index = Child(above.index, std::move(value));
      place.world = n.same ? world : n.matrix * above.world;
    }
    places_[&node] = place;
    AddObject(node, place);
  }

  // What moves: the constant behind the keys is a node above, the one before them a node below.
  bool AddMoving(const TransformControl& control, const Place& above, json value, Place& place) {
    if (!control.IsKeyed()) return false;
    const MotionTracks m = TracksOf(control);
    const Nearest after = NearestOf(m.after), before = NearestOf(m.before);
    if (!after.same || !before.same || !IsFinite(*m.position) || !IsFinite(*m.rotation) ||
        !IsFinite(*m.scale))
      return false;
    size_t parent = above.index;
    if (!m.after.IsIdentity()) {
      json outer = json::object();
      SetParts(outer, after.parts);
      parent = Child(parent, std::move(outer));
    }
    TransformParts now;
    double position[3];
    Interval valid = FOREVER;
    m.scale->At(0, now.scale.data(), valid);
    m.rotation->RotationAt(0, now.rotation.data(), valid);
    m.position->At(0, position, valid);
    now.position = {float(position[0]), float(position[1]), float(position[2])};
    SetParts(value, now);
    place.index = Child(parent, std::move(value));
    AddChannel(place.index, "translation", *m.position);
    AddChannel(place.index, "rotation", *m.rotation);
    AddChannel(place.index, "scale", *m.scale);
    if (!m.before.IsIdentity()) {
      json inner = json::object();
      SetParts(inner, before.parts);
      place.index = Child(place.index, std::move(inner));
    }
    place.world = control.GetValue(0, valid) * above.world;
    return true;
  }

  void AddChannel(size_t node, const char* path, const Track& track) {
    std::vector<TimeValue> times;
    std::vector<float> values;
    const bool turns = std::strcmp(path, "rotation") == 0;
    if (!ViewerKeys(track, turns, times, values)) return;
    std::vector<float> seconds;
    for (const TimeValue t : times) seconds.push_back(float(double(t) / TIME_TICKSPERSEC));
    const bool cubic = values.size() == seconds.size() * track.Width() * 3;
    const char* type = turns ? "VEC4" : std::strcmp(path, "weights") == 0 ? "SCALAR" : "VEC3";
    json input = Accessor(std::move(seconds), "SCALAR", 0);
    json& range = accessors_[input.get<size_t>()];
    range["min"] = {float(double(times.front()) / TIME_TICKSPERSEC)};
    range["max"] = {float(double(times.back()) / TIME_TICKSPERSEC)};
    const bool steps = track.Shape() == KeyShape::Step;
    json sampler = {{"input", std::move(input)},
                    {"output", Accessor(std::move(values), type, 0)},
                    {"interpolation", cubic   ? "CUBICSPLINE"
                                      : steps ? "STEP"
                                              : "LINEAR"}};
    channels_.push_back(
        {{"sampler", samplers_.size()}, {"target", {{"node", node}, {"path", path}}}});
    samplers_.push_back(std::move(sampler));
  }

  template <class T>
  json Accessor(std::vector<T> values, const char* type, int target) {
    const size_t width = std::strcmp(type, "SCALAR") == 0 ? 1
                         : std::strcmp(type, "MAT4") == 0 ? 16
                                                          : size_t(type[3] - '0');
    const auto bytes = std::as_bytes(std::span(values));
    const int component = std::is_same_v<T, float>           ? kFloat
                          : std::is_same_v<T, std::uint16_t> ? kUshort
                                                             : kUint;
    return AccessorOf(parts_.Own({bytes.begin(), bytes.end()}, target), component,
                      values.size() / width, type);
  }

  size_t AccessorOf(size_t view, int component, size_t count, const char* type) {
    accessors_.push_back(
        {{"bufferView", view}, {"componentType", component}, {"count", count}, {"type", type}});
    return accessors_.size() - 1;
  }

  void AddObject(INode& node, const Place& place) {
    if (node.IsHidden() || (node.GetLayer() && node.GetLayer()->IsHidden())) return;
    Object* base = FindBaseObject(node.GetObjectRef());
    if (!base) return;
    const Matrix3 rest = RestOf(node, place);
    if (const auto* camera = dynamic_cast<const CameraObject*>(base)) {
      if (const std::optional<size_t> index = CameraOf(*camera))
        nodes_[Under(place, NearestOf(rest))]["camera"] = *index;
      return;
    }
    if (const auto* shape = dynamic_cast<const SplineShape*>(base)) {
      const Nearest n = NearestOf(rest);
      const std::optional<size_t> lines =
          n.same ? LinesOfNode(node, *shape) : MakeLines(node, *shape, &rest);
      if (lines) nodes_[n.same ? Under(place, n) : place.index]["mesh"] = *lines;
      return;
    }
    if (auto* source = dynamic_cast<InstanceSource*>(base)) AddInstances(node, place, *source);
    // A plug-in's own mesh is what it shows at the moment: no part of the scene.
    if (base->SuperClassID() != GEOMOBJECT_CLASS_ID ||
        (!FindSceneClass(base->SuperClassID(), base->ClassID()) &&
         !dynamic_cast<ProxyObject*>(base)))
      return;
    if (SkinOf(node)) {
      skinned_.push_back(&node);  // its bones may still be to come
      return;
    }
    const Nearest n = NearestOf(rest);
    const std::optional<size_t> mesh = n.same ? MeshOfNode(node) : MeshAt0(node, &rest);
    if (mesh) Show(n.same ? Under(place, n) : place.index, *mesh, MorphedOf(node));
  }

  void Show(size_t index, size_t mesh, const AnimatedMesh* morphed) {
    nodes_[index]["mesh"] = mesh;
    if (morphed) AddChannel(index, "weights", morphed->Weights());
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

  // It lies at the top: no node's matrix but those of the bones has a part in it.
  std::optional<size_t> AddSkinned(INode& node) {
    const AnimatedMesh& animated = *SkinOf(node);
    const std::optional<std::vector<VertexBones>> bones = ViewerBones(animated.Motion());
    const std::optional<size_t> mesh =
        MakeMesh(StartOf(animated.Motion()), nullptr, LookOf(node), {&animated, &*bones});
    if (!mesh) return std::nullopt;
    skins_.push_back(SkinValue(node, animated));
    nodes_.push_back({{"name", ToUtf8(node.GetName())}, {"skin", skins_.size() - 1}});
    const size_t index = nodes_.size() - 1;
    Show(index, *mesh, MorphedOf(node));
    return index;
  }

  json SkinValue(INode& node, const AnimatedMesh& animated) {
    const std::vector<Matrix3>& binds = animated.Motion().inverseBind;
    std::vector<size_t> joints;
    std::vector<float> numbers;
    for (size_t i = 0; i < binds.size(); ++i) {
      INode* bone = BoneOf(animated, i);
      const bool lost = !bone || !places_.contains(bone);  // it stays as it was bound
      INode& holder = lost ? node : *bone;
      const Place& place = places_.at(&holder);
      const Matrix3 rest = RestOf(holder, place), whole = lost ? rest : binds[i] * rest;
      const Matrix3 bind = IsFiniteMatrix(whole) ? whole : Matrix3();
      const bool taken = std::find(joints.begin(), joints.end(), place.index) != joints.end();
      joints.push_back(taken ? Child(place.index, json::object()) : place.index);
      for (int row = 0; row < 4; ++row) {
        const Point3& p = bind.GetRow(row);
        numbers.insert(numbers.end(), {p.x, p.y, p.z, row == 3 ? 1.0f : 0.0f});
      }
    }
    return {{"joints", std::move(joints)},
            {"inverseBindMatrices", Accessor(std::move(numbers), "MAT4", 0)}};
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
    const size_t parent = atTop ? places_.at(ip_.GetRootNode()).index : place.index;
    const Nearest frame = NearestOf(atTop ? Matrix3() : shown.toObject * RestOf(node, place));
    for (json value : shown.nodes) {
      SetParts(value, frame.parts);
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
        const std::optional<size_t> index =
            MakeMesh(*mesh, &baked, {group.material, group.wireColor});
        if (!index) break;
        made.nodes.push_back({{"name", ToUtf8(group.name)}, {"mesh", *index}});
        made.nodes.back()["extensions"][kInstancingExtension]["attributes"] =
            InstanceAttributes(lists, g, mirrored);
      }
    }
    showsInstances_ = showsInstances_ || !made.nodes.empty();
    return made;
  }

  json InstanceAttributes(const std::shared_ptr<InstanceLists>& lists, size_t group,
                          bool mirrored) {
    const InstanceLists::Pieces views = InstanceLists::Add(lists, group, mirrored, parts_);
    const auto accessor = [&](size_t piece, const char* type) {
      return AccessorOf(views[piece], kFloat, lists->Count(group, mirrored), type);
    };
    return {{"TRANSLATION", accessor(0, "VEC3")},
            {"ROTATION", accessor(1, "VEC4")},
            {"SCALE", accessor(2, "VEC3")},
            {"_ID", accessor(3, "SCALAR")}};
  }

  // From object space to the glTF node.
  static Matrix3 RestOf(INode& node, const Place& place) {
    if (place.world == node.GetNodeTM(0)) return node.GetObjectOffset();
    return node.GetObjectTM(0) * Inverse(place.world);
  }

  size_t Under(const Place& place, const Nearest& n) {
    if (n.matrix.IsIdentity()) return place.index;
    json child = json::object();
    SetParts(child, n.parts);
    return Child(place.index, std::move(child));
  }

  std::optional<size_t> CameraOf(const CameraObject& camera) {
    constexpr double kAspect = 4.0 / 3;
    const double fov = camera.GetFOV(0);
    if (!(fov > 0 && fov < kPi)) return std::nullopt;
    const double yfov = 2 * std::atan(std::tan(fov / 2) / kAspect);
    cameras_.push_back(
        {{"type", "perspective"},
         {"perspective", {{"aspectRatio", kAspect}, {"yfov", yfov}, {"znear", 0.1}}}});
    return cameras_.size() - 1;
  }

  // Nodes that show the same share it.
  std::optional<size_t> MeshOfNode(INode& node) {
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

  std::optional<size_t> MeshAt0(INode& node, const Matrix3* baked) {
    if (const AnimatedMesh* morphed = MorphedOf(node))
      return MakeMesh(StartOf(morphed->Motion()), baked, LookOf(node), {morphed});
    const EvaluatedMesh evaluated = EvalMesh(&node, 0);
    if (!evaluated) return std::nullopt;
    return MakeMesh(*evaluated.mesh, baked, LookOf(node));
  }

  std::optional<size_t> MakeMesh(const Mesh& mesh, const Matrix3* baked, const Look& look,
                                 const Motion& motion = {}) {
    if (!mesh.FirstFault().empty()) return std::nullopt;
    json primitives = json::array();
    for (ViewerPart& part : ViewerParts(mesh, baked)) {
      json attributes;
      attributes["POSITION"] = Positions(part.positions);
      attributes["NORMAL"] = Accessor(Floats(part.normals, 3), "VEC3", kVertices);
      if (!part.uvs.empty())
        attributes["TEXCOORD_0"] = Accessor(Floats(part.uvs, 2), "VEC2", kVertices);
      if (motion.bones) AddBones(part, *motion.bones, attributes);
      primitives.push_back({{"attributes", std::move(attributes)},
                            {"indices", Accessor(std::move(part.indices), "SCALAR", kIndices)},
                            {"material", MaterialOf(look, part.materialId)}});
      if (!motion.mesh) continue;
      for (const std::vector<Point3>& target : motion.mesh->Motion().targets)
        primitives.back()["targets"].push_back({{"POSITION", Target(part, target, baked)}});
    }
    if (primitives.empty()) return std::nullopt;
    meshes_.push_back({{"primitives", std::move(primitives)}});
    if (motion.mesh && !motion.mesh->Motion().targets.empty())
      meshes_.back()["weights"] = WeightsAt0(motion.mesh->Weights());
    return meshes_.size() - 1;
  }

  std::optional<size_t> LinesOfNode(const INode& node, const SplineShape& shape) {
    const auto [at, isNew] = meshOf_.try_emplace(
        std::tuple(static_cast<const void*>(&shape), nullptr, node.GetWireColor()));
    if (isNew) at->second = MakeLines(node, shape, nullptr);
    return at->second;
  }

  // As views draw it: whatever the node's material, lines have the wire colour.
  std::optional<size_t> MakeLines(const INode& node, const SplineShape& shape,
                                  const Matrix3* baked) {
    json primitives = json::array();
    for (const Spline3D& spline : shape.GetShape().splines) {
      const std::vector<Point3> points = ViewerLine(spline, baked);
      if (points.empty()) continue;
      primitives.push_back({{"attributes", {{"POSITION", Positions(points)}}},
                            {"mode", spline.Closed() ? kLineLoop : kLineStrip},
                            {"material", MaterialOf({nullptr, node.GetWireColor()}, 0)}});
    }
    if (primitives.empty()) return std::nullopt;
    meshes_.push_back({{"primitives", std::move(primitives)}});
    return meshes_.size() - 1;
  }

  json Positions(const std::vector<Point3>& points) {
    Point3 low = points[0], high = low;
    for (const Point3& p : points)
      for (int k = 0; k < 3; ++k)
        low[k] = std::min(low[k], p[k]), high[k] = std::max(high[k], p[k]);
    json index = Accessor(Floats(points, 3), "VEC3", kVertices);
    json& accessor = accessors_[index.get<size_t>()];
    accessor["min"] = {low.x, low.y, low.z};
    accessor["max"] = {high.x, high.y, high.z};
    return index;
  }

  json Target(const ViewerPart& part, const std::vector<Point3>& target, const Matrix3* baked) {
    std::vector<Point3> moves;
    for (const std::uint32_t v : part.vertices) {
      const Point3 move = baked ? VectorTransform(target[v], *baked) : target[v];
      moves.push_back(IsFinite(move) ? move : Point3(0, 0, 0));
    }
    return Positions(moves);
  }

  void AddBones(const ViewerPart& part, const std::vector<VertexBones>& bones, json& attributes) {
    std::vector<std::uint16_t> joints;
    std::vector<float> weights;
    for (const std::uint32_t v : part.vertices) {
      joints.insert(joints.end(), bones[v].bone, bones[v].bone + 4);
      weights.insert(weights.end(), bones[v].weight, bones[v].weight + 4);
    }
    attributes["JOINTS_0"] = Accessor(std::move(joints), "VEC4", kVertices);
    attributes["WEIGHTS_0"] = Accessor(std::move(weights), "VEC4", kVertices);
  }

  static json WeightsAt0(const Track& track) {
    std::vector<double> weights(track.Width());
    Interval valid = FOREVER;
    track.At(0, weights.data(), valid);
    json list = json::array();
    for (const double w : weights) list.push_back(std::isfinite(w) ? float(w) : 0.0f);
    return list;
  }

  static std::vector<float> Floats(const std::vector<Point3>& points, int width) {
    std::vector<float> floats;
    floats.reserve(points.size() * size_t(width));
    for (const Point3& p : points)
      for (int k = 0; k < width; ++k) floats.push_back(p[k]);
    return floats;
  }

  size_t MaterialOf(const Look& look, int id) {
    const Mtl* mtl = MtlOfFace(look.mtl, id);
    const auto key = std::pair(static_cast<const void*>(mtl), mtl ? 0 : look.wire);
    const auto found = materialOf_.find(key);
    if (found != materialOf_.end()) return found->second;
    const Color c = mtl ? mtl->GetDiffuse() : UnpackColor(look.wire);
    json shader = {{"metallicFactor", 0}, {"roughnessFactor", 1}};
    const auto* picture =
        mtl ? dynamic_cast<const BitmapTex*>(mtl->GetSubTexmap(StdMtl::kDiffuseMap)) : nullptr;
    const std::optional<size_t> texture = picture ? TextureOf(*picture) : std::nullopt;
    if (texture) {
      shader["baseColorTexture"] = {{"index", *texture}};
    } else {
      shader["baseColorFactor"] = {LinearChannel(c.r), LinearChannel(c.g), LinearChannel(c.b), 1};
    }
    json material = {{"pbrMetallicRoughness", std::move(shader)}, {"doubleSided", true}};
    if (mtl && !mtl->GetName().empty()) material["name"] = ToUtf8(mtl->GetName());
    materials_.push_back(std::move(material));
    return materialOf_[key] = materials_.size() - 1;
  }

  std::optional<size_t> TextureOf(const BitmapTex& picture) {
    const auto found = textureOf_.find(&picture);
    if (found != textureOf_.end()) return found->second;
    json image;
    if (const BitmapTex::Bytes& bytes = picture.GetBytes()) {
      if (const char* mime = MimeOf(*bytes))
        image = {{"bufferView", ViewOf(*bytes)}, {"mimeType", mime}};
    } else if (std::string file = ToUtf8(picture.GetMapName()); IsWebPicture(file)) {
      std::replace(file.begin(), file.end(), '\\', '/');
      std::error_code code;  // the picture stays as it is named then
      const std::filesystem::path near =
          std::filesystem::weakly_canonical(std::filesystem::absolute(file, code), code)
              .lexically_relative(folder_);
      image = {{"uri", UriOf(near.empty() ? file : near.string())}};
    }
    if (image.is_null()) return textureOf_[&picture] = std::nullopt;
    images_.push_back(std::move(image));
    textures_.push_back({{"source", images_.size() - 1}});
    return textureOf_[&picture] = textures_.size() - 1;
  }

  // The scene's own description has brought the bytes along already.
  size_t ViewOf(std::span<const std::byte> bytes) {
    const auto& all = parts_.All();
    for (size_t i = 0; i < all.size(); ++i)
      if (all[i].size == bytes.size() && all[i].borrowed.data() == bytes.data()) return i;
    return parts_.Borrow(bytes);
  }

  // As accessors and views of vertices and indices have them.
  static constexpr int kUshort = 5123, kUint = 5125, kFloat = 5126;
  static constexpr int kVertices = 34962, kIndices = 34963;
  static constexpr int kLineLoop = 2, kLineStrip = 3;

  Interface& ip_;
  std::filesystem::path folder_;
  BinaryParts& parts_;
  json nodes_ = json::array(), meshes_ = json::array(), materials_ = json::array(),
       textures_ = json::array(), images_ = json::array(), cameras_ = json::array(),
       skins_ = json::array(), accessors_ = json::array(), channels_ = json::array(),
       samplers_ = json::array();
  std::unordered_map<const INode*, Place> places_;
  std::map<std::tuple<const void*, const void*, ColorRef>, std::optional<size_t>> meshOf_;
  std::map<std::pair<const void*, ColorRef>, size_t> materialOf_;
  std::map<const BitmapTex*, std::optional<size_t>> textureOf_;
  std::map<const InstanceSource*, InstanceNodes> instancesOf_;
  std::vector<INode*> skinned_;
  bool showsInstances_ = false;
};

}  // namespace

void AddViewerScene(Interface& ip, const std::vector<INode*>& nodes, const std::string& path,
                    BinaryParts& parts, json& root) {
  ViewerScene(ip, path, parts).Add(nodes, root);
}

}  // namespace host
