#include "host/exchange/planscene.h"

#include <cmath>
#include <memory>
#include <span>

#include "host/core/progress.h"
#include "host/interface.h"
#include "host/math/wstr.h"
#include "host/scene/animatedmesh.h"
#include "host/scene/camera.h"
#include "host/scene/mtl.h"

namespace host {

std::string NodeLabel(const std::string& name, size_t number) {
  return name.empty() ? "node " + std::to_string(number) : "node \"" + name + "\"";
}

namespace {

Mtl* MaterialOf(const PlannedMesh& mesh, const std::vector<Mtl*>& materials) {
  const auto of = [&](int i) { return i < 0 ? nullptr : materials[size_t(i)]; };
  if (mesh.slots.size() <= 1) return mesh.slots.empty() ? nullptr : of(mesh.slots[0]);
  auto* multi = new MultiMtl;
  for (size_t i = 0; i < mesh.slots.size(); ++i) multi->SetSubMtl(int(i), of(mesh.slots[i]));
  return multi;
}

constexpr float kLatest = 100'000;  // seconds; more than a day, and far from the end of ticks

void CheckTimes(const std::vector<float>& times, const std::string& who) {
  for (size_t i = 0; i < times.size(); ++i) {
    if (!(std::fabs(times[i]) <= kLatest))
      throw ImportFault(who + ": the time of key " + std::to_string(i) + " is " +
                        std::to_string(times[i]) + " seconds, it must be within " +
                        std::to_string(int(kLatest)));
    if (i > 0 && !(times[i] >= times[i - 1]))
      throw ImportFault(who + ": the time of key " + std::to_string(i) + " lies before the last");
  }
}

void CheckFinite(std::span<const float> values, const std::string& who) {
  for (size_t i = 0; i < values.size(); ++i)
    if (!std::isfinite(values[i]))
      throw ImportFault(who + ": number " + std::to_string(i) + " is not finite");
}

void MustCount(size_t found, size_t wanted, const char* what, const std::string& who) {
  if (found != wanted)
    throw ImportFault(who + ": " + std::to_string(found) + " " + what + ", not " +
                      std::to_string(wanted));
}

void CheckTrack(const PlannedTrack& track, size_t width, const std::string& who) {
  const size_t perKey = width * (track.shape == KeyShape::Cubic ? 3 : 1);
  MustCount(track.values.size(), track.times.size() * perKey, "numbers", who);
  CheckTimes(track.times, who);
  CheckFinite(track.values, who);
}

void CheckSkin(const PlannedSkin& skin, const ImportPlan& plan, size_t verts,
               const std::string& who) {
  MustCount(skin.vertices.size(), verts, "vertices with bones", who);
  MustCount(skin.inverseBind.size(), skin.nodes.size(), "bound matrices", who);
  for (const int node : skin.nodes)
    if (node < 0 || size_t(node) >= plan.nodes.size())
      throw ImportFault(who + ": there is no node " + std::to_string(node) + " for a bone");
  for (size_t i = 0; i < skin.inverseBind.size(); ++i)
    for (int row = 0; row < 4; ++row)
      if (!IsFinite(skin.inverseBind[i].GetRow(row)))
        throw ImportFault(who + ": the bound matrix of bone " + std::to_string(i) +
                          " is not finite");
  for (size_t v = 0; v < verts; ++v) {
    for (const float weight : skin.vertices[v].weight)
      if (!std::isfinite(weight))
        throw ImportFault(who + ": a weight of vertex " + std::to_string(v) + " is not finite");
    for (const std::uint16_t bone : skin.vertices[v].bone)
      if (bone >= skin.nodes.size())
        throw ImportFault(who + ": vertex " + std::to_string(v) + " hangs on bone " +
                          std::to_string(bone) + ", but there are only " +
                          std::to_string(skin.nodes.size()));
  }
}

void CheckShapes(const std::vector<std::vector<Point3>>& shapes, size_t verts,
                 const std::string& who) {
  for (size_t i = 0; i < shapes.size(); ++i) {
    const std::string name = who + " " + std::to_string(i);
    MustCount(shapes[i].size(), verts, "vertices", name);
    for (size_t v = 0; v < verts; ++v)
      if (!IsFinite(shapes[i][v]))
        throw ImportFault(name + ": vertex " + std::to_string(v) + " is not a finite number");
  }
}

bool Moves(const PlannedMesh& mesh) {
  return !mesh.targets.empty() || mesh.skin || !mesh.frames.empty();
}

Track TrackOf(const PlannedTrack& planned, size_t width) {
  Track track(std::vector<float>(width, 0.0f));
  track.SetKeys(planned.shape, planned.times, planned.values);
  return track;
}

std::shared_ptr<const MeshMotion> MotionOf(PlannedMesh& mesh) {
  auto motion = std::make_shared<MeshMotion>();
  motion->base = std::move(mesh.mesh);
  Track times({0});  // rounds times as keys are rounded, and drops the same ones
  if (!mesh.frames.empty()) {
    std::vector<float> numbers(mesh.frames.size());
    for (size_t i = 0; i < numbers.size(); ++i) numbers[i] = float(i);
    times.SetKeys(KeyShape::Linear, mesh.frameTimes, numbers);
    motion->frameTimes = times.Times();
    for (const TimeValue t : motion->frameTimes) {
      double number;
      Interval valid = FOREVER;
      times.At(t, &number, valid);
      motion->frames.push_back(std::move(mesh.frames[size_t(number)]));
    }
    if (!times.IsKeyed()) {
      motion->frameTimes = {0};
      motion->frames.push_back(std::move(mesh.frames[size_t(times.Rest()[0])]));
    }
  }
  motion->targets = std::move(mesh.targets);
  if (mesh.skin) {
    motion->inverseBind = mesh.skin->inverseBind;
    motion->vertexBones = std::move(mesh.skin->vertices);
  }
  return motion;
}

void Widen(Interval& range, const std::vector<TimeValue>& times) {
  if (!times.empty())
    range = {std::min(range.Start(), times.front()), std::max(range.End(), times.back())};
}

void SetMotion(INode* node, const PlannedNode& planned, Interval& range) {
  if (planned.position.IsEmpty() && planned.rotation.IsEmpty() && planned.scale.IsEmpty()) return;
  const Track position = TrackOf(planned.position, 3), rotation = TrackOf(planned.rotation, 4),
              scale = TrackOf(planned.scale, 3);
  TransformControl* control = node->GetTMController();
  control->SetTracks(planned.position.IsEmpty() ? nullptr : &position,
                     planned.rotation.IsEmpty() ? nullptr : &rotation,
                     planned.scale.IsEmpty() ? nullptr : &scale);
  for (const Track* track : {&position, &rotation, &scale}) Widen(range, track->Times());
}

// What the nodes of a plan show. Nodes share an object unless something of their own moves it.
class PlannedObjects {
 public:
  explicit PlannedObjects(ImportPlan& plan) : shared_(plan.meshes.size(), nullptr) {
    for (PlannedMesh& mesh : plan.meshes)
      motions_.push_back(Moves(mesh) ? MotionOf(mesh) : nullptr);
  }

