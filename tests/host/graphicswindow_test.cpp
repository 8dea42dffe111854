#include "host/viewport/graphicswindow.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <random>
#include <string>

#include "host/host.h"
#include "host/viewport/picture.h"
#include "tests/host/extras.h"

namespace {

constexpr int kWidth = 96, kHeight = 72;

// Left and right, up and down lie at -1 and 1 at depth 1; 50 pixels a unit.
ViewExp SquareView() { return ViewExp::Perspective({0, 0, 0}, {0, 1, 0}, 1.5707964f, 100, 100); }
// One pixel a unit, the middle of pixel (x, y) at (x - 49.5, 49.5 - y).
ViewExp FlatView() { return ViewExp::Orthographic({0, 0, 5}, {0, 0, 0}, 100, 100, 100); }

bool Hits(ViewExp& view, const HitRegion& region, const Extras::Draw& draw) {
  GraphicsWindow& gw = *view.getGW();
  gw.setHitRegion(region);
  gw.clearHitCode();
  const unsigned limits = gw.getRndLimits();
  gw.setRndLimits((limits & ~GW_ILLUM) | GW_PICK);
  draw(gw);
  gw.setRndLimits(limits);
  return gw.checkHitCode();
}
bool HitsAt(ViewExp& view, IPoint2 at, const Extras::Draw& draw) {
  return Hits(view, MakeHitRegion(HITTYPE_POINT, true, 4, &at), draw);
}
bool HitsIn(ViewExp& view, bool crossing, IPoint2 a, IPoint2 b, const Extras::Draw& draw) {
  const IPoint2 corners[] = {a, b};
  return Hits(view, MakeHitRegion(HITTYPE_RECT, crossing, 4, corners), draw);
}

/// The pixels that a drawing changes in the picture of a view.
std::vector<IPoint2> Changed(ViewExp& view, const Extras::Draw& draw) {
  host::Host host;
  std::string error;
  const auto before = host::DrawScene(host.Services(), view, {.grid = false}, error);
  host.Services().CreateObjectNode(new Extras(draw));
  const auto after = host::DrawScene(host.Services(), view, {.grid = false}, error);
  std::vector<IPoint2> changed;
  if (!before || !after) {
    ADD_FAILURE() << error;
    return changed;
  }
  for (int y = 0; y < kHeight; ++y)
    for (int x = 0; x < kWidth; ++x)
      for (size_t c = 0, p = (size_t(y) * kWidth + size_t(x)) * 3; c < 3; ++c)
        if (std::abs(before->rgb[p + c] - after->rgb[p + c]) > 24) {
          changed.push_back({x, y});
          break;
        }
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
    };
    const std::vector<IPoint2> changed = Changed(view, draw);
    ++(changed.empty() ? unseen : seen);
    for (const IPoint2& at : changed)
      ASSERT_TRUE(HitsAt(view, at, draw)) << "round " << round << " at " << at.x << ", " << at.y;
    for (int y = 0; y < kHeight; y += 3)
      for (int x = 0; x < kWidth; x += 3) {
        const bool inside = x >= 12 && y >= 12 && x < kWidth - 12 && y < kHeight - 12;
        const bool near = std::any_of(changed.begin(), changed.end(), [&](const IPoint2& at) {
          return std::abs(at.x - x) <= 12 && std::abs(at.y - y) <= 12;
        });
        if (!inside || near) continue;
        ASSERT_FALSE(HitsAt(view, {x, y}, draw)) << "round " << round << " at " << x << ", " << y;
      }
  }
  EXPECT_GT(seen, 20);
  EXPECT_GT(unseen, 2);
}

TEST(GraphicsWindow, NothingBehindTheEyeIsHit) {
  ViewExp view = SquareView();
  // At depth d it is seen at x = 50 * (1 - 1 / d) - 0.5: from 24.5 at depth 2 out to the left.
  const Point3 line[] = {{-1, 2, 0}, {-1, -5, 0}};
  const auto draw = [&](GraphicsWindow& gw) { gw.polyline(2, line, false); };
  EXPECT_TRUE(HitsAt(view, {24, 49}, draw));
  EXPECT_TRUE(HitsAt(view, {2, 50}, draw));
  EXPECT_FALSE(HitsAt(view, {36, 49}, draw));
  EXPECT_FALSE(HitsAt(view, {75, 49}, draw)) << "the mirror image of what lies behind";
  EXPECT_FALSE(HitsIn(view, false, {0, 0}, {99, 99}, draw)) << "not as a whole";
  for (const float y : {-3.0f, 0.0f}) {
    const auto behind = [&](GraphicsWindow& gw) {
      const Point3 across[] = {{-9, y, 0}, {9, y, 0}};
      gw.marker({0, y, 0}, DOT_MRKR);
      gw.polyline(2, across, false);
      gw.text({0, y, 0}, L"text");
    };
    EXPECT_FALSE(HitsIn(view, true, {0, 0}, {99, 99}, behind)) << y;
  }
  const float none = std::numeric_limits<float>::quiet_NaN();
  const Point3 lost[] = {{-1, 2, 0}, {1, none, 0}};
  EXPECT_FALSE(HitsIn(view, true, {0, 0}, {99, 99}, [&](GraphicsWindow& gw) {
    gw.marker(lost[1], DOT_MRKR);
    gw.polyline(2, lost, false);
  }));
}

