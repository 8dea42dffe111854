#include "host/scene/animatedmesh.h"

#include <cmath>
#include <limits>

#include "tests/host/apart.h"
#include "tests/host/extras.h"

namespace {

using host::KeyShape;
using host::Track;

// A triangle with corners (1, 0, 0), (0, 1, 0), (0, 0, 1).
std::shared_ptr<MeshMotion> Triangle() {
  auto motion = std::make_shared<MeshMotion>();
  Mesh& mesh = motion->base;
  mesh.setNumVerts(3), mesh.setNumFaces(1);
  for (int i = 0; i < 3; ++i) mesh.setVert(i, {float(i == 0), float(i == 1), float(i == 2)});
  mesh.faces[0] = {};
  mesh.faces[0].setVerts(0, 1, 2);
  return motion;
}

class MovingMesh : public Staged {
 protected:
  AnimatedMesh* AddMesh(std::shared_ptr<const MeshMotion> motion,
                        const Track& weights = Track({})) {
    auto* object = new AnimatedMesh;
    object->SetMotion(std::move(motion), weights);
    node_ = Add(object);
    return object;
  }
  static std::vector<Point3> VertsOf(Object* object, TimeValue t, Interval* valid = nullptr) {
    const ObjectState state = object->Eval(t);
    if (valid) *valid = state.valid;
    const auto& verts = static_cast<TriObject*>(state.obj)->mesh.verts;
    return {verts.begin(), verts.end()};
  }
  static double Apart(const std::vector<Point3>& a, const std::vector<Point3>& b) {
    double worst = a.size() == b.size() ? 0 : 1e9;
    for (size_t i = 0; i < std::min(a.size(), b.size()); ++i)
      worst = std::max(worst, ::Apart(a[i], b[i]));
    return worst;
  }

