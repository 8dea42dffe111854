#include <gtest/gtest.h>

#include <cmath>

#include "host/scene/animatedmesh.h"
#include "tests/sowfield/placement_twin.h"

namespace sowfield {
namespace {

constexpr int kOriginalMode = 6;

/// A source whose counts tell the time: at tick t, for t above 0, it is a fan of t / 160 % 4 + 1
/// triangles with its tip at (0, 0, t).
class Fan : public GeomObject {
 public:
  Class_ID ClassID() const override { return {0x51, 0x52}; }
  ObjectState Eval(TimeValue t) override {
    shown_->mesh = At(t);
    return ObjectState(shown_.get(), {t, t});
  }
  bool CanConvertToType(Class_ID id) override { return id == triObjectClassID; }
  void GetLocalBoundBox(TimeValue t, INode*, ViewExp*, Box3& box) override {
    box = At(t).getBoundingBox();
  }
  Mesh* GetRenderMesh(TimeValue t, INode*, ViewExp*, bool& needDelete) override {
    needDelete = true;
    return new Mesh(At(t));
  }
  static Mesh At(TimeValue t) {
    const int n = std::abs(t) / 160 % 4 + 1;
    Mesh mesh;
    mesh.setNumVerts(n + 2), mesh.setNumFaces(n);
    mesh.setVert(0, {0, 0, float(t)});
    for (int i = 0; i <= n; ++i) mesh.setVert(i + 1, {float(i), 1, 0});
    for (int i = 0; i < n; ++i) {
      mesh.faces[size_t(i)] = {};
      mesh.faces[size_t(i)].setVerts(0, std::uint32_t(i + 1), std::uint32_t(i + 2));
    }
    mesh.InvalidateTopologyCache();
    return mesh;
  }

 private:
  std::unique_ptr<TriObject, DeleteUnreferenced> shown_{new TriObject};
};

class AnimatedSource : public testing::Test {
 protected:
  void Add(Object* shown) {
    source_ = s_.AddNode(L"moving", shown, {3, 4, 5});
    s_.node->SetNodeTM(0, Matrix3());
    ASSERT_TRUE(s_.AddAsType(source_));
    EnsureAnimTable(s_.D());
    s_.Set(Show_Logo, 0);
    s_.Set(Tr_AnimOn, 1), s_.Set(Tr_AnimMin, -3), s_.Set(Tr_AnimMax, 40);
    std::vector<Placement> rows;
    for (int i = 0; i < 25; ++i)
      rows.push_back({{float(10 * i), 0, 0}, {0.1f * float(i), 0, 0.2f}, 0, i, 7 * i});
    s_.AppendPlacements(rows);
    s_.Set(Display_Mode, kOriginalMode);
  }
  /// Holds the display mesh at t against the plain one; returns it.
  PlainMesh Compare(TimeValue t) {
    s_.host.Services().SetTime(t);
    s_.D().RefreshObject();
    s_.object->UpdateMesh(t);
    const Mesh& mesh = s_.object->mesh;
    PlainMesh plain(s_, kOriginalMode, -1, t);
    const auto& [f, g] = std::tie(mesh.faces, plain.faces);
    EXPECT_TRUE(std::equal(f.begin(), f.end(), g.begin(), g.end()));
    EXPECT_EQ(mesh.verts.size(), plain.verts.size());
    for (size_t i = 0; i < std::min(mesh.verts.size(), plain.verts.size()); ++i)
      EXPECT_LT(Apart(mesh.verts[i], plain.verts[i]), 2e-3) << i;
    return plain;
  }

  SowfieldScene s_;
  INode* source_ = nullptr;
};

TEST_F(AnimatedSource, PlacementsShowItAtTimesOfTheirOwnWhateverItsCounts) {
  Add(new Fan);
  const size_t first = Compare(0).verts.size();
  EXPECT_EQ(s_.object->mesh.FirstFault(), "");
  Compare(800);
  // Without the offset all show the same time: frame 5, two triangles and four vertices each.
  s_.Set(Tr_AnimOn, 0);
  EXPECT_EQ(Compare(800).verts.size(), 25u * 4);
  EXPECT_NE(first, 25u * 3);
}

TEST_F(AnimatedSource, MorphsAndFramesMoveByTheOffset) {
  auto motion = std::make_shared<MeshMotion>();
  motion->base = Fan::At(0);
  motion->frameTimes = {0, 3200};
  motion->frames = {{{0, 0, 0}, {0, 1, 0}, {1, 1, 0}}, {{0, 0, 8}, {0, 1, 8}, {1, 1, 8}}};
  motion->targets = {{{0, 0, 0}, {0, 5, 0}, {0, 0, 0}}};
  host::Track weights({0});
  weights.SetKey(160, {0}), weights.SetKey(4800, {1});
  auto* object = new AnimatedMesh;
  object->SetMotion(motion, weights);
  Add(object);
  const PlainMesh plain = Compare(480);
  float low = 1e9f, high = -1e9f;  // the spread of times shows in the heights of the first corner
  for (size_t i = 0; i < plain.verts.size(); i += 3)
    low = std::min(low, plain.verts[i].z), high = std::max(high, plain.verts[i].z);
  EXPECT_GT(high - low, 3);
}

TEST_F(AnimatedSource, AKeyedNodeShowsItsMatrixOfTheBuild) {
  Add(new Fan);
  const double h = std::sqrt(0.5);
  TransformControl* control = source_->GetTMController();
  control->SetKeys(0, {{1, 1, 1}, {0, 0, 0, 1}, {}}, TransformControl::kRotation);
  control->SetKeys(4800, {{1, 1, 1}, {h, 0, 0, h}, {}}, TransformControl::kRotation);
  s_.Set(Tr_AnimOn, 0);
  Compare(0);
  const Point3 before = s_.object->mesh.verts[1];
  const Point3 turned = Compare(4800).verts[1];
  EXPECT_GT(Apart(before, turned), 0.4);
  // The offset moves the mesh in time, not the matrix.
  s_.Set(Tr_AnimOn, 1);
  Compare(2400);
}

}  // namespace
}  // namespace sowfield
