#pragma once

#include <limits>
#include <memory>
#include <span>
#include <unordered_map>
#include <vector>

#include "host/math/box3.h"
#include "host/painter/painterinterface.h"
#include "host/scene/mesh.h"
#include "host/viewport/viewexp.h"

struct RTCDeviceTy;
struct RTCSceneTy;

namespace host {

/// Casts rays against the meshes of target nodes, in world space.
///
/// A node's mesh is kept between calls and built anew only when its stamp or the node's object
/// matrix changed, and these are looked at in SetTargets and Update alone. Nodes aren't kept alive:
/// whoever owns this calls Forget before one goes.
///
/// Both sides of a triangle are hit. Triangles without area, with a coordinate that isn't finite or
/// lies beyond 1e18, or with an index beyond the vertices are left out.
class RayCaster {
 public:
  RayCaster();
  ~RayCaster();
  RayCaster(const RayCaster&) = delete;
  RayCaster& operator=(const RayCaster&) = delete;

  /// Replaces the targets, null and repeated ones left out, and looks at their meshes at t. A node
  /// without a mesh is never hit. Throws Error when Embree can't hold the meshes.
  void SetTargets(std::span<INode* const> nodes, TimeValue t);
  /// Looks at the meshes of the targets at t. Throws as SetTargets does.
  void Update(TimeValue t);
  /// Drops a node and all below it.
  void Forget(INode* node);
  const std::vector<INode*>& Targets() const { return targets_; }

  /// The nearest hit at a distance of 0 to `reach`, world units; none for a ray without direction.
  /// Of hits at the same distance that of the earlier target counts, and of its earlier face.
  PainterHit Cast(const Ray& ray, double reach = std::numeric_limits<double>::infinity());

  /// How many node meshes were built so far.
  int MeshesBuilt() const { return built_; }

 private:
  struct ReleaseDevice {
    void operator()(RTCDeviceTy* device) const;
  };
  struct ReleaseScene {
    void operator()(RTCSceneTy* scene) const;
  };
  using SceneHandle = std::unique_ptr<RTCSceneTy, ReleaseScene>;
  struct NodeMesh {
    std::uint64_t stamp = 0;  // of the mesh; 0 without one
    Matrix3 tm;
    Box3 box;           // world, of the triangles
    SceneHandle scene;  // null without a triangle
    // World-space vertices and corner indices, held by the scene.
    const Point3* verts = nullptr;
    const std::uint32_t* corners = nullptr;
  };
  struct Search;

  void Refresh(INode* node, TimeValue t);
  void Build(NodeMesh& entry, const Mesh& mesh);
  void BuildTop();
  SceneHandle Instances();
  void SetBounds(const Box3& box);
  RTCDeviceTy* Device();
  void CheckDevice() const;

  std::unique_ptr<RTCDeviceTy, ReleaseDevice> device_;  // made for the first mesh
  std::unordered_map<const INode*, NodeMesh> meshes_;   // of present and earlier targets
  std::vector<INode*> targets_;
  SceneHandle top_;             // instance i is target i; none for a single mesh
  RTCSceneTy* only_ = nullptr;  // that of a single mesh, without the cost of an instance
  unsigned onlyTarget_ = 0;
  struct Bounds {
    double middle[3] = {0, 0, 0}, radius = 0;
    double room = 0;  // for the rounding of float rays
  } bounds_;          // a ball about all meshes
  bool topStale_ = false;
  int built_ = 0;
};

}  // namespace host
