#include "host/core/control.h"

#include <cmath>

#include "tests/host/apart.h"
#include "tests/host/extras.h"
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
  const struct {
    const Track& track;
    TimeValue t;
    double value;
    Interval valid;
  } cases[] = {{linear, -5, 10, {kLow, 4800}},     {linear, 4800, 10, {kLow, 4800}},
               {linear, 6000, 15, {6000, 6000}},   {linear, 9600, 30, {9600, kHigh}},
               {linear, 20000, 30, {9600, kHigh}}, {step, 0, 10, {kLow, 9599}},
               {step, 9599, 10, {kLow, 9599}},     {step, 9600, 30, {9600, 14399}},
               {step, 12000, 30, {9600, 14399}},   {step, 14400, 20, {14400, kHigh}}};
  for (const auto& c : cases) {
    valid = FOREVER;
    EXPECT_EQ(At(c.track, c.t, &valid), c.value) << c.t;
    EXPECT_EQ(valid, c.valid) << c.t;
  }
  valid = {5900, 6100};  // narrowed, never widened
  At(step, 6000, &valid);
  EXPECT_EQ(valid, Interval(5900, 6100));

  // A jump within a tick keeps both its ends.
  Track jump({0});
  jump.SetKeys(KeyShape::Linear, {0, 1, 1.00001f, 2}, {0, 0, 5, 5});
  EXPECT_EQ(jump.Times(), (std::vector<TimeValue>{0, 4799, 4800, 9600}));
  EXPECT_EQ(At(jump, 4799), 0);
  EXPECT_EQ(At(jump, 4800), 5);
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

TEST(Control, RotationsTurnTheShorterWay) {
  // About Z, from 10 degrees to 100; the second quaternion with the other sign, as q and -q are one
  // rotation: nothing moves from there.
  const auto about = [](double degrees) {
    const double half = degrees * std::acos(-1.0) / 360;
    return std::pair<float, float>(float(std::sin(half)), float(std::cos(half)));
  };
  const auto [s0, c0] = about(10);
  const auto [s1, c1] = about(100);
  Track turn({0, 0, 0, 1});
  turn.SetKeys(KeyShape::Linear, {0, 1, 2}, {0, 0, s0, c0, 0, 0, -s1, -c1, 0, 0, s1, c1});
  for (const auto& [t, degrees] :
       {std::pair(0, 10.0), {1600, 40.0}, {2400, 55.0}, {4800, 100.0}, {6000, 100.0}}) {
    double q[4];
    Interval valid = FOREVER;
    turn.RotationAt(t, q, valid);
    const Matrix3 m = host::MatrixOfQuaternion(q);
    const double a = degrees * std::acos(-1.0) / 180;
    EXPECT_LT(Apart(Point3(1, 0, 0) * m, {float(std::cos(a)), float(std::sin(a)), 0}), 2e-7) << t;
  }
}

// A node with a position from (0, 0, 0) to (10, 0, 0), turning a quarter about Z, scaled 1 to 3,
// and its child at (1, 0, 0).
class KeyedNode : public Staged {
 protected:
  KeyedNode() {
    node_ = Add(new BoxObject);
    child_ = Add(new BoxObject, {1, 0, 0});
    Key(0, {0, 0, 0}, 0, 1), Key(4800, {10, 0, 0}, 1, 3);
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

TEST_F(KeyedNode, MovesWithItsChildrenAndTellsHowLong) {
  for (const double part : {0.0, 0.25, 1.0}) {
    const auto t = TimeValue(4800 * part);
    EXPECT_LT(Apart(node_->GetNodeTM(t), Expected(part)), 2e-6);
    EXPECT_LT(Apart(child_->GetNodeTM(t), TransMatrix({1, 0, 0}) * Expected(part)), 2e-6);
  }
  EXPECT_EQ(child_->TMValidity(1200), Interval(1200, 1200));
  EXPECT_EQ(child_->TMValidity(9000), Interval(4800, kHigh));
}

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

TEST_F(KeyedNode, ANewPivotLeavesTheObjectInItsMotion) {
  node_->CenterPivot(1200);
  node_->Move(1200, Matrix3(), {0, 0, -0.5f}, true, false, true);
  EXPECT_GT(Apart(node_->GetObjectOffset(), Matrix3()), 0.01);
  for (const double part : {0.0, 0.25, 0.75, 1.0}) {
    const auto t = TimeValue(4800 * part);
    EXPECT_LT(Apart(node_->GetObjectTM(t), Expected(part)), 5e-6) << part;
    EXPECT_LT(Apart(child_->GetNodeTM(t), TransMatrix({1, 0, 0}) * Expected(part)), 5e-6) << part;
  }
  // A key tells where the new pivot goes.
  Key(2400, {7, 8, 9}, 1, 2);
  EXPECT_LT(Apart(node_->GetNodeTM(2400), {{0, 2, 0}, {-2, 0, 0}, {0, 0, 2}, {7, 8, 9}}), 5e-6);
}

TEST_F(KeyedNode, UndoBringsBackKeysAndTheMatrixBeforeThem) {
  INode* still = Add(new BoxObject);
  const Matrix3 skewed({1, 0, 0}, {1, -1, 0}, {0, 0, 2}, {5, 5, 5});
  still->SetNodeTM(0, skewed);
  theHold.Begin();
  still->SetNodeTM(0, skewed * TransMatrix({1, 1, 1}));
  still->GetTMController()->SetKeys(0, {{1, 1, 1}, {0, 0, 0, 1}, {0, 0, 0}},
                                    TransformControl::kPosition);
  theHold.Accept(L"Key");
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
  EXPECT_FALSE(block.SetKey(Owner::kNumber, 0, 1));
  EXPECT_EQ(block.GetController(Owner::kNumber), nullptr);
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
  block.SetKey(kCount, 0, 0), block.SetKey(kCount, 4800, 3);
  EXPECT_EQ(block.GetInt(kCount, 2400), 2);  // 1.5
  EXPECT_EQ(block.GetInt(kCount, 2399), 1);

  RemapDir remap;
  auto* copy = static_cast<IParamBlock2*>(block.Clone(remap));
  const std::unique_ptr<IParamBlock2, DeleteUnreferenced> copyKeeper(copy);
  owner->TakeLog();
  host.Undo().Undo();
  EXPECT_FALSE(owner->log.empty());
  for (const SeenMessage& m : owner->log) EXPECT_EQ(m.Text(), "undo:change 10");
  EXPECT_EQ(block.GetFloat(kShift, 1200), 4);
  EXPECT_EQ(copy->GetFloat(kShift, 1200), 15);
  host.Undo().Redo();
  EXPECT_EQ(block.GetFloat(kShift, 1200), 15);
  block.SetController(kShift, nullptr);
  EXPECT_EQ(block.GetFloat(kShift, 1200), 4);
}

}  // namespace
