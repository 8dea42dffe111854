#include "host/core/control.h"

#include <cmath>
#include <limits>

#include "host/import/import.h"
#include "host/scene/animatedmesh.h"
#include "host/scenefile/scenefile.h"
#include "tests/host/apart.h"
#include "tests/host/extras.h"
#include "tests/host/proxies.h"
#include "tests/host/recording_owner.h"

namespace {

using host::KeyShape;
using host::Track;

constexpr TimeValue kLow = TIME_NegInfinity, kHigh = TIME_PosInfinity;

double At(const Track& track, TimeValue t, Interval* valid = nullptr) {
  Interval all = FOREVER;
  double value;
  track.At(t, &value, valid ? *valid : all);
  return value;
}

TEST(Control, ATrackStaysAtItsEndsAndSaysHowLongAValueHolds) {
  Track linear({7});
  Interval valid = FOREVER;
  EXPECT_EQ(At(linear, 123, &valid), 7);
  EXPECT_EQ(valid, FOREVER);
  linear.SetKeys(KeyShape::Linear, {1, 2}, {10, 30});  // ticks 4800 and 9600
  Track step({0});
  step.SetKeys(KeyShape::Step, {1, 2, 3}, {10, 30, 20});
  const std::tuple<const Track&, TimeValue, double, Interval> cases[] = {
      {linear, -5, 10, {kLow, 4800}},     {linear, 4800, 10, {kLow, 4800}},
      {linear, 6000, 15, {6000, 6000}},   {linear, 9600, 30, {9600, kHigh}},
      {linear, 20000, 30, {9600, kHigh}}, {step, 0, 10, {kLow, 9599}},
      {step, 9599, 10, {kLow, 9599}},     {step, 9600, 30, {9600, 14399}},
      {step, 12000, 30, {9600, 14399}},   {step, 14400, 20, {14400, kHigh}}};
  for (const auto& [track, t, value, holds] : cases) {
    valid = FOREVER;
    EXPECT_EQ(At(track, t, &valid), value) << t;
    EXPECT_EQ(valid, holds) << t;
  }
  valid = {5900, 6100};  // narrowed, never widened
  At(step, 6000, &valid);
  EXPECT_EQ(valid, Interval(5900, 6100));

  // A jump within a tick keeps both its ends.
  Track jump({0});
  jump.SetKeys(KeyShape::Linear, {0, 1, 1.00001f, 2}, {0, 0, 5, 5});
  EXPECT_EQ(jump.Times(), (std::vector<TimeValue>{0, 4799, 4800, 9600}));
  EXPECT_TRUE(At(jump, 4799) == 0 && At(jump, 4800) == 5);
}

TEST(Control, ASplineIsTheCubicOfItsTangents) {
  // f(x) = x^3 - 2x + 1 in seconds: f(1) = 0, f'(1) = 1; f(3) = 22, f'(3) = 25.
  Track cubic({0});
  cubic.SetKeys(KeyShape::Cubic, {1, 3}, {99, 0, 1, 25, 22, 99});
  for (const TimeValue t : {4800, 6000, 7000, 9600, 14399, 14400}) {
    const double x = t / 4800.0;
    EXPECT_NEAR(At(cubic, t), x * x * x - 2 * x + 1, 1e-12) << t;
  }
  // A key between goes along the line between its neighbours: 11 a second.
  cubic.SetKey(9600, {5});
  EXPECT_EQ(At(cubic, 9600), 5);
  // Hermite's form half way, over one second: the mean, and an eighth of the tangents' difference.
  EXPECT_NEAR(At(cubic, 7200), (0 + 5) / 2.0 + (1 - 11) / 8.0, 1e-6);
}

// A node with a position from (0, 0, 0) to (10, 0, 0), turning a quarter about Z, scaled 1 to 3,
// and its child at (1, 0, 0).
class KeyedNode : public Staged {
 protected:
  KeyedNode() {
    node_ = Add(new BoxObject);
    child_ = Add(new BoxObject, {1, 0, 0});
    Key(0, {0, 0, 0}, 0, 1), Key(4800, {10, 0, 0}, 5, 3);  // the shorter way is one quarter
    node_->AttachChild(child_, false);
  }
  void Key(TimeValue t, const Point3& p, double quarters, double scale) {
    const double half = quarters * std::acos(-1.0) / 4;
    node_->GetTMController()->SetKeys(
        t, {{scale, scale, scale}, {0, 0, std::sin(half), std::cos(half)}, p}, 7);
  }
  static Matrix3 Expected(double part) {
    const double a = part * std::acos(-1.0) / 2, s = 1 + 2 * part;
    return {{float(s * std::cos(a)), float(s * std::sin(a)), 0},
            {float(-s * std::sin(a)), float(s * std::cos(a)), 0},
            {0, 0, float(s)},
            {float(10 * part), 0, 0}};
  }

