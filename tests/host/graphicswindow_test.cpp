#include "host/viewport/graphicswindow.h"

#include <algorithm>
#include <limits>
#include <random>
#include <string>

#include "host/viewport/scenedrawing.h"
#include "tests/host/extras.h"
#include "tests/host/golden.h"

namespace {

constexpr int kWidth = 96, kHeight = 72;

/// At a point, or in the rectangle of two.
bool Hits(ViewExp& view, const Extras::Draw& draw, std::vector<IPoint2> p, bool crossing = true) {
  GraphicsWindow& gw = *view.getGW();
  gw.setHitRegion(MakeHitRegion(HitType(p.size() - 1), crossing, 4, p.data()));
  gw.clearHitCode();
  gw.setRndLimits(GW_PICK);
  draw(gw);
  gw.setRndLimits(GW_ILLUM);
  return gw.checkHitCode();
}

/// The pixels that a drawing changes in the picture of a view.
std::vector<IPoint2> Changed(ViewExp& view, const Extras::Draw& draw) {
  host::Host host;
  std::string error;
  const auto before = host::DrawScene(host.Services(), view, {.grid = false}, error);
  host.Services().CreateObjectNode(new Extras(draw));
  const auto after = host::DrawScene(host.Services(), view, {.grid = false}, error);
  EXPECT_TRUE(before && after) << error;
  std::vector<IPoint2> changed;
  for (int i = 0; before && after && i < kWidth * kHeight; ++i)
    if (PixelsDiffer(&before->rgb[size_t(i) * 3], &after->rgb[size_t(i) * 3]))
      changed.push_back({i % kWidth, i / kWidth});
  return changed;
}

TEST(GraphicsWindow, WhatIsDrawnIsHitAndNothingFarFromIt) {
  std::mt19937 random(3);
  const auto uniform = [&](float low, float high) {
    return low + (high - low) * float(random() >> 8) * 0x1p-24f;
  };
  const auto point = [&](float far) {
    return Point3(uniform(-far, far), uniform(-far, far), uniform(-far, far));
  };
  int seen = 0, unseen = 0;
  for (int round = 0; round < 48; ++round) {
    const Point3 eye = point(12), target = point(3);
    ViewExp view = round % 3 == 0
                       ? ViewExp::Orthographic(eye, target, uniform(8, 20), kWidth, kHeight)
                       : ViewExp::Perspective(eye, target, uniform(0.5f, 1.8f), kWidth, kHeight);
    Matrix3 tm;
    tm.RotateX(uniform(0, 6));
    tm.Scale({uniform(0.5f, 2), 1, -1});
    tm.SetTrans(point(4));
    const Point3 p[] = {point(14), point(14), point(14), point(14)};
    const Extras::Draw draw = [=](GraphicsWindow& gw) {
      gw.setTransform(tm);
      if (round % 4 == 0) gw.marker(p[0] * 0.3f, DOT_MRKR);
      if (round % 4 == 1) gw.polyline(2, p, false);
      if (round % 4 == 2) gw.polyline(4, p, true);
      if (round % 4 == 3) gw.text(p[0] * 0.3f, L"ab");
      gw.setTransform(Matrix3());  // of nothing
      gw.setTransform(TransMatrix(p[1]));
      gw.marker(p[2] * 0.3f, DOT_MRKR);
    };
    const std::vector<IPoint2> changed = Changed(view, draw);
    const size_t drawn = view.getGW()->Dots().size() + view.getGW()->Lines().size();
    ++(changed.empty() ? unseen : seen);
    for (const IPoint2& at : changed)
      ASSERT_TRUE(Hits(view, draw, {at})) << "round " << round << " at " << at.x << ", " << at.y;
    // What is outside the picture may reach 12 pixels into it.
    for (int y = 12; y < kHeight - 12; y += 3)
      for (int x = 12; x < kWidth - 12; x += 3) {
        const bool near = std::any_of(changed.begin(), changed.end(), [&](const IPoint2& at) {
          return std::abs(at.x - x) <= 12 && std::abs(at.y - y) <= 12;
        });
        ASSERT_FALSE(!near && Hits(view, draw, {{x, y}})) << round << " at " << x << ", " << y;
      }
    EXPECT_EQ(view.getGW()->Dots().size() + view.getGW()->Lines().size(), drawn) << round;
  }
  EXPECT_GT(seen, 20);
  EXPECT_GT(unseen, 2);
}

TEST(GraphicsWindow, NothingBehindTheEyeIsHit) {
  ViewExp view = SquareView();
  // At depth d it is seen at x = 50 * (1 - 1 / d) - 0.5: from 24.5 at depth 2 out to the left.
  const Point3 line[] = {{-1, 2, 0}, {-1, -5, 0}};
  const auto draw = [&](GraphicsWindow& gw) { gw.polyline(2, line, false); };
  EXPECT_TRUE(Hits(view, draw, {{24, 49}}));
  EXPECT_FALSE(Hits(view, draw, {{36, 49}}));
  EXPECT_FALSE(Hits(view, draw, {{75, 49}})) << "the mirror image of what lies behind";
  for (const float y : {-3.0f, 0.0f, std::numeric_limits<float>::quiet_NaN()}) {
    const auto behind = [&](GraphicsWindow& gw) {
      const Point3 across[] = {{-9, y, 0}, {9, y, 0}};
      gw.marker({0, y, 0}, DOT_MRKR);
      gw.polyline(2, across, false);
      gw.text({0, y, 0}, L"text");
    };
    EXPECT_FALSE(Hits(view, behind, {{0, 0}, {99, 99}})) << y;
  }
}

TEST(GraphicsWindow, ARectangleTakesWhatCrossesItOrWhatLiesInside) {
  // One pixel a unit, the middle of pixel (x, y) at (x - 49.5, 49.5 - y).
  ViewExp view = FlatView();
  const auto square = Square({0, 0, 1}, 10);
  // The dot is at pixel (59.5, 49.5), and the open square has no left side, x = 39.5.
  const std::pair<const char*, Extras::Draw> kinds[] = {
      {"dot ", [](auto& gw) { gw.marker(Point3(10, 0, 0), DOT_MRKR); }},
      {"open ", [&](auto& gw) { gw.polyline(4, square.data(), false); }},
      {"closed", [&](auto& gw) { gw.polyline(4, square.data(), true); }}};
  const auto hit = [&](bool crossing, IPoint2 a, IPoint2 b) {
    std::string names;
    for (const auto& [name, draw] : kinds)
      if (Hits(view, draw, {a, b}, crossing)) names += name;
    return names;
  };
  EXPECT_EQ(hit(true, {30, 30}, {70, 70}), "dot open closed");
  EXPECT_EQ(hit(true, {44, 45}, {46, 47}), "");
  EXPECT_EQ(hit(true, {45, 45}, {35, 48}), "closed");
  EXPECT_EQ(hit(false, {30, 30}, {70, 70}), "dot open closed");
  EXPECT_EQ(hit(false, {57, 65}, {62, 30}), "dot ") << "one side of the square";
  EXPECT_EQ(hit(false, {60, 49}, {64, 55}), "") << "half of the dot";
}

class Picking : public Staged {
 protected:
  using Nodes = std::vector<INode*>;
  /// At a point, or in the rectangle of two.
  Nodes Pick(ViewExp view, std::vector<IPoint2> p, bool crossing = true) {
    return host::PickNodes(ip_, view, HitType(p.size() - 1), crossing, p.data());
  }
};

TEST_F(Picking, AFaceIsHitWhereItIsSeen) {
  const Nodes plane = {Plane({0, 0, 3}, 60)};
  for (const float z : {50.0f, -50.0f}) {  // from both sides
    const ViewExp view = FlatView(100, 100, 100, z);
    EXPECT_EQ(Pick(view, {{21, 70}}), plane) << z;
    EXPECT_EQ(Pick(view, {{12, 50}}), Nodes{}) << z;
    EXPECT_EQ(Pick(view, {{45, 45}, {47, 47}}), plane) << z;
    EXPECT_EQ(Pick(view, {{10, 10}, {90, 90}}, false), plane) << z;
    EXPECT_EQ(Pick(view, {{10, 10}, {90, 70}}, false), Nodes{}) << z;
  }
  // 2 below the eye and 100 all round, it is seen under the horizon, row 49.5.
  plane[0]->Hide(true);
  INode* ground = Plane({0, 0, -2}, 200);
  EXPECT_EQ(Pick(SquareView(), {{5, 95}}), Nodes{ground});
  EXPECT_EQ(Pick(SquareView(), {{50, 30}}), Nodes{});
  EXPECT_EQ(Pick(SquareView(), {{0, 0}, {99, 99}}, false), Nodes{});
  ground->SetNodeTM(0, TransMatrix({0, -150, -2}));
  EXPECT_EQ(Pick(SquareView(), {{0, 0}, {99, 99}}), Nodes{}) << "all of it behind";
}

TEST_F(Picking, AsksTheObjectsOfVisibleNodesInTheOrderOfTheScene) {
  INode* lower = Plane({0, 0, 0}, 20);
  Plane({0, 0, 1}, 20)->Hide(true);
  INode* layered = Plane({0, 0, 2}, 20);
  ILayer* layer = ip_.GetLayerManager().CreateLayer(L"off");
  layer->AddToLayer(layered);
  INode* upper = Plane({0, 0, 9}, 20);
  EXPECT_EQ(Pick(FlatView(), {{50, 50}}), (Nodes{lower, layered, upper}));
  layer->Hide(true);
  EXPECT_EQ(Pick(FlatView(), {{0, 0}, {99, 99}}, false), (Nodes{lower, upper}));
  lower->SetNodeTM(0, TransMatrix({0, 0, std::numeric_limits<float>::infinity()}));
  EXPECT_EQ(Pick(FlatView(), {{50, 50}}), Nodes{upper});
}

}  // namespace
