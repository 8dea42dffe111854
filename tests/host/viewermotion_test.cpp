#include <gtest/gtest.h>

#include <limits>

#include "host/host.h"
#include "host/io/import.h"
#include "host/io/scenefile.h"
#include "host/scene/animatedmesh.h"
#include "tests/host/apart.h"
#include "tests/host/proxies.h"

namespace {

using host::KeyShape;

Matrix3 Placed(const Point3& scale, float angle, const Point3& at) {
  Matrix3 m;
  m.Scale(scale);
  m.RotateX(angle);
  m.RotateZ(2 * angle);
  m.Translate(at);
  return m;
}

// A box of eight vertices with `targets` morph targets, each of which moves one vertex.
std::shared_ptr<MeshMotion> MorphingBox(size_t targets) {
  auto motion = std::make_shared<MeshMotion>();
  motion->base = BoxMeshOf(1, 2, 3);
  motion->targets.assign(targets, std::vector<Point3>(8, {0, 0, 0}));
  for (size_t k = 0; k < targets; ++k) motion->targets[k][k] = {1, float(k), -2};
  return motion;
}

class ViewerMotion : public testing::Test {
 protected:
  AnimatedMesh* Add(const WStr& name, std::shared_ptr<const MeshMotion> motion,
                    const host::Track& weights, const Matrix3& tm) {
    auto* mesh = new AnimatedMesh;
    mesh->SetMotion(std::move(motion), weights);
    node_ = AddNode(name, mesh, tm);
    return mesh;
  }
  INode* AddNode(const WStr& name, Object* object, const Matrix3& tm) {
    INode* node = host_.Services().CreateObjectNode(object);
    node->SetName(name);
    node->SetNodeTM(0, tm);
    return node;
  }
  static std::vector<Point3> WorldVertices(host::Host& host, TimeValue t, float unit) {
    std::vector<Point3> all;
    for (INode* n : host.GetScene().AllNodes())
      if (const EvaluatedMesh e = EvalMesh(n, t))
        for (const Point3& v : e.mesh->verts) all.push_back(v * n->GetObjectTM(t) * unit);
    return all;
  }
  // What an importer makes of the saved scene has the same vertices at each time.
  void ExpectTheSameSeen(std::initializer_list<TimeValue> times) {
    std::vector<std::byte> bytes;
    std::string error;
    ASSERT_TRUE(host::SaveSceneBytes(host_.Services(), "/s.glb", bytes, error)) << error;
    std::vector<std::vector<Point3>> here;
    for (const TimeValue t : times) here.push_back(WorldVertices(host_, t, 2 * 0.0254f));
    host::Host viewer;
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
    size_t i = 0;
    for (const TimeValue t : times) {
      const std::vector<Point3> there = WorldVertices(viewer, t, 1);
      EXPECT_LT(farthest(here[i], there), 1e-5) << t;
      EXPECT_LT(farthest(there, here[i]), 1e-5) << t;
      ++i;
    }
  }

  host::Host host_;
  INode* node_ = nullptr;
};

TEST_F(ViewerMotion, MorphTargetsFollowTheirWeights) {
  host_.Services().SetMasterUnit(UNITS_INCHES, 2);
  host::Track lines(std::vector<float>(6, 0.25f)), splines({0, 0});
  lines.SetKeys(KeyShape::Linear, {0, 1}, {0, 0.5f, 1, 0, 0, 0, 1, 0.5f, 0, 0, 0.25f, 2});
  splines.SetKeys(KeyShape::Cubic, {0.5f, 1}, {0, 0, 0, 1, 3, 0, 2, 0, 1, 0, 0, 0});
  Add(L"lines", MorphingBox(6), lines, Placed({1, 2, 3}, 0.5f, {4, 5, 6}));
  INode* sheared = AddNode(L"sheared", node_->GetObjectRef(), Placed({1, 1, 1}, 0.7f, {0, 0, 2}));
  node_->AttachChild(sheared);
  sheared->SetObjectOffset(TransMatrix({0, 1, 0}));
  Add(L"splines", MorphingBox(2), splines, TransMatrix({20, 0, 0}));
  Add(L"still", MorphingBox(1), host::Track({0.5f}), TransMatrix({0, 20, 0}));
  ExpectTheSameSeen({0, 2400, 3600, 4800});
}

TEST_F(ViewerMotion, SkinsFollowTheirBones) {
  host_.Services().SetMasterUnit(UNITS_INCHES, 2);
  INode* still = AddNode(L"still", nullptr, Placed({1, 1, 1}, 0.4f, {1, 2, 3}));
  auto motion = MorphingBox(2);
  motion->frameTimes = {-2400, 2400};
  const auto& verts = motion->base.verts;
  motion->frames.assign(2, {verts.begin(), verts.end()});
  // Two bones of one node, one that moves, one that is none.
  motion->inverseBind = {TransMatrix({0, 0, -1}), Placed({2, 2, 2}, 1, {0, 0, 0}), Matrix3(),
                         Matrix3()};
  for (std::uint16_t v = 0; v < 8; ++v) {
    const auto next = std::uint16_t((v + 1) % 4);
    motion->vertexBones.push_back({{std::uint16_t(v % 4), next, next, 0}, {0.5f, 0.25f, 0.25f, 0}});
  }
  host::Track weights({0, 0});
  weights.SetKeys(KeyShape::Linear, {0, 1}, {0, 1, 1, 0});
  AnimatedMesh* skin = Add(L"skin", motion, weights, Placed({1, 1, 1}, 0.9f, {0, 0, 4}));
  INode* moving = AddNode(L"moving", nullptr, Placed({1, 1, 1}, 0.2f, {5, 0, 0}));
  still->AttachChild(moving);
  moving->SetObjectOffset(TransMatrix({0, 0, 0.5f}));
  moving->GetTMController()->SetKeys(0, {{1, 1, 1}, {0, 0, 0, 1}, {0, 0, 2}}, 7);
  moving->GetTMController()->SetKeys(4800, {{2, 2, 2}, {0, 0, 0.6, 0.8}, {5, 0, 2}}, 7);
  skin->SetBones({still, moving, still, nullptr});
  ExpectTheSameSeen({0, 2400, 4800});

  // Another node shows what it is at time 0; its own turn counts there, and frames stand still.
  motion = std::make_shared<MeshMotion>(*motion);
  motion->frames[1][3] = {9, 9, 9};
  skin->SetMotion(motion, weights);
  AddNode(L"second", skin, Placed({1, 3, 1}, 0.3f, {30, 0, 0}));
  ExpectTheSameSeen({0});
}

}  // namespace
