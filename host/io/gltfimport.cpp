#include "host/io/gltfmodel.h"
#include "host/io/importplan.h"
#include "host/io/meshbuilder.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <map>

namespace host {

namespace {

using tinygltf::Accessor;
using tinygltf::Model;

// Elements decoded in one import: primitives may all name the same big accessor.
constexpr size_t kMostElements = 400'000'000;
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

Elements Locate(const Model& model, int index, const std::string& who) {
  const std::string name = who + ": " + Numbered("accessors", index);
  if (index < 0 || size_t(index) >= model.accessors.size())
    throw ImportFault(name + " does not exist");
  const Accessor& a = model.accessors[size_t(index)];
  if (a.bufferView < 0)
    throw ImportFault(name + " has no bufferView; sparse and compressed data are not supported");
  if (size_t(a.bufferView) >= model.bufferViews.size())
    throw ImportFault(name + " names " + Numbered("bufferViews", a.bufferView) +
                      ", which does not exist");
  const tinygltf::BufferView& view = model.bufferViews[size_t(a.bufferView)];
  if (view.buffer < 0 || size_t(view.buffer) >= model.buffers.size())
    throw ImportFault(name + " lies in " + Numbered("buffers", view.buffer) +
                      ", which does not exist");
  const auto& data = model.buffers[size_t(view.buffer)].data;
  const int size = tinygltf::GetComponentSizeInBytes(std::uint32_t(a.componentType));
  const int components = tinygltf::GetNumComponentsInType(std::uint32_t(a.type));
  if (size <= 0 || components <= 0) throw ImportFault(name + " has an unknown type");

  const size_t element = size_t(size) * size_t(components);
  const size_t stride = view.byteStride ? view.byteStride : element;
  if (stride < element)
    throw ImportFault(name + " has elements of " + std::to_string(element) + " bytes, " +
                      std::to_string(stride) + " apart");
  // All of these are below 2^31, so their sums and products fit 64 bits.
  const size_t used = a.count ? a.byteOffset + stride * (a.count - 1) + element : 0;
  if (used > view.byteLength || view.byteOffset + view.byteLength > data.size())
    throw ImportFault(name + " reaches beyond its buffer");
  return {data.data() + view.byteOffset + a.byteOffset,
          a.count,
          stride,
          a.componentType,
          components,
          a.normalized};
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

// Reads the import's accessors and keeps count of them.
class AccessorReader {
 public:
  explicit AccessorReader(const Model& model) : model_(model) {}

  std::vector<Point3> Points(int index, int components, const std::string& who) {
    const Elements e = Locate(model_, index, who);
    const bool known = e.componentType == TINYGLTF_COMPONENT_TYPE_FLOAT ||
                       e.componentType <= TINYGLTF_COMPONENT_TYPE_UNSIGNED_SHORT;
    if (e.components != components || !known)
      throw ImportFault(who + ": " + Numbered("accessors", index) + " is not a list of " +
                        std::to_string(components) + " numbers each");
    Count(e.count, who);
    const int size = tinygltf::GetComponentSizeInBytes(std::uint32_t(e.componentType));
    std::vector<Point3> points(e.count, Point3(0, 0, 0));
    for (size_t i = 0; i < e.count; ++i)
      for (int k = 0; k < components; ++k)
        points[i][k] = Component(e, e.first + i * e.stride + size_t(k * size));
    return points;
  }

  std::vector<std::uint32_t> Indices(int index, const std::string& who) {
    const Elements e = Locate(model_, index, who);
    Count(e.count, who);
    std::vector<std::uint32_t> out(e.count);
    for (size_t i = 0; i < e.count; ++i) {
      const unsigned char* at = e.first + i * e.stride;
      switch (e.components == 1 ? e.componentType : 0) {
        case TINYGLTF_COMPONENT_TYPE_UNSIGNED_BYTE:
          out[i] = Load<std::uint8_t>(at);
          break;
        case TINYGLTF_COMPONENT_TYPE_UNSIGNED_SHORT:
          out[i] = Load<std::uint16_t>(at);
          break;
        case TINYGLTF_COMPONENT_TYPE_UNSIGNED_INT:
          out[i] = Load<std::uint32_t>(at);
          break;
        default:
          throw ImportFault(who + ": " + Numbered("accessors", index) +
                            " is not a list of unsigned whole numbers");
      }
    }
    return out;
  }

 private:
  void Count(size_t n, const std::string& who) {
    total_ += n;
    if (total_ > kMostElements)
      throw ImportFault(who + ": more than " + std::to_string(kMostElements) +
                        " vertices and indices in one import");
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
  explicit GltfReader(GltfModel loaded) : model_(std::move(loaded.model)), accessors_(model_) {
    plan_.warnings = std::move(loaded.warnings);
  }

  ImportPlan Read() {
    ReadMaterials();
    for (const int root : Roots()) ReadTree(root);
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
          m.name, {ScreenChannel(factor.x), ScreenChannel(factor.y), ScreenChannel(factor.z)}};
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
      node.mesh = MeshOf(n.mesh, label);
    } else if (n.camera >= 0) {
      node.fov = CameraOf(n.camera, label);
    }
    return node;
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

  // The plan's mesh of a file's mesh; -1 if it has no triangles. Nodes share it.
  int MeshOf(int index, const std::string& label) {
    const auto known = meshOf_.find(index);
    if (known != meshOf_.end()) return known->second;
    MeshBuilder builder;
    for (const tinygltf::Primitive& p : model_.meshes[size_t(index)].primitives) {
      if (p.mode < TINYGLTF_MODE_TRIANGLES) {
        plan_.warnings.push_back(label + ": points and lines are not imported");
        continue;
      }
      if (p.mode > TINYGLTF_MODE_TRIANGLE_FAN)
        throw ImportFault(label + ": primitive mode " + std::to_string(p.mode) + " is unknown");
      const TrianglePart part = ReadPart(p, label);
      if ((faces_ += part.corners.size() / 3) > kMostImportedFaces)
        throw ImportFault(label + ": more than " + std::to_string(kMostImportedFaces) +
                          " faces in one import");
      builder.Add(part, label);
    }
    if (builder.NumFaces() == 0) return meshOf_[index] = -1;
    plan_.meshes.push_back(builder.Take());
    return meshOf_[index] = int(plan_.meshes.size()) - 1;
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

  Model model_;
  AccessorReader accessors_;
  ImportPlan plan_;
  std::map<int, int> meshOf_;
  std::vector<bool> seen_;
  size_t faces_ = 0;
};

}  // namespace

ImportPlan ReadGltf(std::span<const std::byte> bytes, const std::string& folder) {
  return GltfReader(LoadGltf(bytes, folder)).Read();
}

}  // namespace host
