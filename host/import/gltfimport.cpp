#include "host/import/gltfimport.h"

#include "host/exchange/meshbuilder.h"
#include "host/import/gltfmodel.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <map>
#include <set>

namespace host {

namespace {

using tinygltf::Accessor;
using tinygltf::Model;

// Elements decoded in one import: primitives may all name the same big accessor.
constexpr size_t kMostElements = 400'000'000;
// How much an element counts for which the file needs no bytes.
constexpr size_t kUnbacked = 20;
constexpr double kPi = 3.14159265358979323846;

std::string Numbered(const char* what, int i) {
  return std::string(what) + "[" + std::to_string(i) + "]";
}

// A checked run of elements in a buffer.
struct Elements {
  const unsigned char* first = nullptr;
  size_t count = 0, stride = 0;
  int componentType = 0, components = 0;
  bool normalized = false;
};

// `count` elements of a buffer view; `name` calls them in messages.
Elements LocateIn(const Model& model, int viewIndex, size_t byteOffset, int componentType, int type,
                  size_t count, bool normalized, const std::string& name) {
  if (viewIndex < 0 || size_t(viewIndex) >= model.bufferViews.size())
    throw ImportFault(name + " names " + Numbered("bufferViews", viewIndex) +
                      ", which does not exist");
  const tinygltf::BufferView& view = model.bufferViews[size_t(viewIndex)];
  if (view.buffer < 0 || size_t(view.buffer) >= model.buffers.size())
    throw ImportFault(name + " lies in " + Numbered("buffers", view.buffer) +
                      ", which does not exist");
  const auto& data = model.buffers[size_t(view.buffer)].data;
  const int size = tinygltf::GetComponentSizeInBytes(std::uint32_t(componentType));
  const int components = tinygltf::GetNumComponentsInType(std::uint32_t(type));
  if (size <= 0 || components <= 0) throw ImportFault(name + " has an unknown type");

  const size_t element = size_t(size) * size_t(components);
  const size_t stride = view.byteStride ? view.byteStride : element;
  if (stride < element)
    throw ImportFault(name + " has elements of " + std::to_string(element) + " bytes, " +
                      std::to_string(stride) + " apart");
  // All of these are below 2^31, so their sums and products fit 64 bits.
  const size_t used = count ? byteOffset + stride * (count - 1) + element : 0;
  if (used > view.byteLength || view.byteOffset + view.byteLength > data.size())
    throw ImportFault(name + " reaches beyond its buffer");
  return {data.data() + view.byteOffset + byteOffset,
          count,
          stride,
          componentType,
          components,
          normalized};
}

template <class T>
T Load(const unsigned char* at) {
  T value;
  std::memcpy(&value, at, sizeof value);
  return value;
}

float Component(const Elements& e, const unsigned char* at) {
  const auto scaled = [&](int value, float largest) {
    return e.normalized ? std::max(float(value) / largest, -1.0f) : float(value);
  };
  switch (e.componentType) {
    case TINYGLTF_COMPONENT_TYPE_BYTE:
      return scaled(Load<std::int8_t>(at), 127);
    case TINYGLTF_COMPONENT_TYPE_UNSIGNED_BYTE:
      return scaled(Load<std::uint8_t>(at), 255);
    case TINYGLTF_COMPONENT_TYPE_SHORT:
      return scaled(Load<std::int16_t>(at), 32767);
    case TINYGLTF_COMPONENT_TYPE_UNSIGNED_SHORT:
      return scaled(Load<std::uint16_t>(at), 65535);
    default:
      return Load<float>(at);
  }
}

std::uint32_t WholeNumber(const Elements& e, const unsigned char* at) {
  switch (e.componentType) {
    case TINYGLTF_COMPONENT_TYPE_UNSIGNED_BYTE:
      return Load<std::uint8_t>(at);
    case TINYGLTF_COMPONENT_TYPE_UNSIGNED_SHORT:
      return Load<std::uint16_t>(at);
    default:
      return Load<std::uint32_t>(at);
  }
}

bool IsUnsigned(int componentType) {
  return componentType == TINYGLTF_COMPONENT_TYPE_UNSIGNED_BYTE ||
         componentType == TINYGLTF_COMPONENT_TYPE_UNSIGNED_SHORT ||
         componentType == TINYGLTF_COMPONENT_TYPE_UNSIGNED_INT;
}

// Reads the import's accessors and keeps count of them.
class AccessorReader {
 public:
  explicit AccessorReader(const Model& model) : model_(model) {}

