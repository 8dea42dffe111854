#include "host/gltf/gltfwriter.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <map>
#include <optional>
#include <span>
#include <tuple>
#include <utility>

#include "host/files/file.h"
#include "host/files/jsonout.h"
#include "host/files/modelfiles.h"
#include "host/gltf/gltfarrays.h"

namespace host {

namespace {

constexpr int kLineLoop = 2, kLineStrip = 3;  // modes of primitives

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

bool IsWebPicture(const std::string& file) {
  const std::string extension = ExtensionOf(file);
  return extension == ".png" || extension == ".jpg" || extension == ".jpeg";
}

// Turns Z up to Y up, and units to metres.
TransformParts FrameOf(double metres) {
  const double half = std::sqrt(0.5);
  return {{metres, metres, metres}, {-half, 0, 0, half}, {0, 0, 0}};
}

template <class Numbers>
void PutNumbers(JsonOut& out, const char* name, const Numbers& numbers) {
  out.Key(name).BeginList();
  for (const auto number : numbers) out.Float(float(number));
  out.End();
}

void PutPlace(JsonOut& out, const TransformParts& p) {
  if (!(p.position == Point3(0, 0, 0))) out.Key("translation").Point(p.position);
  if (!(p.rotation == std::array<double, 4>{0, 0, 0, 1})) PutNumbers(out, "rotation", p.rotation);
  if (!(p.scale == std::array<double, 3>{1, 1, 1})) PutNumbers(out, "scale", p.scale);
}

// For a node that nothing is above: upright and in metres, to the bit, as by no quaternion.
void PutTurned(JsonOut& out, const TransformParts& p, double metres) {
  const Matrix3 m = MatrixOf(p);
  out.Key("matrix").BeginList();
  for (int row = 0; row < 4; ++row) {
    const Point3& r = m.GetRow(row);
    for (const float v : {r.x, r.z, -r.y}) out.Double(double(v) * metres + 0.0);  // no -0
    out.Int(row == 3 ? 1 : 0);
  }
  out.End();
}

void PutIndices(JsonOut& out, const char* name, std::span<const size_t> indices) {
  if (indices.empty()) return;
  out.Key(name).BeginList();
  for (const size_t i : indices) out.Int((long long)(i));
  out.End();
}

std::string WithoutBraces(const std::string& object) { return object.substr(1, object.size() - 2); }

class PlanWriter {
 public:
  PlanWriter(std::shared_ptr<const ExportPlan> plan, const GltfPlace& place, BinaryParts& parts)
      : plan_(std::move(plan)), parts_(parts), place_(place), arrays_(parts, plan_) {
    std::error_code code;  // pictures stay absolute then
    folder_ = std::filesystem::weakly_canonical(std::filesystem::absolute(place.path, code), code)
                  .parent_path();
    frames_ = plan_->name.empty() || plan_->nodes.empty() ? 0 : 1;
  }

  GltfMembers Write() {
    JsonOut out;
    out.BeginObject();
    PutScene(out);
    PutList(out, "nodes", frames_ + plan_->nodes.size(), &PlanWriter::PutNode);
    PutList(out, "meshes", plan_->meshes.size(), &PlanWriter::PutMesh);
    PutList(out, "skins", plan_->skins.size(), &PlanWriter::PutSkin);
    PutList(out, "materials", plan_->materials.size(), &PlanWriter::PutMaterial);
    PutList(out, "textures", images_.size(), &PlanWriter::PutTexture);
    PutList(out, "images", images_.size(), &PlanWriter::PutImage);
    PutList(out, "cameras", cameras_.size(), &PlanWriter::PutCamera);
    PutMotion(out);
    if (std::string text = AccessorText(); !text.empty()) out.Key("accessors").Raw(text);
    made_.text = WithoutBraces(out.End().Str());
    BoundWarnings();
    return std::move(made_);
  }

 private:
  size_t IndexOf(int node) const { return size_t(node) + frames_; }

