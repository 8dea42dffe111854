#include "host/painter/raycaster.h"

#include <embree3/rtcore.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <string>
#include <unordered_set>

#include "host/core/errors.h"
#include "host/scene/simpleobject.h"

// Embree's distances differ in their last bits between instruction sets, and so does the triangle
// that it takes for the nearest where two meet. A stroke has to replay to the same bits anywhere.
// So Embree only names triangles: the filter refuses each one that a ray crosses, which makes
// Embree go on to the next, and the hit is worked out and chosen here, in double from the float
// vertices, rounded once.

namespace host {
namespace {

struct Vec {
  double x, y, z;
  Vec(double px, double py, double pz) : x(px), y(py), z(pz) {}
  explicit Vec(const Point3& p) : x(p.x), y(p.y), z(p.z) {}
  Vec operator+(const Vec& o) const { return {x + o.x, y + o.y, z + o.z}; }
  Vec operator-(const Vec& o) const { return {x - o.x, y - o.y, z - o.z}; }
  Vec operator*(double s) const { return {x * s, y * s, z * s}; }
  Point3 Rounded() const { return {float(x), float(y), float(z)}; }
};

double Dot(const Vec& a, const Vec& b) { return a.x * b.x + a.y * b.y + a.z * b.z; }

Vec Cross(const Vec& a, const Vec& b) {
  return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}

// Embree itself stops at 1.8e18.
constexpr float kLargest = 1.0e18f;

bool InRange(const Point3& p) {
  return std::fabs(p.x) <= kLargest && std::fabs(p.y) <= kLargest && std::fabs(p.z) <= kLargest;
}

bool Usable(const Point3& a, const Point3& b, const Point3& c) {
  if (!InRange(a) || !InRange(b) || !InRange(c)) return false;
  const Vec n = Cross(Vec(b) - Vec(a), Vec(c) - Vec(a));
  return Dot(n, n) > 0.0;
}

// The mesh of an object that holds one: conversion would copy it.
const Mesh* MeshInPlace(Object* object, TimeValue t) {
  if (!object || !object->CanConvertToType(triObjectClassID)) return nullptr;
  if (auto* simple = dynamic_cast<SimpleObject2*>(object)) {
    simple->UpdateMesh(t);
    return &simple->mesh;
  }
  if (auto* tri = dynamic_cast<TriObject*>(object)) return &tri->mesh;
  return nullptr;
}

}  // namespace

/// One ray on its way through the triangles that Embree names.
struct RayCaster::Search : RTCIntersectContext {
  Search(const Vec& o, const Vec& d, double r) : from(o), dir(d), reach(r) {
    rtcInitIntersectContext(this);
  }

  Vec from, dir;  // dir has unit length
  double reach;
  unsigned onlyTarget = RTC_INVALID_GEOMETRY_ID;  // where there are no instances
  bool hit = false;
  double distance = 0;
  unsigned target = 0, triangle = 0;
  Vec point{0, 0, 0}, across{0, 0, 1};  // the latter of any length

  static void Consider(const RTCFilterFunctionNArguments* args) {
    auto& search = *static_cast<Search*>(args->context);
    const auto& mesh = *static_cast<const NodeMesh*>(args->geometryUserPtr);
    for (unsigned i = 0; i < args->N; ++i) {
      if (args->valid[i] == 0) continue;
      const unsigned instance = RTCHitN_instID(args->hit, args->N, i, 0);
      search.Meet(mesh, instance == RTC_INVALID_GEOMETRY_ID ? search.onlyTarget : instance,
                  RTCHitN_primID(args->hit, args->N, i));
      args->valid[i] = 0;
    }
  }

  // Möller and Trumbore, "Fast, Minimum Storage Ray/Triangle Intersection", 1997, with the
  // triangle given: a crossing that lies outside it by rounding is brought to its border.
  void Meet(const NodeMesh& mesh, unsigned targetIndex, unsigned triangleIndex) {
    const std::uint32_t* corner = mesh.corners + size_t(triangleIndex) * 3;
    const Vec a(mesh.verts[corner[0]]);
    const Vec e1 = Vec(mesh.verts[corner[1]]) - a, e2 = Vec(mesh.verts[corner[2]]) - a;
    const Vec p = Cross(dir, e2);
    const double overDet = 1.0 / Dot(e1, p);
    const Vec s = from - a;
    double u = Dot(s, p) * overDet;
    double v = Dot(dir, Cross(s, e1)) * overDet;
    if (!std::isfinite(u) || !std::isfinite(v)) return;  // the ray runs in the triangle's plane
    u = std::clamp(u, 0.0, 1.0);
    v = std::clamp(v, 0.0, 1.0);
    if (const double sum = u + v; sum > 1.0) u /= sum, v /= sum;

    const Vec at = a + e1 * u + e2 * v;
    const double way = Dot(at - from, dir);
    if (!(way >= 0.0 && way <= reach)) return;
    if (hit && way > distance) return;
    if (hit && way == distance &&
        std::pair(targetIndex, triangleIndex) > std::pair(target, triangle))
      return;
    hit = true;
    distance = way;
    target = targetIndex, triangle = triangleIndex;
    point = at;
    across = Cross(e1, e2);
  }