  INode *node_ = nullptr, *child_ = nullptr;
};

TEST_F(KeyedNode, ASetMatrixMovesTheWholeMotion) {
  const Matrix3 asked({0, 2, 0}, {-2, 0, 0}, {0, 0, 2}, {1, 2, 3});  // turned, twice as large
  node_->SetNodeTM(1200, asked);
  EXPECT_LT(Apart(node_->GetNodeTM(1200), asked), 1e-5);
  const Matrix3 moved = Inverse(Expected(0.25)) * asked;
  EXPECT_LT(Apart(node_->GetNodeTM(4800), Expected(1) * moved), 1e-4);
  // A key set now is met in spite of that.
  Key(2400, {7, 8, 9}, 0.5, 1);
  const float h = std::sqrt(0.5f);
  EXPECT_LT(Apart(node_->GetNodeTM(2400), {{h, h, 0}, {-h, h, 0}, {0, 0, 1}, {7, 8, 9}}), 1e-5);
}

TEST_F(KeyedNode, MovesWithItsChildrenWhateverItsPivot) {
  EXPECT_EQ(child_->TMValidity(1200), Interval(1200, 1200));
  EXPECT_EQ(child_->TMValidity(9000), Interval(4800, kHigh));
  for (const bool moved : {false, true}) {
    if (moved) node_->CenterPivot(1200);
    if (moved) node_->Move(1200, Matrix3(), {0, 0, -0.5f}, true, false, true);
    EXPECT_EQ(Apart(node_->GetObjectOffset(), Matrix3()) > 0.01, moved);
    for (const double part : {0.0, 0.25, 0.75, 1.0}) {
      const auto t = TimeValue(4800 * part);
      EXPECT_LT(Apart(node_->GetObjectTM(t), Expected(part)), 5e-6) << part;
      EXPECT_LT(Apart(child_->GetNodeTM(t), TransMatrix({1, 0, 0}) * Expected(part)), 5e-6) << part;
    }
  }
  // A key tells where the new pivot goes.
  Key(2400, {7, 8, 9}, 1, 2);
  EXPECT_LT(Apart(node_->GetNodeTM(2400), {{0, 2, 0}, {-2, 0, 0}, {0, 0, 2}, {7, 8, 9}}), 5e-6);
}

TEST_F(KeyedNode, UndoBringsBackKeysAndTheMatrixBeforeThem) {
  INode* still = Add(new BoxObject);
  const Matrix3 skewed({1, 0, 0}, {1, -1, 0}, {0, 0, 2}, {5, 5, 5});
  still->SetNodeTM(0, skewed);
  Step([&] {
    still->SetNodeTM(0, skewed * TransMatrix({1, 1, 1}));
    still->GetTMController()->SetKeys(0, {{}, {}, {0, 0, 0}}, TransformControl::kPosition);
  });
  EXPECT_LT(Apart(still->GetNodeTM(0), {{1, 0, 0}, {1, -1, 0}, {0, 0, 2}, {0, 0, 0}}), 1e-6);
  host_.Undo().Undo();
  EXPECT_EQ(still->GetNodeTM(0), skewed);
  EXPECT_EQ(still->TMValidity(0), FOREVER);
  host_.Undo().Redo();
  EXPECT_EQ(Apart(still->GetNodeTM(0).GetTrans(), {0, 0, 0}), 0);

  auto* copy = static_cast<TransformControl*>(
      CreateInstance(TRANSFORM_CONTROL_CLASS_ID, node_->GetTMController()->ClassID()));
  ASSERT_TRUE(copy && copy->Copy(node_->GetTMController()));
  still->SetTMController(copy);
  EXPECT_EQ(still->GetNodeTM(700), node_->GetNodeTM(700));
  still->SetTMController(nullptr);
  EXPECT_EQ(still->GetNodeTM(700), node_->GetNodeTM(0));
}

TEST(Control, AnimatableParametersTakeKeys) {
  host::Host host;
  using Owner = RecordingOwner;
  constexpr ParamID kShift = Owner::kShift, kCount = Owner::kCount;
  const std::unique_ptr<Owner, DeleteUnreferenced> owner(new Owner);
  IParamBlock2& block = owner->Block();
  block.SetValue(kShift, 0, 4.0f);
  EXPECT_FALSE(block.SetKey(Owner::kNumber, 0, 1) || block.GetController(Owner::kNumber));
  owner->TakeLog();
  theHold.Begin();
  ASSERT_TRUE(block.SetKey(kShift, 0, 10));
  block.SetValue(kShift, 4800, 30.0f);  // with keys, a value is a key
  theHold.Accept(L"Keys");
  EXPECT_EQ(owner->TakeLog(), (std::vector<std::string>{"change 10", "change 10"}));
  Interval valid = FOREVER;
  float value;
  block.GetValue(kShift, 1200, value, valid);
  EXPECT_EQ(value, 15);
  EXPECT_EQ(valid, Interval(1200, 1200));
  block.SetKey(kCount, 0, 0), block.SetKey(kCount, 4800, 3);  // 1.5 in the middle
  EXPECT_TRUE(block.GetInt(kCount, 2400) == 2 && block.GetInt(kCount, 2399) == 1);

  RemapDir remap;
  const std::unique_ptr<IParamBlock2, DeleteUnreferenced> copy(
      static_cast<IParamBlock2*>(block.Clone(remap)));
  owner->TakeLog();
  host.Undo().Undo();
  ASSERT_FALSE(owner->log.empty());
  EXPECT_EQ(owner->TakeLog()[0], "undo:change 10");
  EXPECT_TRUE(block.GetFloat(kShift, 1200) == 4 && copy->GetFloat(kShift, 1200) == 15);
  host.Undo().Redo();
  EXPECT_EQ(block.GetFloat(kShift, 1200), 15);
  block.SetController(kShift, nullptr);
  EXPECT_EQ(block.GetFloat(kShift, 1200), 4);
}

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
  EXPECT_EQ(Apart(VertsOf(object, 300), {{4.75f, 0.75f, 0.75f}, {0, 4, 0}, {0, 0, 4}}), 0);
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
  Add(shown);  // a node that takes the shape keeps it
  object->Eval(100);
  EXPECT_EQ(shown->mesh.verts[0], Point3(1.5f, 0, 0));

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
  std::vector<Point3> InWorld(TimeValue t, Interval* valid = nullptr) {
    std::vector<Point3> verts = VertsOf(object_, t, valid);
    for (Point3& v : verts) v = v * node_->GetObjectTM(t);
    return verts;
  }
  std::vector<INode*> bones_;
  AnimatedMesh* object_ = nullptr;
};