  void PutList(JsonOut& out, const char* name, size_t count,
               void (PlanWriter::*put)(JsonOut&, size_t)) {
    if (count == 0) return;
    out.Key(name).BeginList();
    for (size_t i = 0; i < count; ++i) {
      out.BeginObject();
      (this->*put)(out, i);
      out.End();
    }
    out.End();
  }

  // What a skin shows stands at the top: no node's matrix but those of the bones has a part in it.
  void PutScene(JsonOut& out) {
    std::vector<size_t> tops;
    if (frames_ > 0) tops.push_back(0);
    children_.resize(frames_ + plan_->nodes.size());
    for (size_t i = 0; i < plan_->nodes.size(); ++i) {
      const ExportNode& node = plan_->nodes[i];
      const bool isTop = node.parent < 0 && (frames_ == 0 || node.skin >= 0);
      (isTop ? tops : children_[node.parent < 0 ? 0 : IndexOf(node.parent)]).push_back(i + frames_);
    }
    out.Key("scene").Int(0).Key("scenes").BeginList().BeginObject();
    PutIndices(out, "nodes", tops);
    out.End().End();
  }

  void PutNode(JsonOut& out, size_t index) {
    if (index < frames_) {
      out.Key("name").Text(plan_->name);
      PutPlace(out, FrameOf(plan_->metres));
    } else {
      const ExportNode& node = plan_->nodes[index - frames_];
      if (!node.name.empty()) out.Key("name").Text(node.name);
      const bool turned = frames_ == 0 && node.parent < 0;
      turned ? PutTurned(out, node.place, plan_->metres) : PutPlace(out, node.place);
      if (node.mesh >= 0) out.Key("mesh").Int(node.mesh);
      if (node.skin >= 0) out.Key("skin").Int(node.skin);
      if (node.fov) out.Key("camera").Int((long long)(CameraOf(*node.fov)));
      if (node.instances) PutInstances(out, *node.instances);
    }
    PutIndices(out, "children", children_[index]);
  }

  size_t CameraOf(float fov) {
    const auto at = std::find(cameras_.begin(), cameras_.end(), fov);
    if (at != cameras_.end()) return size_t(at - cameras_.begin());
    cameras_.push_back(fov);
    return cameras_.size() - 1;
  }

  void PutInstances(JsonOut& out, const ExportInstances& shown) {
    const auto [at, isNew] = instances_.try_emplace(
        std::tuple(static_cast<const void*>(shown.lists.get()), shown.group, shown.mirrored));
    if (isNew) at->second = arrays_.Instances(shown);
    out.Key("extensions").BeginObject().Key(kInstancingExtension).BeginObject();
    out.Key("attributes").BeginObject();
    constexpr const char* kNames[] = {"TRANSLATION", "ROTATION", "SCALE", "_ID"};
    for (size_t k = 0; k < at->second.size(); ++k)
      out.Key(kNames[k]).Int((long long)(at->second[k]));
    out.End().End().End();
    made_.hasInstances = true;
  }

  void PutMesh(JsonOut& out, size_t index) {
    const ExportMesh& mesh = plan_->meshes[index];
    out.Key("primitives").BeginList();
    for (const TrianglePart& part : mesh.parts) {
      out.BeginObject();
      PutTriangles(out, part);
      out.End();
    }
    for (const ExportLine& line : mesh.lines) {
      out.BeginObject().Key("attributes").BeginObject();
      PutIndex(out, "POSITION", arrays_.Borrow(GltfArrays::kPoints, line.points, true));
      out.End().Key("mode").Int(line.closed ? kLineLoop : kLineStrip);
      out.Key("material").Int(line.material).End();
    }
    out.End();
    if (!mesh.weights.empty()) PutNumbers(out, "weights", mesh.weights);
  }