  /// All numbers of an accessor, `components` an element.
  std::vector<float> Numbers(int index, int components, const std::string& who) {
    const Accessor& a = Known(index, who);
    const bool isFloat = a.componentType == TINYGLTF_COMPONENT_TYPE_FLOAT ||
                         a.componentType <= TINYGLTF_COMPONENT_TYPE_UNSIGNED_SHORT;
    if (tinygltf::GetNumComponentsInType(std::uint32_t(a.type)) != components || !isFloat)
      throw ImportFault(Name(index, who) + " is not a list of " + std::to_string(components) +
                        " numbers each");
    std::vector<float> numbers;
    Read(a, Name(index, who), components, numbers, Component);
    return numbers;
  }

  std::vector<Point3> Points(int index, int components, const std::string& who) {
    const std::vector<float> numbers = Numbers(index, components, who);
    std::vector<Point3> points(numbers.size() / size_t(components), Point3(0, 0, 0));
    for (size_t i = 0; i < points.size(); ++i)
      for (int k = 0; k < components; ++k)
        points[i][k] = numbers[i * size_t(components) + size_t(k)];
    return points;
  }

  std::vector<std::uint32_t> Indices(int index, const std::string& who, int components = 1) {
    const Accessor& a = Known(index, who);
    if (tinygltf::GetNumComponentsInType(std::uint32_t(a.type)) != components ||
        !IsUnsigned(a.componentType))
      throw ImportFault(Name(index, who) + " is not a list of unsigned whole numbers");
    std::vector<std::uint32_t> out;
    Read(a, Name(index, who), components, out, WholeNumber);
    return out;
  }

  /// Counts elements that are about to be made.
  void Allow(size_t n, const std::string& who) {
    total_ += n;
    if (total_ > kMostElements)
      throw ImportFault(who + ": more than " + std::to_string(kMostElements) +
                        " vertices and indices in one import");
  }

 private:
  static std::string Name(int index, const std::string& who) {
    return who + ": " + Numbered("accessors", index);
  }

  const Accessor& Known(int index, const std::string& who) const {
    if (index < 0 || size_t(index) >= model_.accessors.size())
      throw ImportFault(Name(index, who) + " does not exist");
    return model_.accessors[size_t(index)];
  }