  INode* node_ = nullptr;
};

TEST_F(MovingMesh, FramesThenTargetsAddUp) {
  auto motion = Triangle();
  motion->frameTimes = {100, 200};
  motion->frames = {{{0, 0, 0}, {0, 0, 0}, {0, 0, 0}}, {{4, 0, 0}, {0, 4, 0}, {0, 0, 4}}};
  motion->targets = {{{1, 1, 1}, {0, 0, 0}, {0, 0, 0}}, {{0, 0, 0}, {2, 0, 0}, {0, 0, 0}}};
  Track weights({0, 0.5f});
  AnimatedMesh* object = AddMesh(motion, weights);
  Interval valid;
  EXPECT_EQ(Apart(VertsOf(object, 150, &valid), {{2, 0, 0}, {1, 2, 0}, {0, 0, 2}}), 0);
  EXPECT_EQ(valid, Interval(150, 150));
  weights.SetKey(0, {0, 0}), weights.SetKey(400, {1, 0});
  object->SetWeights(weights);
  EXPECT_EQ(Apart(VertsOf(object, 300, &valid), {{4.75f, 0.75f, 0.75f}, {0, 4, 0}, {0, 0, 4}}), 0);
  EXPECT_EQ(valid, Interval(300, 300));
  VertsOf(object, 401, &valid);
  EXPECT_EQ(valid, Interval(400, TIME_PosInfinity));

  Box3 box;
  object->GetLocalBoundBox(500, node_, nullptr, box);
  EXPECT_EQ(box, Box3({0, 0, 0}, {5, 4, 4}));
  ASSERT_TRUE(object->CanConvertToType(polyObjectClassID));
  const EvaluatedMesh kept = MeshOf(object, 100);  // stays what it is at other times
  VertsOf(object, 200);
  EXPECT_EQ(kept.mesh->verts[0], Point3(0.25f, 0.25f, 0.25f));
  EXPECT_EQ(kept.mesh->FirstFault(), "");
}

TEST_F(MovingMesh, AShapeIsMadeAnewOnlyWhereItDiffers) {
  auto motion = Triangle();
  motion->targets = {{{1, 0, 0}, {0, 0, 0}, {0, 0, 0}}};
  Track weights({0});
  weights.SetKey(0, {0}), weights.SetKey(100, {1});
  AnimatedMesh* object = AddMesh(motion, weights);
  auto* shown = static_cast<TriObject*>(object->Eval(100).obj);
  const std::uint64_t stamp = shown->mesh.Stamp();
  EXPECT_EQ(object->Eval(700).obj, shown);
  EXPECT_EQ(shown->mesh.Stamp(), stamp);
  object->Eval(50);
  EXPECT_NE(shown->mesh.Stamp(), stamp);
  // A node that takes the shape keeps it.
  INode* taken = Add(shown);
  object->Eval(100);
  EXPECT_EQ(shown->mesh.verts[0], Point3(1.5f, 0, 0));
  EXPECT_EQ(taken->GetObjectRef(), shown);

  Step([&] { object->SetWeights(Track({3})); });
  EXPECT_EQ(VertsOf(object, 0)[0], Point3(4, 0, 0));
  object->SetWeights(Track({std::numeric_limits<float>::infinity()}));
  EXPECT_EQ(VertsOf(object, 0)[0], Point3(1, 0, 0));
  host_.Undo().Undo();
  EXPECT_EQ(VertsOf(object, 0)[0], Point3(1, 0, 0));
}

// Bone 0 stands at the origin, bone 1 at (0, 2, 0) and turns about Z; bound without a turn.
class Skin : public MovingMesh {
 protected:
  Skin() {
    bones_ = {Add(), Add(nullptr, {0, 2, 0})};
    TransformControl* turn = bones_[1]->GetTMController();
    turn->SetKeys(0, {{1, 1, 1}, {0, 0, 0, 1}, {}}, TransformControl::kRotation);
    const double h = std::sqrt(0.5);
    turn->SetKeys(4800, {{1, 1, 1}, {0, 0, h, h}, {}}, TransformControl::kRotation);
    auto motion = Triangle();
    motion->inverseBind = {Matrix3(), TransMatrix({0, -2, 0})};
    motion->vertexBones = {{{0}, {1}}, {{1}, {1}}, {{0, 1}, {0.25f, 0.75f}}};
    object_ = AddMesh(motion);
    object_->SetBones(bones_);
  }
  // In the world, by hand: a vertex v of bone 1 goes to turn(v - (0, 2, 0)) + (0, 2, 0).
  static std::vector<Point3> Expected(double degrees) {
    const double a = degrees * std::acos(-1.0) / 180, s = std::sin(a), c = std::cos(a);
    const auto turned = [&](double x, double y, double z) {
      return Point3(float(x * c - (y - 2) * s), float(x * s + (y - 2) * c + 2), float(z));
    };
    return {{1, 0, 0}, turned(0, 1, 0), Point3(0, 0, 0.25f) + turned(0, 0, 1) * 0.75f};
  }
  std::vector<Point3> InWorld(TimeValue t, Interval* valid = nullptr) {
    std::vector<Point3> verts = VertsOf(object_, t, valid);
    for (Point3& v : verts) v = v * node_->GetObjectTM(t);
    return verts;
  }
  std::vector<INode*> bones_;
  AnimatedMesh* object_ = nullptr;
};

TEST_F(Skin, StandsWhereItsBonesAre) {
  Interval valid;
  EXPECT_LT(Apart(InWorld(2400, &valid), Expected(45)), 1e-6);
  EXPECT_EQ(valid, Interval(2400, 2400));
  EXPECT_LT(Apart(InWorld(9000, &valid), Expected(90)), 1e-6);
  EXPECT_EQ(valid, Interval(4800, TIME_PosInfinity));
  // Neither the node's own place nor a new pivot of it or of a bone moves the skin.
  node_->SetNodeTM(0, Matrix3({0, 2, 0}, {-2, 0, 0}, {0, 0, 2}, {5, 6, 7}));
  EXPECT_LT(Apart(InWorld(2400), Expected(45)), 1e-5);
  node_->CenterPivot(2400);
  bones_[1]->Move(2400, Matrix3(), {1, 2, 3}, true, false, true);
  EXPECT_LT(Apart(InWorld(4800), Expected(90)), 1e-5);
  // A moved parent of a bone does.
  INode* above = Add();
  above->AttachChild(bones_[0], false);
  above->SetNodeTM(0, TransMatrix({0, 0, 9}));
  EXPECT_LT(::Apart(InWorld(0)[0], {1, 0, 9}), 1e-5);
}

TEST_F(Skin, ABoneThatIsGoneKeepsItsBoundPlace) {
  Step([&] { ip_.DeleteNode(bones_[1], false, false); });
  EXPECT_LT(Apart(InWorld(4800), Expected(0)), 1e-6);
  host_.Undo().Undo();
  EXPECT_LT(Apart(InWorld(4800), Expected(90)), 1e-6);

  // A copy hangs on the same bones, or on their copies.
  RemapDir remap;
  remap.AddMapping(bones_[1], Add(nullptr, {0, 2, 5}));
  auto* copy = static_cast<AnimatedMesh*>(object_->Clone(remap));
  Add(copy);
  EXPECT_LT(Apart(VertsOf(copy, 4800), {{1, 0, 0}, {0, 1, 5}, {0, 0, 4.75f}}), 1e-6);
}

}  // namespace