  void PutTriangles(JsonOut& out, const TrianglePart& part) {
    out.Key("attributes").BeginObject();
    PutIndex(out, "POSITION", arrays_.Borrow(GltfArrays::kPoints, part.positions, true));
    PutIndex(out, "NORMAL", arrays_.Borrow(GltfArrays::kPoints, part.normals));
    if (!part.uvs.empty()) {
      // glTF counts v from the top.
      std::vector<std::array<float, 2>> uvs;
      uvs.reserve(part.uvs.size());
      for (const Point3& uv : part.uvs) uvs.push_back({uv.x, 1 - uv.y});
      PutIndex(out, "TEXCOORD_0", arrays_.Own(GltfArrays::kUvs, uvs));
    }
    if (!part.bones.empty()) PutBones(out, part.bones);
    out.End();
    PutIndex(out, "indices", arrays_.Borrow(GltfArrays::kIndices, part.corners));
    out.Key("material").Int(part.material);
    if (part.targets.empty()) return;
    out.Key("targets").BeginList();
    for (const std::vector<Point3>& target : part.targets) {
      out.BeginObject();
      PutIndex(out, "POSITION", arrays_.Borrow(GltfArrays::kPoints, target, true));
      out.End();
    }
    out.End();
  }

  void PutBones(JsonOut& out, const std::vector<VertexBones>& bones) {
    std::vector<std::uint16_t> joints;
    std::vector<float> weights;
    for (const VertexBones& v : bones) {
      joints.insert(joints.end(), v.bone, v.bone + 4);
      weights.insert(weights.end(), v.weight, v.weight + 4);
    }
    PutIndex(out, "JOINTS_0", arrays_.Own(GltfArrays::kJoints, joints));
    PutIndex(out, "WEIGHTS_0", arrays_.Own(GltfArrays::kWeights, weights));
  }

  static void PutIndex(JsonOut& out, const char* name, size_t index) {
    out.Key(name).Int((long long)(index));
  }

  void PutSkin(JsonOut& out, size_t index) {
    const PlannedSkin& skin = plan_->skins[index];
    std::vector<size_t> joints;
    for (const int node : skin.nodes) joints.push_back(IndexOf(node));
    PutIndices(out, "joints", joints);
    std::vector<float> numbers;
    for (const Matrix3& bind : skin.inverseBind)
      for (int row = 0; row < 4; ++row) {
        const Point3& p = bind.GetRow(row);
        numbers.insert(numbers.end(), {p.x, p.y, p.z, row == 3 ? 1.0f : 0.0f});
      }
    PutIndex(out, "inverseBindMatrices", arrays_.Own(GltfArrays::kMatrices, numbers));
  }

  void PutMaterial(JsonOut& out, size_t index) {
    const PlannedMtl& mtl = plan_->materials[index];
    if (!mtl.name.empty()) out.Key("name").Text(mtl.name);
    out.Key("doubleSided").Flag(true).Key("pbrMetallicRoughness").BeginObject();
    out.Key("metallicFactor").Int(0).Key("roughnessFactor").Int(1);
    const std::optional<size_t> texture = mtl.image < 0 ? std::nullopt : TextureOf(mtl.image);
    if (texture) {
      PutIndex(out.Key("baseColorTexture").BeginObject(), "index", *texture);
      out.End();
    } else {
      const Color& c = mtl.diffuse;
      const double colour[] = {LinearChannel(c.r), LinearChannel(c.g), LinearChannel(c.b), 1};
      PutNumbers(out, "baseColorFactor", colour);
    }
    out.End();
  }

  // A texture has the number of its image. Nothing for a picture that can't be shown.
  std::optional<size_t> TextureOf(int image) {
    const auto [at, isNew] = textureOf_.try_emplace(image);
    if (!isNew) return at->second;
    std::string why;
    if (const std::optional<Image> shown = ImageOf(plan_->images[size_t(image)], why)) {
      images_.push_back(*shown);
      at->second = images_.size() - 1;
    } else {
      made_.warnings.push_back(why + "; other programs show its material's colour instead");
    }
    return at->second;
  }

  struct Image {
    size_t view = 0;
    const char* mime = nullptr;  // null for a file
    std::string uri;
  };