  // An accessor without a view is all zero before its sparse elements are written over it.
  template <class T, class Decode>
  void Read(const Accessor& a, const std::string& name, int components, std::vector<T>& out,
            Decode decode) {
    if (a.bufferView < 0 && !a.sparse.isSparse)
      throw ImportFault(name + " has no bufferView; compressed data are not supported");
    const auto count = size_t(components);
    const auto size = size_t(tinygltf::GetComponentSizeInBytes(std::uint32_t(a.componentType)));
    const auto copy = [&](const Elements& e, size_t from, size_t to) {
      for (size_t k = 0; k < count; ++k)
        out[to * count + k] = decode(e, e.first + from * e.stride + k * size);
    };
    Elements plain;
    if (a.bufferView >= 0)
      plain = LocateIn(model_, a.bufferView, a.byteOffset, a.componentType, a.type, a.count,
                       a.normalized, name);
    Allow(a.count * (count + 2) / 3 * (a.bufferView >= 0 ? 1 : kUnbacked), name);
    out.assign(a.count * count, T(0));
    for (size_t i = 0; i < plain.count; ++i) copy(plain, i, i);
    if (!a.sparse.isSparse) return;

    const auto& sparse = a.sparse;
    if (!IsUnsigned(sparse.indices.componentType))
      throw ImportFault(name + ".sparse.indices are not unsigned whole numbers");
    const auto written = size_t(sparse.count);
    const Elements places =
        LocateIn(model_, sparse.indices.bufferView, size_t(sparse.indices.byteOffset),
                 sparse.indices.componentType, TINYGLTF_TYPE_SCALAR, written, false,
                 name + ".sparse.indices");
    const Elements values =
        LocateIn(model_, sparse.values.bufferView, size_t(sparse.values.byteOffset),
                 a.componentType, a.type, written, a.normalized, name + ".sparse.values");
    for (size_t i = 0; i < written; ++i) {
      const size_t at = WholeNumber(places, places.first + i * places.stride);
      if (at >= a.count)
        throw ImportFault(name + ".sparse writes element " + std::to_string(at) +
                          ", but there are only " + std::to_string(a.count));
      copy(values, i, at);
    }
  }

  const Model& model_;
  size_t total_ = 0;
};

std::vector<std::uint32_t> Corners(int mode, const std::vector<std::uint32_t>& order,
                                   const std::string& who) {
  if (mode == TINYGLTF_MODE_TRIANGLES) {
    if (order.size() % 3 != 0)
      throw ImportFault(who + ": " + std::to_string(order.size()) +
                        " corners do not make whole triangles");
    return order;
  }
  std::vector<std::uint32_t> corners;
  for (size_t i = 0; i + 2 < order.size(); ++i) {
    if (mode == TINYGLTF_MODE_TRIANGLE_FAN) {
      corners.insert(corners.end(), {order[i + 1], order[i + 2], order[0]});
    } else {
      // Each second triangle of a strip turns the other way.
      const size_t odd = i % 2;
      corners.insert(corners.end(), {order[i], order[i + 1 + odd], order[i + 2 - odd]});
    }
  }
  return corners;
}

class GltfReader {
 public:
  explicit GltfReader(GltfModel loaded)
      : model_(std::move(loaded.model)),
        imageOf_(std::move(loaded.pictures.imageOf)),
        accessors_(model_) {
    plan_.warnings = std::move(loaded.warnings);
    plan_.images = std::move(loaded.pictures.images);
    const std::vector<std::string>& missing = loaded.pictures.warnings;
    plan_.warnings.insert(plan_.warnings.end(), missing.begin(), missing.end());
  }

  ImportPlan Read() {
    plan_.metres = 1;
    ReadMaterials();
    planNodeOf_.assign(model_.nodes.size(), -1);
    for (const int root : Roots()) ReadTree(root);
    for (const auto& [mesh, skin] : skins_) BindSkin(*plan_.meshes[size_t(mesh)].skin, skin);
    if (!model_.animations.empty()) ReadAnimation(model_.animations[0]);
    for (size_t i = 1; i < model_.animations.size(); ++i)
      plan_.warnings.push_back("of several animations the first is taken: not \"" +
                               model_.animations[i].name + "\" (" + Numbered("animations", int(i)) +
                               ")");
    return std::move(plan_);
  }

 private:
  void ReadMaterials() {
    for (const tinygltf::Material& m : model_.materials) {
      const std::vector<double>& c = m.pbrMetallicRoughness.baseColorFactor;
      const Point3 factor = {float(c[0]), float(c[1]), float(c[2])};  // linear light
      if (!IsFinite(factor))
        throw ImportFault("material \"" + m.name + "\": its colour is not finite");
      const PlannedMtl made{
          m.name,
          {ScreenChannel(factor.x), ScreenChannel(factor.y), ScreenChannel(factor.z)},
          imageOf_[plan_.materials.size()]};
      plan_.materials.push_back(made);
    }
  }

