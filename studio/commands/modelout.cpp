#include "studio/commands/modelout.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstring>
#include <limits>
#include <map>
#include <nlohmann/json.hpp>
#include <unordered_map>

namespace studio {
namespace {

using nlohmann::json;

// Numbers equal things in the order in which they come.
template <size_t N>
class Numbering {
 public:
  using Key = std::array<std::uint32_t, N>;
  std::uint32_t Of(const Key& key) {
    const auto [found, isNew] = numbers_.try_emplace(key, std::uint32_t(keys.size()));
    if (isNew) keys.push_back(key);
    return found->second;
  }
  std::vector<Key> keys;

 private:
  struct Hash {
    size_t operator()(const Key& key) const {
      std::uint64_t hash = 0;
      for (const std::uint32_t part : key) hash = (hash ^ part) * 0x9E3779B97F4A7C15;
      return size_t(hash ^ hash >> 32);
    }
  };
  std::unordered_map<Key, std::uint32_t, Hash> numbers_;
};

float OrZero(float value) { return std::isfinite(value) ? value : 0; }

std::array<std::uint32_t, 3> BitsOf(const Point3& p) {
  return {std::bit_cast<std::uint32_t>(p.x), std::bit_cast<std::uint32_t>(p.y),
          std::bit_cast<std::uint32_t>(p.z)};
}
Point3 FromBits(std::uint32_t x, std::uint32_t y, std::uint32_t z) {
  return {std::bit_cast<float>(x), std::bit_cast<float>(y), std::bit_cast<float>(z)};
}

std::vector<Point3> NormalsIfSmoothed(const Mesh& mesh) {
  const bool any = std::any_of(mesh.faces.begin(), mesh.faces.end(),
                               [](const Face& f) { return f.smGroup != 0; });
  return any ? CornerNormals(mesh) : std::vector<Point3>{};
}

// As a line of three numbers; Z turns to Y.
void PutPoint(fmt::memory_buffer& text, const char* what, const Point3& p) {
  fmt::format_to(std::back_inserter(text), "{} {} {} {}\n", what, p.x, p.z, -p.y);
}

std::string OnOneLine(std::string name) {
  for (char& c : name)
    if (std::uint8_t(c) < 0x20 || c == 0x7F) c = '_';
  // A line that ends in one goes on in the next.
  if (name.ends_with('\\')) name.back() = '_';
  return name;
}

std::string Base64(const std::string& bytes) {
  static constexpr char kDigits[] =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  text.reserve((bytes.size() + 2) / 3 * 4);
  for (size_t i = 0; i < bytes.size(); i += 3) {
    std::uint32_t group = 0;
    for (size_t k = i; k < i + 3; ++k)
      group = group << 8 | (k < bytes.size() ? std::uint8_t(bytes[k]) : 0u);
    for (size_t k = 0; k < 4; ++k)
      text += i + k <= bytes.size() ? kDigits[group >> (18 - 6 * k) & 63] : '=';
  }
  return text;
}

/// The buffer of a glTF, with the views and accessors of its arrays.
class GltfBuffer {
 public:
  /// Returns the number of the accessor.
  template <class T>
  size_t Add(const std::vector<T>& values, const char* shape, int component) {
    const size_t bytes = values.size() * sizeof(T);
    views_.push_back({{"buffer", 0}, {"byteOffset", data_.size()}, {"byteLength", bytes}});
    data_.append(reinterpret_cast<const char*>(values.data()), bytes);
    accessors_.push_back({{"bufferView", views_.size() - 1},
                          {"componentType", component},
                          {"type", shape},
                          {"count", values.size()}});
    return accessors_.size() - 1;
  }
  void SetRange(size_t accessor, const Box3& box) {
    accessors_[accessor]["min"] = {box.pmin.x, box.pmin.y, box.pmin.z};
    accessors_[accessor]["max"] = {box.pmax.x, box.pmax.y, box.pmax.z};
  }
  void PutInto(json& root) const {
    root["bufferViews"] = views_;
    root["accessors"] = accessors_;
    root["buffers"] = json::array({{{"byteLength", data_.size()}}});
  }
  const std::string& Data() const { return data_; }

