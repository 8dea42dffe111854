#include "host/io/meshbuilder.h"

#include <algorithm>
#include <bit>
#include <cmath>

namespace host {

namespace {

std::uint64_t HashOf(const Point3& p) {
  std::uint64_t h = 0;
  for (int i = 0; i < 3; ++i) {
    h = (h ^ std::bit_cast<std::uint32_t>(p[i])) * 0x9E3779B97F4A7C15u;
    h ^= h >> 29;
  }
  return h;
}

// A corner normal this close to the face's (about 0.8 degrees) follows it.
constexpr double kFollows = 0.9999;

bool IsSmooth(const TrianglePart& part, const std::uint32_t* c) {
  if (part.normals.empty()) return false;
  const Point3 &a = part.positions[c[0]], &b = part.positions[c[1]], &d = part.positions[c[2]];
  const Point3 own = Normalize(CrossProd(b - a, d - a));
  if (!(DotProd(own, own) > 0.5f)) return false;  // a face without area has no normal
  for (int k = 0; k < 3; ++k)
    if (!(DotProd(own, Normalize(part.normals[c[k]])) >= kFollows)) return true;
  return false;
}

void Check(const TrianglePart& part, const std::string& who) {
  for (size_t i = 0; i < part.positions.size(); ++i)
    if (!IsFinite(part.positions[i]))
      throw ImportFault(who + ": vertex " + std::to_string(i) + " is not a finite number");
  for (size_t i = 0; i < part.uvs.size(); ++i)
    if (!IsFinite(part.uvs[i]))
      throw ImportFault(who + ": texture coordinate " + std::to_string(i) +
                        " is not a finite number");
  for (size_t i = 0; i < part.corners.size(); ++i)
    if (part.corners[i] >= part.positions.size())
      throw ImportFault(who + ": face " + std::to_string(i / 3) + " uses vertex " +
                        std::to_string(part.corners[i]) + ", but there are only " +
                        std::to_string(part.positions.size()));
}

}  // namespace

std::uint32_t PointWelder::IndexOf(const Point3& p) {
  const Point3 key(p.x + 0.0f, p.y + 0.0f, p.z + 0.0f);  // -0 + 0 is 0
  if (points_.size() * 2 >= table_.size()) Grow();
  const size_t mask = table_.size() - 1;
  for (size_t at = HashOf(key) & mask;; at = (at + 1) & mask) {
    if (table_[at] == 0) {
      points_.push_back(key);
      table_[at] = std::uint32_t(points_.size());
      return table_[at] - 1;
    }
    if (points_[table_[at] - 1] == key) return table_[at] - 1;
  }
}

void PointWelder::Grow() {
  table_.assign(std::max<size_t>(64, table_.size() * 2), 0);
  const size_t mask = table_.size() - 1;
  for (size_t i = 0; i < points_.size(); ++i) {
    size_t at = HashOf(points_[i]) & mask;
    while (table_[at] != 0) at = (at + 1) & mask;
    table_[at] = std::uint32_t(i + 1);
  }
}

int MeshBuilder::SlotOf(int material, const std::string& who) {
  const auto found = std::find(slots_.begin(), slots_.end(), material);
  if (found != slots_.end()) return int(found - slots_.begin());
  if (slots_.size() > 0xFFFF) throw ImportFault(who + ": more than 65536 materials");
  slots_.push_back(material);
  return int(slots_.size()) - 1;
}

void MeshBuilder::Add(const TrianglePart& part, const std::string& who) {
  Check(part, who);
  const MtlID slot = MtlID(SlotOf(part.material, who));
  constexpr std::uint32_t kNew = 0xFFFFFFFF;
  std::vector<std::uint32_t> vertOf(part.positions.size(), kNew), uvOf(part.uvs.size(), kNew);

  if (!part.uvs.empty() && !mapped_) {
    // Faces before the first part with texture coordinates take the corner of the texture.
    mapped_ = true;
    const std::uint32_t zero = faces_.empty() ? 0 : uvs_.IndexOf({0, 0, 0});
    mapFaces_.assign(faces_.size(), TVFace{{zero, zero, zero}});
  }
  const std::uint32_t noUv = mapped_ && part.uvs.empty() ? uvs_.IndexOf({0, 0, 0}) : 0;

  for (size_t i = 0; i + 2 < part.corners.size(); i += 3) {
    Face face{{0, 0, 0}, IsSmooth(part, &part.corners[i]) ? 1u : 0u, 0};
    TVFace map{{noUv, noUv, noUv}};
    for (size_t k = 0; k < 3; ++k) {
      const std::uint32_t c = part.corners[i + k];
      if (vertOf[c] == kNew) vertOf[c] = verts_.IndexOf(part.positions[c]);
      face.v[k] = vertOf[c];
      if (part.uvs.empty()) continue;
      if (uvOf[c] == kNew) uvOf[c] = uvs_.IndexOf(part.uvs[c]);
      map.t[k] = uvOf[c];
    }
    face.flags = part.edges.empty() ? EDGE_ALL : std::uint32_t(part.edges[i / 3]);
    face.setMatID(slot);
    faces_.push_back(face);
    if (mapped_) mapFaces_.push_back(map);
  }
}

PlannedMesh MeshBuilder::Take() {
  PlannedMesh made;
  made.mesh.verts.assign(verts_.Points().begin(), verts_.Points().end());
  made.mesh.faces.assign(faces_.begin(), faces_.end());
  if (mapped_) {
    made.mesh.maps[1].verts = uvs_.Points();
    made.mesh.maps[1].faces = std::move(mapFaces_);
    made.mesh.maps[1].used = true;
  }
  made.mesh.InvalidateGeomCache();
  made.slots = std::move(slots_);
  return made;
}

}  // namespace host