TEST(GraphicsWindow, ARectangleTakesWhatCrossesItOrWhatLiesInside) {
  ViewExp view = FlatView();
  const Point3 diagonal[] = {{-40, -40, 0}, {40, 40, 0}};
  const Point3 square[] = {{-10, -10, 1}, {10, -10, 1}, {10, 10, 1}, {-10, 10, 1}};
  // The dot is at pixel (59.5, 49.5), and the open square has no left side, x = 39.5.
  const auto hit = [&](bool crossing, IPoint2 a, IPoint2 b) {
    const auto in = [&](const Extras::Draw& draw) { return HitsIn(view, crossing, a, b, draw); };
    std::string kinds;
    if (in([](auto& gw) { gw.marker({10, 0, 0}, DOT_MRKR); })) kinds += "dot ";
    if (in([&](auto& gw) { gw.polyline(2, diagonal, false); })) kinds += "line ";
    if (in([&](auto& gw) { gw.polyline(4, square, false); })) kinds += "open ";
    if (in([&](auto& gw) { gw.polyline(4, square, true); })) kinds += "closed";
    return kinds;
  };
  EXPECT_EQ(hit(true, {30, 30}, {70, 70}), "dot line open closed");
  EXPECT_EQ(hit(true, {44, 45}, {46, 47}), "");
  EXPECT_EQ(hit(true, {45, 45}, {35, 48}), "closed");
  EXPECT_EQ(hit(true, {60, 50}, {60, 50}), "dot open closed");
  EXPECT_EQ(hit(true, {55, 55}, {70, 30}), "dot line open closed");
  EXPECT_EQ(hit(false, {30, 30}, {70, 70}), "dot open closed");
  EXPECT_EQ(hit(false, {57, 51}, {62, 47}), "dot ");
  EXPECT_EQ(hit(false, {60, 49}, {64, 55}), "") << "half of the dot";
  EXPECT_EQ(hit(false, {5, 5}, {95, 95}), "dot line open closed");
}

TEST(GraphicsWindow, RecordsUnderTheTransformInForceAndNothingInPickState) {
  ViewExp view = FlatView();
  GraphicsWindow& gw = *view.getGW();
  const Matrix3 moved = TransMatrix({1, 2, 3}), other = TransMatrix({4, 5, 6});
  const Point3 corners[] = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}};
  gw.setTransform(other);  // of nothing
  gw.setTransform(moved);
  gw.setColor(LINE_COLOR, 1, 0.5f, 0);
  gw.marker({7, 8, 9}, DOT_MRKR);
  gw.polyline(3, corners, true);
  EXPECT_TRUE(HitsAt(view, {50, 50}, [&](GraphicsWindow& w) {
    w.setTransform(Matrix3());
    w.marker({0, 0, 0}, DOT_MRKR);
    w.polyline(3, corners, false);
    w.text({0, 0, 0}, L"text");
  }));
  gw.marker({1, 1, 1}, DOT_MRKR);  // in the space that the pick left
  gw.setTransform(other);
  gw.polyline(2, corners, true);  // a segment has no way back
  gw.text({0, 0, 0}, L"text");

  ASSERT_EQ(gw.Dots().size(), 2u);
  EXPECT_EQ(gw.Dots()[0].at, Point3(7, 8, 9));
  EXPECT_EQ(gw.Dots()[0].rgba, 0xFF0080FFu);
  ASSERT_EQ(gw.Lines().size(), 8u);
  for (size_t i = 0; i < 6; ++i) EXPECT_EQ(gw.Lines()[i].at, corners[(i + 1) / 2 % 3]) << i;
  EXPECT_EQ(gw.Texts().size(), 1u);
  ASSERT_EQ(gw.Batches().size(), 3u);
  const std::pair<Matrix3, size_t> batches[] = {{moved, 0}, {Matrix3(), 1}, {other, 2}};
  for (size_t b = 0; b < 3; ++b) {
    EXPECT_EQ(gw.Batches()[b].toWorld, batches[b].first) << b;
    EXPECT_EQ(gw.Batches()[b].firstDot, batches[b].second) << b;
    EXPECT_EQ(gw.Batches()[b].firstLine, b == 0 ? 0u : 6u) << b;
  }
  gw.Clear();
  EXPECT_TRUE(gw.Dots().empty() && gw.Lines().empty() && gw.Texts().empty());
  EXPECT_EQ(gw.Batches().size(), 1u);
}

}  // namespace
