#include "host/exchange/meshbuilder.h"

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

void CheckFinite(const std::vector<Point3>& points, const std::string& what) {
  for (size_t i = 0; i < points.size(); ++i)
    if (!IsFinite(points[i]))
      throw ImportFault(what + " " + std::to_string(i) + " is not a finite number");
}

void Check(const TrianglePart& part, const std::string& who) {
  CheckFinite(part.positions, who + ": vertex");
  CheckFinite(part.uvs, who + ": texture coordinate");
  for (const auto& uvs : part.moreUvs) CheckFinite(uvs, who + ": texture coordinate");
  for (const auto& target : part.targets) CheckFinite(target, who + ": morph target: vertex");
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

std::uint32_t MeshBuilder::AddVertex(const TrianglePart& part, std::uint32_t c) {
  const Point3& p = part.positions[c];
  verts_.push_back({p.x + 0.0f, p.y + 0.0f, p.z + 0.0f});
  for (size_t i = 0; i < part.targets.size(); ++i) {
    targets_[i].resize(verts_.size() - 1, Point3(0, 0, 0));
    targets_[i].push_back(part.targets[i][c]);
  }
  if (!part.bones.empty()) bones_.push_back(part.bones[c]);
  return std::uint32_t(verts_.size()) - 1;
}

std::uint32_t MeshBuilder::VertexOf(const TrianglePart& part, std::uint32_t c) {
  constexpr std::uint32_t kNew = 0xFFFFFFFF;
  if (part.targets.empty() && part.bones.empty()) {
    const std::uint32_t position = positions_.IndexOf(part.positions[c]);
    vertOfPosition_.resize(positions_.Points().size(), kNew);
    std::uint32_t& vertex = vertOfPosition_[position];
    return vertex == kNew ? vertex = AddVertex(part, c) : vertex;
  }
  std::string key;
  const auto append = [&key](const auto& value) {
    key.append(reinterpret_cast<const char*>(&value), sizeof value);
  };
  for (int k = 0; k < 3; ++k) append(part.positions[c][k] + 0.0f);
  for (const auto& target : part.targets)
    for (int k = 0; k < 3; ++k) append(target[c][k] + 0.0f);
  if (!part.bones.empty()) {
    append(part.bones[c].bone);
    append(part.bones[c].weight);
  }
  const auto [found, isNew] = moving_.try_emplace(std::move(key), 0);
  if (isNew) found->second = AddVertex(part, c);
  return found->second;
}

void MeshBuilder::AddMapFaces(Channel& channel, const std::vector<Point3>& uvs,
                              const std::vector<std::uint32_t>& corners) {
  if (uvs.empty() && !channel.used) return;
  // Faces of parts without texture coordinates take the corner of the texture.
  const bool early = !channel.used && !faces_.empty();
  const std::uint32_t zero = early || uvs.empty() ? channel.points.IndexOf({0, 0, 0}) : 0;
  channel.used = true;
  channel.faces.resize(faces_.size(), TVFace{{zero, zero, zero}});
  constexpr std::uint32_t kNew = 0xFFFFFFFF;
  std::vector<std::uint32_t> uvOf(uvs.size(), kNew);
  for (size_t i = 0; i + 2 < corners.size(); i += 3) {
    TVFace map{{zero, zero, zero}};
    for (size_t k = 0; k < 3 && !uvs.empty(); ++k) {
      const std::uint32_t c = corners[i + k];
      if (uvOf[c] == kNew) uvOf[c] = channel.points.IndexOf(uvs[c]);
      map.t[k] = uvOf[c];
    }
    channel.faces.push_back(map);
  }
}

void MeshBuilder::Add(const TrianglePart& part, const std::string& who) {
  Check(part, who);
  const MtlID slot = MtlID(SlotOf(part.material, who));
  if (!faces_.empty() && bones_.empty() != part.bones.empty())
    throw ImportFault(who + ": only some of its parts have bones");
  channels_.resize(std::max(channels_.size(), 1 + part.moreUvs.size()));
  AddMapFaces(channels_[0], part.uvs, part.corners);
  for (size_t i = 1; i < channels_.size(); ++i)
    AddMapFaces(channels_[i],
                i <= part.moreUvs.size() ? part.moreUvs[i - 1] : std::vector<Point3>(),
                part.corners);

  targets_.resize(std::max(targets_.size(), part.targets.size()));
  constexpr std::uint32_t kNew = 0xFFFFFFFF;
  std::vector<std::uint32_t> vertOf(part.positions.size(), kNew);
  for (size_t i = 0; i + 2 < part.corners.size(); i += 3) {
    Face face{{0, 0, 0}, IsSmooth(part, &part.corners[i]) ? 1u : 0u, 0};
    for (size_t k = 0; k < 3; ++k) {
      const std::uint32_t c = part.corners[i + k];
      if (vertOf[c] == kNew) vertOf[c] = VertexOf(part, c);
      face.v[k] = vertOf[c];
    }
    face.flags = part.edges.empty() ? EDGE_ALL : std::uint32_t(part.edges[i / 3]);
    face.setMatID(slot);
    faces_.push_back(face);
  }
}

PlannedMesh MeshBuilder::Take() {
  PlannedMesh made;
  made.mesh.verts.assign(verts_.begin(), verts_.end());
  made.mesh.faces.assign(faces_.begin(), faces_.end());
  made.mesh.setNumMaps(std::max(made.mesh.getNumMaps(), int(channels_.size()) + 1));
  for (size_t i = 0; i < channels_.size(); ++i) {
    if (!channels_[i].used) continue;
    MeshMap& map = made.mesh.maps[i + 1];
    map.verts = channels_[i].points.Points();
    map.faces = std::move(channels_[i].faces);
    map.used = true;
  }
  for (auto& target : targets_) target.resize(verts_.size(), Point3(0, 0, 0));
  made.targets = std::move(targets_);
  if (!bones_.empty()) made.skin.emplace().vertices = std::move(bones_);
  made.mesh.InvalidateGeomCache();
  made.slots = std::move(slots_);
  return made;
}

}  // namespace host