TEST_F(Skin, StandsWhereItsBonesAre) {
  // By hand: once turned, bone 1 takes a vertex v to (2 - v.y, v.x + 2, v.z).
  const std::vector<Point3> bound = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
  const std::vector<Point3> turned = {{1, 0, 0}, {1, 2, 0}, {1.5f, 1.5f, 1}};
  Interval valid;
  EXPECT_LT(Apart(InWorld(0), bound), 1e-6);
  EXPECT_LT(Apart(InWorld(9000, &valid), turned), 1e-6);
  EXPECT_EQ(valid, Interval(4800, TIME_PosInfinity));
  InWorld(2400, &valid);
  EXPECT_EQ(valid, Interval(2400, 2400));
  // A bone that is gone keeps its bound place.
  Step([&] { ip_.DeleteNode(bones_[1], false, false); });
  EXPECT_LT(Apart(InWorld(4800), bound), 1e-6);
  host_.Undo().Undo();
  EXPECT_LT(Apart(InWorld(4800), turned), 1e-6);
  // Neither the node's own place nor a new pivot of it or of a bone moves the skin.
  node_->SetNodeTM(0, Matrix3({0, 2, 0}, {-2, 0, 0}, {0, 0, 2}, {5, 6, 7}));
  node_->CenterPivot(2400);
  bones_[1]->Move(2400, Matrix3(), {1, 2, 3}, true, false, true);
  EXPECT_LT(Apart(InWorld(4800), turned), 1e-5);
  // A moved parent of a bone does.
  INode* above = Add();
  above->AttachChild(bones_[0], false);
  above->SetNodeTM(0, TransMatrix({0, 0, 9}));
  EXPECT_LT(::Apart(InWorld(0)[0], {1, 0, 9}), 1e-5);
  // A copy hangs on the same bones, or on their copies.
  RemapDir remap;
  remap.AddMapping(bones_[1], Add(nullptr, {0, 2, 5}));
  auto* copy = static_cast<AnimatedMesh*>(object_->Clone(remap));
  node_ = Add(copy);
  EXPECT_LT(::Apart(VertsOf(copy, 4800)[1], {0, 1, 5}), 1e-5);
}

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