  // Of unit length, towards where the ray came from.
  Vec Normal() const {
    return across * ((Dot(across, dir) > 0.0 ? -1.0 : 1.0) / std::sqrt(Dot(across, across)));
  }
};

void RayCaster::ReleaseDevice::operator()(RTCDeviceTy* device) const { rtcReleaseDevice(device); }
void RayCaster::ReleaseScene::operator()(RTCSceneTy* scene) const { rtcReleaseScene(scene); }

RayCaster::RayCaster() = default;
RayCaster::~RayCaster() = default;

RTCDeviceTy* RayCaster::Device() {
  if (!device_) {
    device_.reset(rtcNewDevice(nullptr));
    CheckDevice();
  }
  return device_.get();
}

void RayCaster::CheckDevice() const {
  const RTCError error = rtcGetDeviceError(device_.get());
  if (error != RTC_ERROR_NONE)
    throw Error("the meshes can't be made ready for painting: Embree reports error " +
                std::to_string(int(error)));
}

void RayCaster::SetTargets(std::span<INode* const> nodes, TimeValue t) {
  std::vector<INode*> list;
  std::unordered_set<const INode*> known;
  for (INode* n : nodes)
    if (n && known.insert(n).second) list.push_back(n);
  for (INode* n : list) meshes_.try_emplace(n);
  if (list != targets_) {
    targets_ = std::move(list);
    topStale_ = true;
  }
  Update(t);
}

void RayCaster::Update(TimeValue t) {
  // An object may take nodes out of the scene while its mesh is made, so over a copy.
  const std::vector<INode*> list = targets_;
  for (INode* n : list)
    if (meshes_.contains(n)) Refresh(n, t);
}

void RayCaster::Refresh(INode* node, TimeValue t) {
  Object* object = node->EvalWorldState(t).obj;
  const Pin<Object> alive(object);  // making its mesh may delete its last node
  EvaluatedMesh converted;
  const Mesh* mesh = MeshInPlace(object, t);
  if (!mesh) {
    converted = MeshOf(object, t);
    mesh = converted.mesh;
  }
  const auto found = meshes_.find(node);
  if (found == meshes_.end()) return;  // it went while it was evaluated
  NodeMesh& entry = found->second;

  const std::uint64_t stamp = mesh ? mesh->Stamp() : 0;
  const Matrix3 tm = node->GetObjectTM(t);
  if (entry.stamp == stamp && (stamp == 0 || entry.tm == tm)) return;
  topStale_ = true;
  top_.reset();
  entry = {};
  if (!mesh) return;
  entry.tm = tm;
  Build(entry, *mesh);
  entry.stamp = stamp;
}

void RayCaster::Build(NodeMesh& entry, const Mesh& mesh) {
  ++built_;
  if (mesh.verts.empty()) return;
  struct ReleaseGeometry {
    void operator()(RTCGeometry g) const { rtcReleaseGeometry(g); }
  };
  const std::unique_ptr<RTCGeometryTy, ReleaseGeometry> geometry(
      rtcNewGeometry(Device(), RTC_GEOMETRY_TYPE_TRIANGLE));
  auto* verts = static_cast<Point3*>(rtcSetNewGeometryBuffer(geometry.get(), RTC_BUFFER_TYPE_VERTEX,
                                                             0, RTC_FORMAT_FLOAT3, sizeof(Point3),
                                                             mesh.verts.size()));
  CheckDevice();
  for (size_t i = 0; i < mesh.verts.size(); ++i) verts[i] = mesh.verts[i] * entry.tm;

  std::vector<std::array<std::uint32_t, 3>> usable;
  usable.reserve(mesh.faces.size());
  for (const Face& f : mesh.faces) {
    const auto [a, b, c] = f.v;
    if (std::max({a, b, c}) >= mesh.verts.size() || !Usable(verts[a], verts[b], verts[c])) continue;
    usable.push_back({a, b, c});
    for (const std::uint32_t v : f.v) entry.box += verts[v];
  }
  if (usable.empty()) return;
  auto* corners = static_cast<std::uint32_t*>(
      rtcSetNewGeometryBuffer(geometry.get(), RTC_BUFFER_TYPE_INDEX, 0, RTC_FORMAT_UINT3,
                              sizeof(usable[0]), usable.size()));
  CheckDevice();
  std::copy_n(usable.data()->data(), usable.size() * 3, corners);

  rtcSetGeometryIntersectFilterFunction(geometry.get(), &Search::Consider);
  rtcSetGeometryUserData(geometry.get(), &entry);
  rtcCommitGeometry(geometry.get());
  SceneHandle scene(rtcNewScene(Device()));
  rtcSetSceneFlags(scene.get(), RTC_SCENE_FLAG_ROBUST);
  rtcAttachGeometry(scene.get(), geometry.get());
  rtcCommitScene(scene.get());
  CheckDevice();
  entry.scene = std::move(scene);
  entry.verts = verts;
  entry.corners = corners;
}

void RayCaster::BuildTop() {
  if (!topStale_) return;
  top_.reset();
  Box3 box;
  only_ = nullptr;
  size_t scenes = 0;
  for (size_t i = 0; i < targets_.size(); ++i) {
    const NodeMesh& entry = meshes_.at(targets_[i]);
    if (!entry.scene) continue;
    only_ = ++scenes == 1 ? entry.scene.get() : nullptr;
    onlyTarget_ = unsigned(i);
    box += entry.box;
  }
  SetBounds(box);
  if (scenes > 1) top_ = Instances();
  topStale_ = false;
}

void RayCaster::SetBounds(const Box3& box) {
  const Vec lower(box.pmin), upper(box.pmax);
  const Vec middle = (lower + upper) * 0.5, half = (upper - lower) * 0.5;
  bounds_ = {{middle.x, middle.y, middle.z}, std::sqrt(Dot(half, half)), 0};
  bounds_.room = 1.0e-5 * (std::sqrt(Dot(middle, middle)) + bounds_.radius);
}

RayCaster::SceneHandle RayCaster::Instances() {
  SceneHandle top(rtcNewScene(Device()));
  rtcSetSceneFlags(top.get(), RTC_SCENE_FLAG_ROBUST);
  for (size_t i = 0; i < targets_.size(); ++i) {
    const NodeMesh& entry = meshes_.at(targets_[i]);
    if (!entry.scene) continue;
    RTCGeometry instance = rtcNewGeometry(Device(), RTC_GEOMETRY_TYPE_INSTANCE);
    rtcSetGeometryInstancedScene(instance, entry.scene.get());
    rtcCommitGeometry(instance);
    rtcAttachGeometryByID(top.get(), instance, unsigned(i));
    rtcReleaseGeometry(instance);
  }
  rtcCommitScene(top.get());
  CheckDevice();
  return top;
}

void RayCaster::Forget(INode* node) {
  if (meshes_.erase(node) > 0) {
    std::erase(targets_, node);
    top_.reset();
    topStale_ = true;
  }
  for (int i = 0; i < node->NumberOfChildren(); ++i) Forget(node->GetChildNode(i));
}

PainterHit RayCaster::Cast(const Ray& ray, double reach) {
  PainterHit result;
  BuildTop();
  const Vec given(ray.dir);
  const double length = std::sqrt(Dot(given, given));
  RTCSceneTy* scene = only_ ? only_ : top_.get();
  if (!scene || !IsFinite(ray.p) || !(length > 0.0) || !std::isfinite(length)) return result;
  Search search(Vec(ray.p), given * (1.0 / length), reach);
  search.onlyTarget = onlyTarget_;

  // Embree works in float: let it start where the ray comes to the meshes, however far off its
  // origin is, and give its rounding some room at both ends.
  const Vec middle(bounds_.middle[0], bounds_.middle[1], bounds_.middle[2]);
  const double nearest = Dot(middle - search.from, search.dir);
  const double start = std::max(nearest - bounds_.radius, 0.0) - bounds_.room;
  const double end = std::min(nearest + bounds_.radius, reach) + bounds_.room;
  if (!(start < end)) return result;

  const Point3 origin = (search.from + search.dir * start).Rounded();
  const Point3 dir = search.dir.Rounded();
  RTCRayHit query{};
  query.ray.org_x = origin.x, query.ray.org_y = origin.y, query.ray.org_z = origin.z;
  query.ray.dir_x = dir.x, query.ray.dir_y = dir.y, query.ray.dir_z = dir.z;
  query.ray.tfar = float(end - start);
  query.ray.mask = ~0u;
  query.hit.geomID = query.hit.instID[0] = RTC_INVALID_GEOMETRY_ID;
  rtcIntersect1(scene, &search, &query);

  if (!search.hit) return result;
  result.hit = true;
  result.worldPoint = search.point.Rounded();
  result.worldNormal = search.Normal().Rounded();
  result.node = targets_[search.target];
  return result;
}

}  // namespace host