  std::vector<int> Roots() const {
    if (!model_.scenes.empty()) {
      const int scene = std::max(0, model_.defaultScene);
      if (size_t(scene) >= model_.scenes.size())
        throw ImportFault(Numbered("scenes", scene) + " does not exist");
      return model_.scenes[size_t(scene)].nodes;
    }
    std::vector<bool> isChild(model_.nodes.size(), false);
    for (const tinygltf::Node& n : model_.nodes)
      for (const int c : n.children)
        if (size_t(c) < isChild.size()) isChild[size_t(c)] = true;
    std::vector<int> roots;
    for (size_t i = 0; i < isChild.size(); ++i)
      if (!isChild[i]) roots.push_back(int(i));
    return roots;
  }

  // Without calls into itself: the depth is the file's.
  void ReadTree(int root) {
    struct Open {
      int node, parent, depth;
    };
    std::vector<Open> open = {{root, -1, 0}};
    while (!open.empty()) {
      const Open at = open.back();
      open.pop_back();
      if (size_t(at.node) >= model_.nodes.size())
        throw ImportFault(Numbered("nodes", at.node) + " does not exist");
      const tinygltf::Node& n = model_.nodes[size_t(at.node)];
      const std::string label = NodeLabel(n.name, size_t(at.node));
      seen_.resize(model_.nodes.size(), false);
      if (seen_[size_t(at.node)]) throw ImportFault(label + " occurs twice in the hierarchy");
      seen_[size_t(at.node)] = true;
      if (at.depth > kDeepestNode)
        throw ImportFault(label + " lies more than " + std::to_string(kDeepestNode) +
                          " nodes deep");
      const int number = int(plan_.nodes.size());
      PlannedNode node = ReadNode(n, label);
      node.parent = at.parent;
      plan_.nodes.push_back(std::move(node));
      planNodeOf_[size_t(at.node)] = number;
      for (size_t i = n.children.size(); i-- > 0;)
        open.push_back({n.children[i], number, at.depth + 1});
    }
  }

  PlannedNode ReadNode(const tinygltf::Node& n, const std::string& label) {
    PlannedNode node;
    node.name = n.name;
    node.local = LocalMatrix(n, label);
    if (n.mesh >= 0) {
      if (size_t(n.mesh) >= model_.meshes.size())
        throw ImportFault(label + ": " + Numbered("meshes", n.mesh) + " does not exist");
      if (node.name.empty()) node.name = model_.meshes[size_t(n.mesh)].name;
      node.mesh = MeshOf(n.mesh, n.skin, label);
      if (node.mesh >= 0 && !n.weights.empty()) {
        MustCount(n.weights, plan_.meshes[size_t(node.mesh)].targets.size(), "weights", label);
        node.weights = AtRest(n.weights);
      }
    } else if (n.camera >= 0) {
      node.fov = CameraOf(n.camera, label);
    }
    return node;
  }

  static PlannedTrack AtRest(const std::vector<double>& value) {
    PlannedTrack track;
    track.times = {0};
    for (const double v : value) track.values.push_back(float(v));
    return track;
  }

  static void MustCount(const std::vector<double>& v, size_t wanted, const char* what,
                        const std::string& label) {
    if (!v.empty() && v.size() != wanted)
      throw ImportFault(label + ": its " + what + " has " + std::to_string(v.size()) +
                        " numbers, not " + std::to_string(wanted));
  }

