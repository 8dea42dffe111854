#include "host/scene/mesh.h"

#include <algorithm>
#include <cassert>

namespace {

// Whoever is farther behind makes all anew.
constexpr size_t kMostSplices = 4096;

}  // namespace

std::uint64_t Mesh::NextStamp() {
  static std::uint64_t last = 0;
  return ++last;
}

void Mesh::Restamp() {
  stamp_ = NextStamp();
  splices_.clear();
  before_.clear();
}

void Mesh::Spliced(const MeshSplice& splice) {
  assert(splice.verts.first + splice.verts.added <= verts.size());
  assert(splice.faces.first + splice.faces.added <= faces.size());
  if (splices_.size() >= kMostSplices) {
    splices_.erase(splices_.begin(), splices_.begin() + kMostSplices / 2);
    before_.erase(before_.begin(), before_.begin() + kMostSplices / 2);
  }
  splices_.push_back(splice);
  before_.push_back(stamp_);
  stamp_ = NextStamp();
}

std::optional<std::span<const MeshSplice>> Mesh::SplicesSince(std::uint64_t stamp) const {
  if (stamp == stamp_) return std::span<const MeshSplice>();
  const auto at = std::find(before_.rbegin(), before_.rend(), stamp);
  if (at == before_.rend()) return std::nullopt;
  const auto behind = size_t(at - before_.rbegin()) + 1;
  return std::span(splices_).last(behind);
}

void Mesh::setNumVerts(int n, bool keep) {
  if (!keep) verts.clear();
  verts.resize(size_t(n));
  InvalidateGeomCache();
}

void Mesh::setNumFaces(int n, bool keep) {
  const size_t old = keep ? faces.size() : 0;
  if (!keep) faces.clear();
  faces.resize(size_t(n));
  for (size_t i = old; i < faces.size(); ++i) faces[i] = {{0, 0, 0}, 0, 0};
  InvalidateTopologyCache();
}

void Mesh::setNumTVerts(int n) {
  if (n > 0 && maps.size() < 2) maps.resize(2);
  if (maps.size() > 1) maps[1].verts.resize(size_t(n));
}

void Mesh::setNumTVFaces(int n) {
  if (n > 0 && maps.size() < 2) maps.resize(2);
  if (maps.size() > 1) {
    maps[1].faces.resize(size_t(n), TVFace{});
    maps[1].used = n > 0;
  }
}

bool Mesh::mapSupport(int channel) const {
  return channel >= 0 && channel < getNumMaps() && maps[size_t(channel)].used;
}

void Mesh::setMapSupport(int channel, bool on) {
  MeshMap& map = maps[size_t(channel)];
  map = {};
  map.used = on;
  if (on) map.faces.assign(faces.size(), TVFace{});
}

int Mesh::getNumMapVerts(int channel) const {
  return channel >= 0 && channel < getNumMaps() ? int(maps[size_t(channel)].verts.size()) : 0;
}

Box3 Mesh::getBoundingBox(const Matrix3* tm) const {
  Box3 box;
  if (tm) {
    for (const Point3& v : verts) box += v * *tm;
  } else {
    for (const Point3& v : verts) box += v;
  }
  return box;
}

std::string Mesh::FirstFault() const {
  for (size_t i = 0; i < verts.size(); ++i)
    if (!IsFinite(verts[i])) return "vertex " + std::to_string(i) + " is not a finite number";
  for (size_t i = 0; i < faces.size(); ++i) {
    for (const std::uint32_t v : faces[i].v) {
      if (v < verts.size()) continue;
      return "face " + std::to_string(i) + " uses vertex " + std::to_string(v) +
             ", but there are only " + std::to_string(verts.size());
    }
  }
  for (size_t c = 0; c < maps.size(); ++c) {
    const MeshMap& map = maps[c];
    if (!map.used) continue;
    if (map.faces.size() != faces.size())
      return "map channel " + std::to_string(c) + " has " + std::to_string(map.faces.size()) +
             " faces, the mesh " + std::to_string(faces.size());
    for (size_t i = 0; i < map.faces.size(); ++i)
      for (const std::uint32_t t : map.faces[i].t)
        if (t >= map.verts.size())
          return "face " + std::to_string(i) + " of map channel " + std::to_string(c) +
                 " uses vertex " + std::to_string(t) + ", but there are only " +
                 std::to_string(map.verts.size());
  }
  return {};
}

namespace {

Point3 AreaNormal(const Mesh& mesh, const Face& f) {
  const Point3 &a = mesh.verts[f.v[0]], &b = mesh.verts[f.v[1]], &c = mesh.verts[f.v[2]];
  return CrossProd(b - a, c - a);
}

}  // namespace

std::vector<Point3> CornerNormals(const Mesh& mesh) {
  // Faces round each vertex, as one table with a start per vertex.
  std::vector<std::uint32_t> start(mesh.verts.size() + 1, 0);
  for (const Face& f : mesh.faces)
    for (const std::uint32_t v : f.v) ++start[v + 1];
  for (size_t i = 1; i < start.size(); ++i) start[i] += start[i - 1];
  std::vector<std::uint32_t> around(mesh.faces.size() * 3);
  std::vector<std::uint32_t> next(start.begin(), start.end() - 1);
  for (size_t i = 0; i < mesh.faces.size(); ++i)
    for (const std::uint32_t v : mesh.faces[i].v) around[next[v]++] = std::uint32_t(i);

  std::vector<Point3> own(mesh.faces.size());
  for (size_t i = 0; i < own.size(); ++i) own[i] = AreaNormal(mesh, mesh.faces[i]);

  std::vector<Point3> normals(mesh.faces.size() * 3);
  for (size_t i = 0; i < mesh.faces.size(); ++i) {
    const Face& f = mesh.faces[i];
    for (int k = 0; k < 3; ++k) {
      Point3 sum = own[i];
      if (f.smGroup != 0) {
        sum = {0, 0, 0};
        for (std::uint32_t j = start[f.v[k]]; j < start[f.v[k] + 1]; ++j)
          if (mesh.faces[around[j]].smGroup & f.smGroup) sum += own[around[j]];
      }
      normals[i * 3 + size_t(k)] = Normalize(sum);
    }
  }
  return normals;
}