  std::optional<Image> ImageOf(const ExportImage& image, std::string& why) {
    std::vector<std::byte> read;
    if (!image.bytes && !place_.holdsPictures) {
      if (IsWebPicture(image.path)) return Image{0, nullptr, UriFor(image.path)};
    } else if (image.bytes || ReadFile(image.path, read, why)) {
      const std::span<const std::byte> bytes(image.bytes ? *image.bytes : read);
      if (const char* mime = MimeOf(bytes)) return Image{ViewOf(bytes, image), mime, ""};
    } else {
      return std::nullopt;
    }
    why = "the picture \"" + image.name + "\" is no PNG or JPEG";
    return std::nullopt;
  }

  std::string UriFor(const std::string& path) const {
    const std::filesystem::path near = std::filesystem::path(path).lexically_relative(folder_);
    return UriOf(near.empty() ? path : near.string());
  }

  // Equal bytes may be there already: the scene's own description brings those that it holds.
  size_t ViewOf(std::span<const std::byte> bytes, const ExportImage& image) {
    const auto& all = parts_.All();
    for (size_t i = 0; i < all.size(); ++i) {
      const BinaryParts::Part& part = all[i];
      const std::span<const std::byte> there = part.owned.empty() ? part.borrowed : part.owned;
      if (!part.made && part.target == 0 && there.size() == bytes.size() &&
          (there.data() == bytes.data() ||
           std::memcmp(there.data(), bytes.data(), bytes.size()) == 0))
        return i;
    }
    return image.bytes ? parts_.Borrow(bytes) : parts_.Own({bytes.begin(), bytes.end()});
  }

  void PutTexture(JsonOut& out, size_t index) { PutIndex(out, "source", index); }

  void PutImage(JsonOut& out, size_t index) {
    const Image& image = images_[index];
    if (image.mime) {
      PutIndex(out, "bufferView", image.view);
      out.Key("mimeType").Text(image.mime);
    } else {
      out.Key("uri").Text(image.uri);
    }
  }

  void PutCamera(JsonOut& out, size_t index) {
    constexpr double kAspect = 4.0 / 3;
    const double fov = double(cameras_[index]);
    out.Key("type").Text("perspective").Key("perspective").BeginObject();
    out.Key("aspectRatio").Double(kAspect);
    out.Key("yfov").Double(2 * std::atan(std::tan(fov / 2) / kAspect));
    out.Key("znear").Double(0.1).End();
  }

  void PutMotion(JsonOut& out) {
    JsonOut channels, samplers;
    channels.BeginList(), samplers.BeginList();
    size_t count = 0;
    const auto put = [&](size_t node, const char* path, const PlannedTrack& track,
                         GltfArrays::Kind kind) {
      if (track.IsEmpty()) return;
      channels.BeginObject().Key("sampler").Int((long long)(count++));
      channels.Key("target").BeginObject().Key("node").Int((long long)(node));
      channels.Key("path").Text(path).End().End();
      samplers.BeginObject();
      PutIndex(samplers, "input", arrays_.Borrow(GltfArrays::kScalars, track.times, true));
      PutIndex(samplers, "output", arrays_.Borrow(kind, track.values));
      samplers.Key("interpolation")
          .Text(track.shape == KeyShape::Cubic  ? "CUBICSPLINE"
                : track.shape == KeyShape::Step ? "STEP"
                                                : "LINEAR");
      samplers.End();
    };
    for (size_t i = 0; i < plan_->nodes.size(); ++i) {
      const ExportNode& node = plan_->nodes[i];
      put(i + frames_, "translation", node.position, GltfArrays::kVectors);
      put(i + frames_, "rotation", node.rotation, GltfArrays::kTurns);
      put(i + frames_, "scale", node.scale, GltfArrays::kVectors);
      put(i + frames_, "weights", node.weights, GltfArrays::kScalars);
    }
    if (count == 0) return;
    out.Key("animations").BeginList().BeginObject();
    out.Key("channels").Raw(channels.End().Str()).Key("samplers").Raw(samplers.End().Str());
    out.End().End();
  }

  std::string AccessorText() {
    JsonOut list;
    arrays_.Put(list);
    return list.Str() == "[]" ? "" : list.Str();
  }

