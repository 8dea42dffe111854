#include "host/io/import.h"
#include "host/io/scenefile.h"
#include "host/scene/animatedmesh.h"
#include "tests/host/apart.h"
#include "tests/host/extras.h"
#include "tests/host/proxies.h"

namespace {

using host::KeyShape;

// A box of eight vertices with `targets` morph targets, each of which moves one vertex.
std::shared_ptr<MeshMotion> MorphingBox(size_t targets) {
  auto motion = std::make_shared<MeshMotion>();
  motion->base = BoxMeshOf(1, 2, 3);
  motion->targets.assign(targets, std::vector<Point3>(8, {0, 0, 0}));
  for (size_t k = 0; k < targets; ++k) motion->targets[k][k] = {1, float(k), -2};
  return motion;
}

class ViewerMotion : public Staged {
 protected:
  ViewerMotion() { ip_.SetMasterUnit(UNITS_INCHES, 2); }
  AnimatedMesh* Add(const WStr& name, std::shared_ptr<const MeshMotion> motion,
                    const host::Track& weights, const Matrix3& tm) {
    auto* mesh = new AnimatedMesh;
    mesh->SetMotion(std::move(motion), weights);
    node_ = AddNode(name, mesh, tm);
    return mesh;
  }
  INode* AddNode(const WStr& name, Object* object, const Matrix3& tm = {}) {
    INode* node = Staged::Add(object);
    node->SetName(name);
    node->SetNodeTM(0, tm);
    return node;
  }
  static void Move(INode* node, float z) {
    node->GetTMController()->SetKeys(0, {{1, 1, 1}, {0, 0, 0, 1}, {0, 0, z}}, 7);
    node->GetTMController()->SetKeys(4800, {{2, 2, 2}, {0, 0, 0.6, 0.8}, {5, 0, z}}, 7);
  }
  // What an importer makes of the saved scene has the same vertices at each time.
  void ExpectTheSameSeen(const std::vector<TimeValue>& times) {
    std::vector<std::byte> bytes;
    std::string error;
    ASSERT_TRUE(host::SaveSceneBytes(host_.Services(), "/s.glb", bytes, error)) << error;
    std::vector<std::vector<Point3>> here;
    for (const TimeValue t : times) here.push_back(WorldVertices(host_.GetScene().AllNodes(), t));
    host::Host viewer;
    viewer.Services().SetMasterUnit(UNITS_INCHES, 2);
    ASSERT_TRUE(host::ImportGltfBytes(viewer.Services(), bytes, {}, error)) << error;
    const auto farthest = [](const std::vector<Point3>& a, const std::vector<Point3>& b) {
      double worst = 0;
      for (const Point3& p : a) {
        double nearest = std::numeric_limits<double>::infinity();
        for (const Point3& q : b) nearest = std::min(nearest, Apart(p, q));
        worst = std::max(worst, nearest);
      }
      return worst;
    };
    for (size_t i = 0; i < times.size(); ++i) {
      const auto there = WorldVertices(viewer.GetScene().AllNodes(), times[i]);
      EXPECT_LT(farthest(here[i], there), 1e-5) << times[i];
      EXPECT_LT(farthest(there, here[i]), 1e-5) << times[i];
    }
  }