  // A file's matrix stands by columns and acts on columns, so its columns are our rows.
  static Matrix3 LocalMatrix(const tinygltf::Node& n, const std::string& label) {
    MustCount(n.matrix, 16, "matrix", label);
    MustCount(n.translation, 3, "translation", label);
    MustCount(n.rotation, 4, "rotation", label);
    MustCount(n.scale, 3, "scale", label);
    const auto row = [](const double* v) { return Point3(float(v[0]), float(v[1]), float(v[2])); };
    if (!n.matrix.empty()) {
      const double* m = n.matrix.data();
      if (std::fabs(m[3]) + std::fabs(m[7]) + std::fabs(m[11]) + std::fabs(m[15] - 1) > 1e-6)
        throw ImportFault(label + ": its matrix is not affine");
      return {row(m), row(m + 4), row(m + 8), row(m + 12)};
    }
    std::array<double, 4> q = {0, 0, 0, 1};
    std::array<double, 3> s = {1, 1, 1};
    if (!n.rotation.empty()) std::copy_n(n.rotation.begin(), 4, q.begin());
    if (!n.scale.empty()) std::copy_n(n.scale.begin(), 3, s.begin());
    const double length = std::sqrt(q[0] * q[0] + q[1] * q[1] + q[2] * q[2] + q[3] * q[3]);
    if (!(length > 0) || !std::isfinite(length))
      throw ImportFault(label + ": its rotation is not a unit quaternion");
    for (double& c : q) c /= length;
    const auto [x, y, z, w] = q;
    const double rows[3][3] = {{1 - 2 * (y * y + z * z), 2 * (x * y + w * z), 2 * (x * z - w * y)},
                               {2 * (x * y - w * z), 1 - 2 * (x * x + z * z), 2 * (y * z + w * x)},
                               {2 * (x * z + w * y), 2 * (y * z - w * x), 1 - 2 * (x * x + y * y)}};
    Matrix3 tm;
    for (int i = 0; i < 3; ++i)
      tm.SetRow(i, {float(rows[i][0] * s[size_t(i)]), float(rows[i][1] * s[size_t(i)]),
                    float(rows[i][2] * s[size_t(i)])});
    if (!n.translation.empty()) tm.SetTrans(row(n.translation.data()));
    return tm;
  }

  std::optional<float> CameraOf(int index, const std::string& label) {
    if (size_t(index) >= model_.cameras.size())
      throw ImportFault(label + ": " + Numbered("cameras", index) + " does not exist");
    const tinygltf::Camera& c = model_.cameras[size_t(index)];
    if (c.type != "perspective") {
      plan_.warnings.push_back(label + ": only perspective cameras are imported");
      return std::nullopt;
    }
    const double aspect = c.perspective.aspectRatio > 0 ? c.perspective.aspectRatio : 4.0 / 3.0;
    const double yfov = c.perspective.yfov;
    const float fov = float(2 * std::atan(std::tan(0.5 * yfov) * aspect));
    if (!(yfov > 0 && yfov < kPi) || !(fov > 0 && double(fov) < kPi))
      throw ImportFault(label + ": its camera's yfov is " + std::to_string(yfov) +
                        ", it must be above 0 and below pi");
    return fov;
  }

  // The plan's mesh of a file's mesh under a skin (-1 for none); -1 if it has no triangles. Nodes
  // share it.
  int MeshOf(int index, int skin, const std::string& label) {
    if (skin >= 0 && size_t(skin) >= model_.skins.size())
      throw ImportFault(label + ": " + Numbered("skins", skin) + " does not exist");
    const tinygltf::Mesh& mesh = model_.meshes[size_t(index)];
    const std::pair<int, int> key(index, skin);
    const auto known = meshOf_.find(key);
    if (known != meshOf_.end()) return known->second;
    MeshBuilder builder;
    for (const tinygltf::Primitive& p : mesh.primitives) {
      if (p.mode < TINYGLTF_MODE_TRIANGLES) {
        plan_.warnings.push_back(label + ": points and lines are not imported");
        continue;
      }
      if (p.mode > TINYGLTF_MODE_TRIANGLE_FAN)
        throw ImportFault(label + ": primitive mode " + std::to_string(p.mode) + " is unknown");
      TrianglePart part = ReadPart(p, label);
      ReadTargets(p, part, label);
      if (skin >= 0) ReadBones(p, model_.skins[size_t(skin)].joints.size(), part, label);
      if ((faces_ += part.corners.size() / 3) > kMostImportedFaces)
        throw ImportFault(label + ": more than " + std::to_string(kMostImportedFaces) +
                          " faces in one import");
      builder.Add(part, label);
    }
    if (builder.NumFaces() == 0) return meshOf_[key] = -1;
    plan_.meshes.push_back(builder.Take());
    PlannedMesh& made = plan_.meshes.back();
    MustCount(mesh.weights, made.targets.size(), "weights", label);
    made.weights.assign(mesh.weights.begin(), mesh.weights.end());
    made.weights.resize(made.targets.size(), 0.0f);
    const int number = int(plan_.meshes.size()) - 1;
    if (skin >= 0) skins_.emplace_back(number, skin);
    return meshOf_[key] = number;
  }

