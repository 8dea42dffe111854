#include "host/exchange/objtext.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <iterator>
#include <unordered_map>
#include <vector>

namespace host {

namespace {

// Numbers equal things in the order in which they come.
class Numbering {
 public:
  using Key = std::array<std::uint32_t, 3>;
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
  Numbering directions;
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

}  // namespace host