 private:
  json views_ = json::array(), accessors_ = json::array();
  std::string data_;
};

constexpr int kFloat = 5126, kUnsigned = 5125;

// The arrays of a mesh, one vertex for all corners that agree in everything, and its primitives.
json PrimitivesOf(const Mesh& mesh, GltfBuffer& buffer, json& materials) {
  const std::vector<Point3> normals = NormalsIfSmoothed(mesh);
  const bool textured = mesh.mapSupport(1);
  Numbering<5> corners;  // vertex, texture vertex, normal
  std::map<MtlID, std::vector<std::uint32_t>> indices;
  for (size_t i = 0; i < mesh.faces.size(); ++i)
    for (size_t k = 0; k < 3; ++k) {
      const auto n = normals.empty() ? std::array<std::uint32_t, 3>{} : BitsOf(normals[i * 3 + k]);
      const std::uint32_t t = textured ? mesh.maps[1].faces[i].t[k] : 0;
      indices[mesh.faces[i].getMatID()].push_back(
          corners.Of({mesh.faces[i].v[k], t, n[0], n[1], n[2]}));
    }

  std::vector<Point3> points, directions;
  std::vector<std::array<float, 2>> uvs;
  Box3 box;
  for (const auto& [v, t, nx, ny, nz] : corners.keys) {
    points.push_back(mesh.verts[v]);
    box += mesh.verts[v];
    if (!normals.empty()) directions.push_back(FromBits(nx, ny, nz));
    // A face without area has no direction, but the format wants one.
    if (!normals.empty() && !(Length(directions.back()) > 0.5f)) directions.back() = {0, 0, 1};
    // The format counts v from the top.
    if (textured) {
      const Point3& uv = mesh.maps[1].verts[t];
      uvs.push_back({OrZero(uv.x), OrZero(1 - uv.y)});
    }
  }
  json attributes = {{"POSITION", buffer.Add(points, "VEC3", kFloat)}};
  buffer.SetRange(attributes["POSITION"], box);
  if (!directions.empty()) attributes["NORMAL"] = buffer.Add(directions, "VEC3", kFloat);
  if (textured) attributes["TEXCOORD_0"] = buffer.Add(uvs, "VEC2", kFloat);

  json primitives = json::array();
  for (const auto& [id, list] : indices) {
    primitives.push_back({{"attributes", attributes},
                          {"indices", buffer.Add(list, "SCALAR", kUnsigned)},
                          {"material", materials.size()}});
    materials.push_back({{"name", fmt::format("material {}", id)}});
  }
  return primitives;
}

void PutWord(std::string& to, std::uint64_t value) {
  const auto word = std::uint32_t(value);
  to.append(reinterpret_cast<const char*>(&word), sizeof word);
}

std::string Container(std::string text, std::string data) {
  text.append((4 - text.size() % 4) % 4, ' ');
  data.append((4 - data.size() % 4) % 4, '\0');
  std::string all = "glTF";
  PutWord(all, 2), PutWord(all, 28 + text.size() + data.size());
  PutWord(all, text.size());
  all += "JSON" + text;
  PutWord(all, data.size());
  return all.append("BIN\0", 4) + data;
}

}  // namespace

std::string ObjOf(const Mesh& mesh, const std::string& name) {
  fmt::memory_buffer text;
  const auto put = std::back_inserter(text);
  fmt::format_to(put, "o {}\n", OnOneLine(name));
  for (const Point3& v : mesh.verts) PutPoint(text, "v", v);
  const bool textured = mesh.mapSupport(1);
  if (textured)
    for (const Point3& t : mesh.maps[1].verts)
      fmt::format_to(put, "vt {} {}\n", OrZero(t.x), OrZero(t.y));
  const std::vector<Point3> normals = NormalsIfSmoothed(mesh);
  Numbering<3> directions;
  std::vector<std::uint32_t> ofCorner;
  for (const Point3& n : normals) ofCorner.push_back(directions.Of(BitsOf(n)));
  for (const auto& [x, y, z] : directions.keys) PutPoint(text, "vn", FromBits(x, y, z));

  const bool named = std::any_of(mesh.faces.begin(), mesh.faces.end(),
                                 [](const Face& f) { return f.getMatID() != 0; });
  int group = 0, material = -1;
  for (size_t i = 0; i < mesh.faces.size(); ++i) {
    const Face& face = mesh.faces[i];
    const int own = face.smGroup == 0 ? 0 : std::countr_zero(face.smGroup) + 1;
    if (own != group) fmt::format_to(put, "s {}\n", own);
    if (named && face.getMatID() != material)
      fmt::format_to(put, "usemtl material_{}\n", face.getMatID());
    group = own, material = face.getMatID();
    fmt::format_to(put, "f");
    for (size_t k = 0; k < 3; ++k) {
      fmt::format_to(put, " {}", face.v[k] + 1);
      if (textured) fmt::format_to(put, "/{}", mesh.maps[1].faces[i].t[k] + 1);
      if (!normals.empty())
        fmt::format_to(put, "{}{}", textured ? "/" : "//", ofCorner[i * 3 + k] + 1);
    }
    fmt::format_to(put, "\n");
  }
  return fmt::to_string(text);
}

bool GltfOf(const Mesh& mesh, const std::string& name, double metresPerUnit, GltfForm form,
            std::string& bytes, std::string& error) {
  if (mesh.faces.empty()) return error = "a glTF file can't hold a mesh without faces", false;
  GltfBuffer buffer;
  json materials = json::array();
  const json primitives = PrimitivesOf(mesh, buffer, materials);
  if (buffer.Data().size() > std::numeric_limits<std::uint32_t>::max() - (1u << 20))
    return error = "the mesh is too large for a glTF file", false;

  const double s = metresPerUnit;
  json root = {{"asset", {{"version", "2.0"}, {"generator", "sowfield"}}},
               {"scene", 0},
               {"scenes", {{{"nodes", {0}}}}},
               {"meshes", {{{"name", name}, {"primitives", primitives}}}},
               {"materials", materials}};
  root["nodes"] = {
      {{"name", name}, {"mesh", 0}, {"matrix", {s, 0, 0, 0, 0, 0, -s, 0, 0, s, 0, 0, 0, 0, 0, 1}}}};
  buffer.PutInto(root);
  const auto lenient = json::error_handler_t::replace;
  if (form == GltfForm::Binary) {
    bytes = Container(root.dump(-1, ' ', false, lenient), buffer.Data());
  } else {
    root["buffers"][0]["uri"] = "data:application/octet-stream;base64," + Base64(buffer.Data());
    bytes = root.dump(1, ' ', false, lenient) + "\n";
  }
  return true;
}

}  // namespace studio