  TrianglePart ReadPart(const tinygltf::Primitive& p, const std::string& label) {
    TrianglePart part;
    const auto read = [&](const char* attribute, int components) {
      const auto found = p.attributes.find(attribute);
      if (found == p.attributes.end()) return std::vector<Point3>();
      return accessors_.Points(found->second, components, label + ", " + attribute);
    };
    if (!p.attributes.contains("POSITION"))
      throw ImportFault(label + ": a primitive has no POSITION");
    part.positions = read("POSITION", 3);
    part.normals = read("NORMAL", 3);
    part.uvs = read("TEXCOORD_0", 2);
    for (const auto* list : {&part.normals, &part.uvs})
      if (!list->empty() && list->size() != part.positions.size())
        throw ImportFault(label + ": its attributes have " + std::to_string(part.positions.size()) +
                          " and " + std::to_string(list->size()) + " elements");
    for (Point3& uv : part.uvs) uv.y = 1.0f - uv.y;

    std::vector<std::uint32_t> order;
    if (p.indices >= 0) {
      order = accessors_.Indices(p.indices, label + ", indices");
    } else {
      order.resize(part.positions.size());
      for (size_t i = 0; i < order.size(); ++i) order[i] = std::uint32_t(i);
    }
    part.corners = Corners(p.mode, order, label);
    if (p.material >= int(model_.materials.size()))
      throw ImportFault(label + ": " + Numbered("materials", p.material) + " does not exist");
    part.material = p.material;
    return part;
  }

  void ReadTargets(const tinygltf::Primitive& p, TrianglePart& part, const std::string& label) {
    for (size_t i = 0; i < p.targets.size(); ++i) {
      const std::string who = label + ", morph target " + std::to_string(i);
      const auto found = p.targets[i].find("POSITION");
      if (found == p.targets[i].end()) {
        accessors_.Allow(part.positions.size() * kUnbacked, who);
        part.targets.emplace_back(part.positions.size(), Point3(0, 0, 0));
        continue;
      }
      part.targets.push_back(accessors_.Points(found->second, 3, who));
      if (part.targets.back().size() != part.positions.size())
        throw ImportFault(who + " has " + std::to_string(part.targets.back().size()) +
                          " positions, not " + std::to_string(part.positions.size()));
    }
  }

  void ReadBones(const tinygltf::Primitive& p, size_t joints, TrianglePart& part,
                 const std::string& label) {
    const auto j = p.attributes.find("JOINTS_0"), w = p.attributes.find("WEIGHTS_0");
    if (j == p.attributes.end() || w == p.attributes.end())
      throw ImportFault(label + ": it has a skin, but a primitive has no JOINTS_0 and WEIGHTS_0");
    if (p.attributes.contains("JOINTS_1"))
      plan_.warnings.push_back(label +
                               ": of more than four bones a vertex the first four are taken");
    const std::vector<std::uint32_t> bones = accessors_.Indices(j->second, label + ", JOINTS_0", 4);
    const std::vector<float> weights = accessors_.Numbers(w->second, 4, label + ", WEIGHTS_0");
    const size_t verts = part.positions.size();
    if (bones.size() != 4 * verts || weights.size() != 4 * verts)
      throw ImportFault(label + ": its positions, joints and weights are " + std::to_string(verts) +
                        ", " + std::to_string(bones.size() / 4) + " and " +
                        std::to_string(weights.size() / 4));
    for (size_t v = 0; v < verts; ++v)
      part.bones.push_back(
          BonesOf(&bones[4 * v], &weights[4 * v], joints, label + ": vertex " + std::to_string(v)));
  }

