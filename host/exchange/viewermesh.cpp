#include "host/exchange/viewermesh.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <map>
#include <unordered_map>

#include "host/interface.h"

namespace host {

namespace {

struct Corner {
  std::uint32_t vertex, uv;
  std::uint32_t normal[3];  // bits
  bool operator==(const Corner&) const = default;
};

struct CornerHash {
  size_t operator()(const Corner& c) const {
    std::uint64_t h = c.vertex;
    for (const std::uint32_t part : {c.uv, c.normal[0], c.normal[1], c.normal[2]})
      h = (h ^ part) * 0x9E3779B97F4A7C15u + (h >> 29);
    return size_t(h);
  }
};

struct Growing {
  ViewerPart part;
  std::unordered_map<Corner, std::uint32_t, CornerHash> known;
};

// The parts, still empty, and which of them each material id has.
struct Sorted {
  std::vector<Growing> parts;
  std::map<int, size_t> partOfId;
};

Sorted SortById(const Mesh& mesh, const std::function<int(int id)>& materialOf) {
  Sorted sorted;
  int last = -1;
  for (const Face& face : mesh.faces)
    if (face.getMatID() != last) sorted.partOfId.try_emplace(last = face.getMatID(), 0);
  std::map<int, size_t> partOfMaterial;
  for (auto& [id, part] : sorted.partOfId) {
    const int material = materialOf(id);
    const auto [at, isNew] = partOfMaterial.try_emplace(material, sorted.parts.size());
    part = at->second;
    if (isNew) sorted.parts.emplace_back().part.triangles.material = material;
  }
  return sorted;
}

// A face without area has no normal of its own.
Point3 UnitNormal(const Point3& n) {
  const Point3 unit = Normalize(n);
  const float length = Length(unit);
  return std::isfinite(length) && length > 0.5f ? unit : Point3(0, 0, 1);
}

Mesh Bake(const Mesh& mesh, const Matrix3& tm) {
  Mesh copy = mesh;
  for (Point3& v : copy.verts) {
    const Point3 moved = v * tm;
    v = IsFinite(moved) ? moved : Point3(0, 0, 0);
  }
  if (tm.Determinant() < 0) {
    for (Face& f : copy.faces) std::swap(f.v[1], f.v[2]);
    for (MeshMap& m : copy.maps)
      for (TVFace& f : m.faces) std::swap(f.t[1], f.t[2]);
  }
  return copy;
}

}  // namespace

std::vector<ViewerPart> ViewerParts(const Mesh& source, const Matrix3* baked,
                                    const std::function<int(int id)>& materialOf) {
  Mesh moved;
  if (baked) moved = Bake(source, *baked);
  const Mesh& mesh = baked ? moved : source;
  const std::vector<Point3> normals = CornerNormals(mesh);
  const MeshMap* map = mesh.mapSupport(1) ? &mesh.maps[1] : nullptr;

  Sorted sorted = SortById(mesh, materialOf);
  if (sorted.parts.empty()) return {};
  int last = mesh.faces[0].getMatID();
  Growing* g = &sorted.parts[sorted.partOfId.at(last)];
  for (size_t f = 0; f < mesh.faces.size(); ++f) {
    const Face& face = mesh.faces[f];
    if (face.getMatID() != last) g = &sorted.parts[sorted.partOfId.at(last = face.getMatID())];
    TrianglePart& part = g->part.triangles;
    for (size_t k = 0; k < 3; ++k) {
      const Point3 normal = UnitNormal(normals[f * 3 + k]);
      Corner corner{face.v[k], map ? map->faces[f].t[k] : 0, {}};
      std::memcpy(corner.normal, &normal, sizeof corner.normal);
      const auto next = std::uint32_t(part.positions.size());
      const auto [at, fresh] = g->known.emplace(corner, next);
      part.corners.push_back(at->second);
      if (!fresh) continue;
      part.positions.push_back(mesh.verts[corner.vertex]);
      part.normals.push_back(normal);
      g->part.vertices.push_back(corner.vertex);
      if (!map) continue;
      const Point3& uv = map->verts[corner.uv];
      part.uvs.push_back(IsFinite(uv) ? Point3(uv.x, uv.y, 0) : Point3(0, 0, 0));
    }
  }
  std::vector<ViewerPart> parts;
  for (Growing& grown : sorted.parts) parts.push_back(std::move(grown.part));
  return parts;
}

std::vector<Point3> ViewerLine(const Spline3D& spline, const Matrix3* baked) {
  std::vector<Point3> points;
  for (const Point3& knot : spline.Knots()) {
    points.push_back(baked ? knot * *baked : knot);
    if (!IsFinite(points.back())) return {};
  }
  if (points.size() < 2) points.clear();
  return points;
}

Mesh StartOf(const MeshMotion& motion) {
  Mesh mesh = motion.base;
  if (motion.frames.empty()) return mesh;
  const KeyPlace place = PlaceAmong(motion.frameTimes, 0);
  const auto part = float(place.part);
  for (size_t v = 0; v < mesh.verts.size(); ++v) {
    Point3 at = motion.frames[place.key][v];
    if (part > 0) at = at * (1 - part) + motion.frames[place.key + 1][v] * part;
    if (IsFinite(at)) mesh.verts[v] = at;
  }
  return mesh;
}

std::optional<std::vector<VertexBones>> ViewerBones(const MeshMotion& motion) {
  constexpr double kRounding = 1e-3;
  std::vector<VertexBones> all;
  if (motion.vertexBones.size() != motion.base.verts.size()) return std::nullopt;
  for (const VertexBones& from : motion.vertexBones) {
    VertexBones to{};
    double sum = 0;
    int used = 0;
    for (int k = 0; k < 4; ++k) {
      if (from.weight[k] == 0) continue;
      if (!(from.weight[k] > 0) || from.bone[k] >= motion.inverseBind.size()) return std::nullopt;
      const int known = int(std::find(to.bone, to.bone + used, from.bone[k]) - to.bone);
      to.bone[known] = from.bone[k];
      to.weight[known] += from.weight[k];
      used = std::max(used, known + 1);
      sum += double(from.weight[k]);
    }
    if (!(std::fabs(sum - 1) < kRounding)) return std::nullopt;
    for (float& weight : to.weight) weight = float(weight / sum);
    all.push_back(to);
  }
  return all;
}

PlannedTrack ViewerKeys(const Track& track, bool turns) {
  constexpr size_t kMostSamples = 100'000;
  if (!track.IsKeyed()) return {};
  for (const float v : track.KeyValues())
    if (!std::isfinite(v)) return {};
  const TimeValue last = track.Times().back();
  if (last <= 0) return {};

  PlannedTrack keys;
  std::vector<TimeValue> wanted;
  const bool early = track.Times().front() < 0;
  const bool sampled = early && track.Shape() == KeyShape::Cubic;
  keys.shape = sampled ? KeyShape::Linear : track.Shape();
  if (early) wanted.push_back(0);
  if (sampled) {
    for (std::int64_t t = GetTicksPerFrame(); t < last && wanted.size() < kMostSamples;
         t += GetTicksPerFrame())
      wanted.push_back(TimeValue(t));
    wanted.push_back(last);
  } else {
    for (const TimeValue t : track.Times())
      if (t > 0 || (t == 0 && !early)) wanted.push_back(t);
  }
  const size_t w = track.Width();
  std::vector<double> now(w);
  for (const TimeValue t : wanted) {
    const auto seconds = float(double(t) / TIME_TICKSPERSEC);
    if (!keys.IsEmpty() && seconds <= keys.times.back()) continue;
    keys.times.push_back(seconds);
    if (keys.shape == KeyShape::Cubic) {
      const auto key = std::lower_bound(track.Times().begin(), track.Times().end(), t);
      const float* from = &track.KeyValues()[size_t(key - track.Times().begin()) * w * 3];
      keys.values.insert(keys.values.end(), from, from + w * 3);
      continue;
    }
    Interval valid = FOREVER;
    turns ? track.RotationAt(t, now.data(), valid) : track.At(t, now.data(), valid);
    for (const double value : now) keys.values.push_back(float(value));
  }
  return keys;
}

}  // namespace host