  INode* node_ = nullptr;
};

TEST_F(ViewerMotion, OtherProgramsSeeTheScene) {
  INode* top = AddNode(L"top", new BoxObject, Turned({1, 2, 3}, 0.7f, {4, 5, 6}));
  INode* mirrored = AddNode(L"mirrored", new BoxObject, Turned({-1, 1, 2}, 0.2f, {9, 0, 0}));
  auto* tri = new TriObject;
  tri->mesh = BoxMeshOf(1, 2, 3);
  for (INode* parent : {top, mirrored}) {  // sheared by their parents, with a pivot of their own
    INode* n = AddNode(L"child", tri);
    parent->AttachChild(n, false);
    n->SetNodeTM(0, Turned({1, 1, 1}, 0.9f, {0, 1, 0}) * parent->GetNodeTM(0));
    n->SetObjectOffset(Turned({1, 1, 2}, 0.4f, {0, 0, 1}));
  }
  AddNode(L"flat", new BoxObject, Turned({1, 0, 1}, 0.4f, {0, 7, 0}));
  AddNode(L"hidden", new BoxObject, TransMatrix({100, 0, 0}))->Hide(true);
  INode* keyed = AddNode(L"keyed", new BoxObject);
  keyed->SetObjectOffset(TransMatrix({0, 0, 4}));
  Move(keyed, 20);
  keyed->SetNodeTM(0, Turned({1, 1, 1}, 0.4f, {0, 0, 3}));
  ExpectTheSameSeen({0, 2400});
}

TEST_F(ViewerMotion, MorphTargetsFollowTheirWeights) {
  host::Track lines(std::vector<float>(6, 0.25f)), splines({0, 0});
  lines.SetKeys(KeyShape::Linear, {0, 1}, {0, 0.5f, 1, 0, 0, 0, 1, 0.5f, 0, 0, 0.25f, 2});
  splines.SetKeys(KeyShape::Cubic, {0.5f, 1}, {0, 0, 0, 1, 3, 0, 2, 0, 1, 0, 0, 0});
  Add(L"lines", MorphingBox(6), lines, Turned({1, 2, 3}, 0.5f, {4, 5, 6}));
  INode* sheared = AddNode(L"sheared", node_->GetObjectRef(), Turned({1, 1, 1}, 0.7f, {0, 0, 2}));
  node_->AttachChild(sheared);
  sheared->SetObjectOffset(TransMatrix({0, 1, 0}));
  Add(L"splines", MorphingBox(2), splines, TransMatrix({20, 0, 0}));
  Add(L"still", MorphingBox(1), host::Track({0.5f}), TransMatrix({0, 20, 0}));
  ExpectTheSameSeen({0, 2400, 3600, 4800});
}

TEST_F(ViewerMotion, SkinsFollowTheirBones) {
  INode* still = AddNode(L"still", nullptr, Turned({1, 1, 1}, 0.4f, {1, 2, 3}));
  auto motion = MorphingBox(2);
  motion->frameTimes = {-2400, 2400};
  const auto& verts = motion->base.verts;
  motion->frames.assign(2, {verts.begin(), verts.end()});
  // Two bones of one node, one that moves, one that is none.
  motion->inverseBind = {TransMatrix({0, 0, -1}), Turned({2, 2, 2}, 1, {0, 0, 0}), Matrix3(),
                         Matrix3()};
  for (std::uint16_t v = 0; v < 8; ++v) {
    const auto next = std::uint16_t((v + 1) % 4);
    motion->vertexBones.push_back({{std::uint16_t(v % 4), next, next, 0}, {0.5f, 0.25f, 0.25f, 0}});
  }
  host::Track weights({0, 0});
  weights.SetKeys(KeyShape::Linear, {0, 1}, {0, 1, 1, 0});
  AnimatedMesh* skin = Add(L"skin", motion, weights, Turned({1, 1, 1}, 0.9f, {0, 0, 4}));
  INode* moving = AddNode(L"moving", nullptr, Turned({1, 1, 1}, 0.2f, {5, 0, 0}));
  still->AttachChild(moving);
  moving->SetObjectOffset(TransMatrix({0, 0, 0.5f}));
  Move(moving, 2);
  skin->SetBones({still, moving, still, nullptr});
  ExpectTheSameSeen({0, 2400, 4800});

  // Another node shows what it is at time 0; its own turn counts there, and frames stand still.
  motion = std::make_shared<MeshMotion>(*motion);
  motion->frames[1][3] = {9, 9, 9};
  skin->SetMotion(motion, weights);
  AddNode(L"second", skin, Turned({1, 3, 1}, 0.3f, {30, 0, 0}));
  ExpectTheSameSeen({0});
}

}  // namespace