  // Weights are brought to a sum of 1. A vertex without weight follows its first joint.
  static VertexBones BonesOf(const std::uint32_t* bones, const float* weights, size_t joints,
                             const std::string& who) {
    double sum = 0;
    for (int k = 0; k < 4; ++k) {
      if (!std::isfinite(weights[k])) throw ImportFault(who + " has a weight that is not finite");
      sum += std::max(weights[k], 0.0f);
    }
    VertexBones out{};
    for (int k = 0; k < 4; ++k) {
      const float weight = sum > 0 ? float(std::max(weights[k], 0.0f) / sum) : k == 0 ? 1.0f : 0.0f;
      if (weight == 0) continue;
      if (bones[k] >= std::min(joints, kMostJoints))
        throw ImportFault(who + " hangs on joint " + std::to_string(bones[k]) +
                          ", but its skin has only " + std::to_string(joints));
      out.bone[k] = std::uint16_t(bones[k]);
      out.weight[k] = weight;
    }
    return out;
  }

  void BindSkin(PlannedSkin& out, int index) {
    const tinygltf::Skin& skin = model_.skins[size_t(index)];
    const std::string who = Numbered("skins", index);
    for (const int joint : skin.joints) {
      const int node = size_t(joint) < planNodeOf_.size() ? planNodeOf_[size_t(joint)] : -1;
      if (node < 0)
        throw ImportFault(who + ": its joint " + Numbered("nodes", joint) + " is not in the scene");
      out.nodes.push_back(node);
    }
    out.inverseBind.assign(skin.joints.size(), Matrix3());
    if (skin.inverseBindMatrices < 0) return;
    const std::vector<float> m =
        accessors_.Numbers(skin.inverseBindMatrices, 16, who + ".inverseBindMatrices");
    if (m.size() < 16 * skin.joints.size())
      throw ImportFault(who + ": it has " + std::to_string(skin.joints.size()) + " joints, but " +
                        std::to_string(m.size() / 16) + " matrices");
    for (size_t i = 0; i < out.inverseBind.size(); ++i)  // columns there are rows here
      for (int row = 0; row < 4; ++row) {
        const float* column = &m[16 * i + 4 * size_t(row)];
        out.inverseBind[i].SetRow(row, {column[0], column[1], column[2]});
      }
  }

  void ReadAnimation(const tinygltf::Animation& animation) {
    for (size_t i = 0; i < animation.channels.size(); ++i) {
      const tinygltf::AnimationChannel& channel = animation.channels[i];
      const std::string who = "animations[0], " + Numbered("channels", int(i));
      if (channel.target_node >= int(planNodeOf_.size()))
        throw ImportFault(who + ": " + Numbered("nodes", channel.target_node) + " does not exist");
      const int number = channel.target_node < 0 ? -1 : planNodeOf_[size_t(channel.target_node)];
      if (number < 0) continue;  // of another scene
      PlannedNode& node = plan_.nodes[size_t(number)];
      PlannedTrack* track = nullptr;
      int components = 3;
      size_t width = 3;
      if (channel.target_path == "translation") track = &node.position;
      if (channel.target_path == "scale") track = &node.scale;
      if (channel.target_path == "rotation") track = &node.rotation, components = 4, width = 4;
      if (channel.target_path == "weights" && node.mesh >= 0) {
        track = &node.weights, components = 1;
        width = plan_.meshes[size_t(node.mesh)].targets.size();
      }
      if (!track) {
        plan_.warnings.push_back(who + ": \"" + channel.target_path + "\" is not animated");
        continue;
      }
      if (channel.sampler < 0 || size_t(channel.sampler) >= animation.samplers.size())
        throw ImportFault(who + ": " + Numbered("samplers", channel.sampler) + " does not exist");
      if (!animated_.emplace(number, channel.target_path).second)
        throw ImportFault(who + ": " + NodeLabel(node.name, size_t(number)) +
                          " has two tracks for \"" + channel.target_path + "\"");
      *track = ReadTrack(animation.samplers[size_t(channel.sampler)], components, width, who);
      if (track == &node.rotation) MakeUnit(*track, who);
      if (track != &node.weights) FillRest(model_.nodes[size_t(channel.target_node)], node);
    }
  }