  void BoundWarnings() {
    constexpr size_t kMost = 20;
    std::vector<std::string>& lines = made_.warnings;
    if (lines.size() <= kMost) return;
    const size_t more = lines.size() - kMost;
    lines.resize(kMost);
    lines.push_back("and " + std::to_string(more) + " pictures more that aren't shown");
  }

  std::shared_ptr<const ExportPlan> plan_;
  BinaryParts& parts_;
  GltfPlace place_;
  GltfArrays arrays_;
  GltfMembers made_;
  std::filesystem::path folder_;
  size_t frames_ = 0;                          // nodes before those of the plan: 0 or 1
  std::vector<std::vector<size_t>> children_;  // of each node
  std::vector<float> cameras_;                 // fields of view
  std::vector<Image> images_;
  std::map<int, std::optional<size_t>> textureOf_;
  std::map<std::tuple<const void*, size_t, bool>, std::array<size_t, 4>> instances_;
};

std::string Base64(std::span<const std::byte> bytes) {
  static constexpr char kDigits[] =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  text.reserve((bytes.size() + 2) / 3 * 4);
  for (size_t i = 0; i < bytes.size(); i += 3) {
    std::uint32_t group = 0;
    for (size_t k = i; k < i + 3; ++k)
      group = group << 8 | (k < bytes.size() ? std::uint32_t(bytes[k]) : 0u);
    for (size_t k = 0; k < 4; ++k)
      text += i + k <= bytes.size() ? kDigits[group >> (18 - 6 * k) & 63] : '=';
  }
  return text;
}

}  // namespace

GltfMembers GltfMembersOf(const std::shared_ptr<const ExportPlan>& plan, const GltfPlace& place,
                          BinaryParts& parts) {
  return PlanWriter(plan, place, parts).Write();
}

std::string GltfBuffersOf(const BinaryParts& parts, const std::string& uri) {
  if (parts.Size() == 0) return "";
  JsonOut out;
  out.BeginObject().Key("buffers").BeginList().BeginObject();
  out.Key("byteLength").Int((long long)(parts.Size()));
  if (!uri.empty()) out.Key("uri").Text(uri);
  out.End().End();
  if (parts.All().front().unseen) return WithoutBraces(out.End().Str());
  out.Key("bufferViews").BeginList();
  for (const BinaryParts::Part& p : parts.All()) {
    if (p.unseen) break;
    out.BeginObject().Key("buffer").Int(0).Key("byteLength").Int((long long)(p.size));
    out.Key("byteOffset").Int((long long)(p.offset));
    if (p.stride > 0) out.Key("byteStride").Int(p.stride);
    if (p.target != 0) out.Key("target").Int(p.target);
    out.End();
  }
  out.End().End();
  return WithoutBraces(out.Str());
}

bool GltfFileOf(const std::shared_ptr<const ExportPlan>& plan, GltfForm form, std::string& bytes,
                std::string& error) {
  if (plan->meshes.empty()) return error = "a glTF file can't hold a mesh without faces", false;
  BinaryParts parts;
  const GltfMembers members = GltfMembersOf(plan, {"", true}, parts);
  std::string file, head = R"({"asset":{"version":"2.0","generator":"sowfield"},)";
  if (members.hasInstances)
    head += R"("extensionsUsed":[")" + std::string(kInstancingExtension) + R"("],)";
  const auto textWith = [&](const std::string& uri) {
    return head + GltfBuffersOf(parts, uri) + "," + members.text + "}";
  };
  const auto sink = [&file](std::span<const std::byte> piece) {
    file.append(reinterpret_cast<const char*>(piece.data()), piece.size());
    return true;
  };
  const std::string text = textWith("");
  if (GlbSize(text, parts) > kMostGlbBytes)
    return error = "the mesh is too large for a glTF file", false;
  if (form == GltfForm::Binary ? !WriteGlb(text, parts, sink) : !WriteParts(parts, sink))
    return error = "its instances changed while they were written", false;
  if (form == GltfForm::Json)
    file =
        textWith("data:application/octet-stream;base64," + Base64(std::as_bytes(std::span(file)))) +
        "\n";
  bytes = std::move(file);
  return true;
}

}  // namespace host