  Object* Of(const PlannedNode& node, PlannedMesh& mesh, Interval& range) {
    Object*& shared = shared_[size_t(node.mesh)];
    const auto& motion = motions_[size_t(node.mesh)];
    const bool own = motion && (mesh.skin || !node.weights.IsEmpty());
    if (shared && !own) return shared;
    if (!motion) {
      auto* object = new TriObject;
      object->mesh = std::move(mesh.mesh);
      return shared = object;
    }
    Track weights(mesh.weights);
    if (!node.weights.IsEmpty()) weights = TrackOf(node.weights, mesh.weights.size());
    Widen(range, weights.Times());
    Widen(range, motion->frameTimes);
    auto* object = new AnimatedMesh;
    object->SetMotion(motion, weights);
    if (own) return object;
    return shared = object;
  }

 private:
  std::vector<std::shared_ptr<const MeshMotion>> motions_;
  std::vector<Object*> shared_;
};

}  // namespace

void CheckMotion(const ImportPlan& plan) {
  for (size_t i = 0; i < plan.meshes.size(); ++i) {
    TheProgress().At(i, plan.meshes.size());
    const PlannedMesh& mesh = plan.meshes[i];
    const std::string who = "mesh " + std::to_string(i);
    const size_t verts = mesh.mesh.verts.size();
    MustCount(mesh.weights.size(), mesh.targets.size(), "weights of morph targets", who);
    CheckFinite(mesh.weights, who + ": weights");
    CheckShapes(mesh.targets, verts, who + ": morph target");
    MustCount(mesh.frameTimes.size(), mesh.frames.size(), "times of frames", who);
    CheckTimes(mesh.frameTimes, who + ": frames");
    CheckShapes(mesh.frames, verts, who + ": frame");
    if (mesh.skin) CheckSkin(*mesh.skin, plan, verts, who + ": skin");
  }
  for (size_t i = 0; i < plan.nodes.size(); ++i) {
    const PlannedNode& node = plan.nodes[i];
    const std::string who = NodeLabel(node.name, i) + ": animation of ";
    CheckTrack(node.position, 3, who + "position");
    CheckTrack(node.rotation, 4, who + "rotation");
    CheckTrack(node.scale, 3, who + "scale");
    const size_t targets = node.mesh < 0 ? 0 : plan.meshes[size_t(node.mesh)].targets.size();
    CheckTrack(node.weights, targets, who + "weights");
  }
}

void TurnTopNode(PlannedNode& node, bool quarter, float scale) {
  Matrix3 turn;
  if (quarter) turn.RotateX(1.0f, 0.0f);
  turn.Scale({scale, scale, scale});
  node.local = node.local * turn;

  // Tangents are differences, and turn like values: the turn moves nothing.
  std::vector<float>& p = node.position.values;
  for (size_t i = 0; i + 2 < p.size(); i += 3) {
    const Point3 turned = VectorTransform({p[i], p[i + 1], p[i + 2]}, turn);
    p[i] = turned.x, p[i + 1] = turned.y, p[i + 2] = turned.z;
  }
  for (float& s : node.scale.values) s *= scale;
  if (!quarter) return;
  const double h = std::sqrt(0.5);  // the quarter is (h, 0, 0, h), applied last: from the left
  std::vector<float>& q = node.rotation.values;
  for (size_t i = 0; i + 3 < q.size(); i += 4) {
    const double x = q[i], y = q[i + 1], z = q[i + 2], w = q[i + 3];
    q[i] = float(h * (w + x)), q[i + 1] = float(h * (y - z));
    q[i + 2] = float(h * (z + y)), q[i + 3] = float(h * (w - x));
  }
}

// All was checked before; nothing here fails.
std::vector<INode*> AddToScene(Interface& ip, ImportPlan& plan,
                               const std::vector<Mtl*>& materials) {
  std::vector<Mtl*> materialOf;
  for (const PlannedMesh& mesh : plan.meshes) materialOf.push_back(MaterialOf(mesh, materials));
  PlannedObjects objects(plan);
  Interval range = ip.GetAnimRange();

  std::vector<INode*> nodes;
  for (const PlannedNode& planned : plan.nodes) {
    Object* object = nullptr;
    if (planned.fov) {
      auto* camera = new CameraObject;
      camera->SetFOV(0, *planned.fov);
      object = camera;
    } else if (planned.mesh >= 0) {
      object = objects.Of(planned, plan.meshes[size_t(planned.mesh)], range);
    }
    INode* node = ip.CreateObjectNode(object);
    if (!planned.name.empty()) node->SetName(FromUtf8(planned.name));
    if (planned.mesh >= 0) node->SetMtl(materialOf[size_t(planned.mesh)]);
    node->SetNodeTM(0, planned.local);
    SetMotion(node, planned, range);
    // The matrix stays what it is, so it is the one under the parent from here on.
    if (planned.parent >= 0) nodes[size_t(planned.parent)]->AttachChild(node, false);
    nodes.push_back(node);
  }
  for (size_t i = 0; i < nodes.size(); ++i) {
    const int mesh = plan.nodes[i].mesh;
    if (mesh < 0 || !plan.meshes[size_t(mesh)].skin) continue;
    std::vector<INode*> bones;
    for (const int b : plan.meshes[size_t(mesh)].skin->nodes) bones.push_back(nodes[size_t(b)]);
    if (auto* skinned = dynamic_cast<AnimatedMesh*>(nodes[i]->GetObjectRef()))
      skinned->SetBones(bones);
  }
  ip.SetAnimRange(range);
  return nodes;
}

}  // namespace host