  PlannedTrack ReadTrack(const tinygltf::AnimationSampler& sampler, int components, size_t width,
                         const std::string& who) {
    PlannedTrack track;
    if (sampler.interpolation == "STEP") {
      track.shape = KeyShape::Step;
    } else if (sampler.interpolation == "CUBICSPLINE") {
      track.shape = KeyShape::Cubic;
    } else if (sampler.interpolation != "LINEAR" && !sampler.interpolation.empty()) {
      throw ImportFault(who + ": interpolation \"" + sampler.interpolation + "\" is unknown");
    }
    track.times = accessors_.Numbers(sampler.input, 1, who + ", input");
    track.values = accessors_.Numbers(sampler.output, components, who + ", output");
    const size_t wanted = track.times.size() * width * (track.shape == KeyShape::Cubic ? 3 : 1);
    if (track.times.empty() || track.values.size() != wanted)
      throw ImportFault(who + ": " + std::to_string(track.times.size()) + " keys have " +
                        std::to_string(track.values.size()) + " numbers, not " +
                        std::to_string(wanted));
    return track;
  }

  // Stored as whole numbers they are only nearly so. A spline's lengths belong to its tangents.
  static void MakeUnit(PlannedTrack& track, const std::string& who) {
    if (track.shape == KeyShape::Cubic) return;
    for (size_t i = 0; i < track.values.size(); i += 4) {
      float* q = &track.values[i];
      double square = 0;
      for (int k = 0; k < 4; ++k) square += double(q[k]) * q[k];
      if (!(square > 0) || !std::isfinite(square))
        throw ImportFault(who + ": key " + std::to_string(i / 4) + " is not a unit quaternion");
      for (int k = 0; k < 4; ++k) q[k] = float(q[k] / std::sqrt(square));
    }
  }

  // The parts of an animated node that stand still, as the file has them: from a matrix, the signs
  // of a scale can't be told.
  static void FillRest(const tinygltf::Node& n, PlannedNode& node) {
    if (!n.matrix.empty()) return;
    const auto fill = [](PlannedTrack& track, const std::vector<double>& given,
                         const std::vector<double>& initial) {
      if (track.IsEmpty()) track = AtRest(given.empty() ? initial : given);
    };
    fill(node.position, n.translation, {0, 0, 0});
    fill(node.rotation, n.rotation, {0, 0, 0, 1});
    fill(node.scale, n.scale, {1, 1, 1});
  }

  static constexpr size_t kMostJoints = 0x10000;

  Model model_;
  std::vector<int> imageOf_;  // a picture for each material, -1 for none
  AccessorReader accessors_;
  ImportPlan plan_;
  std::map<std::pair<int, int>, int> meshOf_;  // by mesh and skin
  std::vector<int> planNodeOf_;                // by the file's node, -1 for none
  std::vector<std::pair<int, int>> skins_;     // meshes of the plan and their skins
  std::set<std::pair<int, std::string>> animated_;
  std::vector<bool> seen_;
  size_t faces_ = 0;
};

}  // namespace

ImportPlan ReadGltf(std::span<const std::byte> bytes, const std::string& folder) {
  return GltfReader(LoadGltf(bytes, folder)).Read();
}

}  // namespace host
