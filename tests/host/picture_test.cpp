#include "host/viewport/picture.h"

#include <cmath>
#include <limits>

#include "host/scene/mtl.h"
#include "host/viewport/viewports.h"
#include "tests/host/extras.h"
#include "tests/host/golden.h"

namespace {

using host::Picture;

class Drawing : public Staged {
 protected:
  INode* Box(const Point3& middle, float size, ColorRef color = PackColor(220, 30, 30)) {
    auto* box = new BoxObject;
    box->SetSize(size, size, size);
    return Add(box, middle - Point3(0, 0, size / 2), color);
  }
  Picture Draw(ViewExp view, const host::PictureOptions& options = {.grid = false}) {
    std::string error;
    const auto picture = host::DrawScene(ip_, view, options, error);
    EXPECT_TRUE(picture) << error;
    return picture.value_or(Picture{});
  }
  /// The channel that stands out by at least 40 levels, or -1: the light is nearly colourless.
  static int Hue(const Picture& p, int x, int y) {
    const std::uint8_t* c = &p.rgb.at((size_t(y) * size_t(p.width) + size_t(x)) * 3);
    for (int i = 0; i < 3; ++i)
      if (c[i] >= 40 + std::max(c[(i + 1) % 3], c[(i + 2) % 3])) return i;
    return -1;
  }
};

TEST_F(Drawing, TheNearestNodeIsSeenInTheColourOfItsMaterial) {
  Box({std::numeric_limits<float>::quiet_NaN(), 0, 0}, 1);
  // The farther one is 0.05 behind at 20 units, and 50 behind at 20,000.
  for (const float unit : {1.0f, 1000.0f}) {
    INode* front = Box({0, 0, 0}, 2 * unit);
    Box({0, 0.05f * unit, 0}, 2 * unit, PackColor(40, 40, 220));
    const ViewExp view = ViewExp::Perspective({0, -20 * unit, 0}, {0, 0, 0}, 0.3f, 100, 100);
    auto* multi = new MultiMtl;
    front->SetMtl(multi);
    for (int id = 0; id < 6; ++id) multi->SetSubMtl(id, nullptr);
    EXPECT_EQ(Hue(Draw(view), 50, 50), 0) << "an empty slot shows the wire colour";
    front->SetMtl(new StdMtl);
    front->GetMtl()->SetDiffuse({0.02f, 0.6f, 0.02f}, 0);
    EXPECT_EQ(Hue(Draw(view), 50, 50), 1) << unit;
    front->Hide(true);
    EXPECT_EQ(Hue(Draw(view), 50, 50), 2) << unit;
  }
}

// A disc of dots and a wire box round a real one, half of each behind it, with a caption.
void DrawExhibit(GraphicsWindow& gw) {
  for (int i = 0; i < 24; ++i) {
    const float a = float(i) * 0.2617994f;
    gw.setColor(LINE_COLOR, i % 2 ? 0.9f : 0.0f, 0.1f, i % 2 ? 0.0f : 0.8f);
    gw.marker({3.4f * std::cos(a), 3.4f * std::sin(a), 0}, DOT_MRKR);
  }
  gw.setColor(LINE_COLOR, 0, 0.45f, 0);
  const auto low = Square({0, 0, 0}, 2), high = Square({0, 0, 3}, 2);
  for (size_t i = 0; i < 4; ++i) {
    const Point3 side[] = {low[(i + 1) % 4], low[i], high[i], high[(i + 1) % 4]};
    gw.polyline(4, side, false);
  }
  gw.setColor(TEXT_COLOR, 1, 0, 0);
  gw.text({-2, -2, 3.4f}, L"box 3");
}

TEST_F(Drawing, LooksAsItDidBefore) {
  Plane({0, 0, 0}, 12, 300, PackColor(190, 170, 120));  // drawn in several loads
  Box({0, 0, 1}, 2, PackColor(120, 130, 150));
  auto* ball = new SphereObject;
  ball->SetSize(1.2f, 32);
  Add(ball, {-3.5f, 3, 1.2f}, PackColor(60, 140, 70));
  const ViewExp perspective = ViewExp::Perspective({7, -10, 6}, {0, 0, 1}, 0.9f, 160, 120);
  ExpectGolden(Draw(perspective, {.grid = true}), "meshes");
  Add(new Extras(DrawExhibit));
  ExpectGolden(Draw(perspective), "drawn_perspective");
  ExpectGolden(Draw(ViewExp::Orthographic({0, -20, 1}, {0, 0, 1}, 12, 160, 120), {.grid = true}),
               "drawn_front");
  ExpectGolden(Draw(FlatView(14, 160, 120)), "drawn_top");
}

TEST_F(Drawing, AParallelViewShowsDotsFarBeforeAndBehindItsMeshes) {
  // Eight pixels a unit; the box covers pixels 30 to 70. One dot is over it, one under, two beside,
  // the farther one drawn last.
  Box({0, 0, 0}, 5, PackColor(30, 160, 30));
  Add(new Extras([](GraphicsWindow& gw) {
    gw.setColor(LINE_COLOR, 0, 0, 1);
    gw.marker({4.0625f, 0.0625f, -4000}, DOT_MRKR);
    gw.setColor(LINE_COLOR, 1, 0, 0);
    gw.marker({4.0625f, 0.0625f, -5000}, DOT_MRKR);
    gw.marker({1.0625f, 0.0625f, 5000}, DOT_MRKR);
    gw.marker({-0.9375f, 0.0625f, -5000}, DOT_MRKR);
  }));
  const Picture picture = Draw(FlatView(12.5f));
  EXPECT_EQ(Hue(picture, 58, 49), 0);
  EXPECT_EQ(Hue(picture, 42, 49), 1);
  EXPECT_EQ(Hue(picture, 82, 49), 2);
}

/// Draws a red square, 5 wide, round the place under the pointer, and lists where that is.
struct Marking : RedrawViewsCallback {
  void proc(Interface* ip) override {
    ViewExp& view = *ip->GetActiveViewExp();
    const IPoint2 at = ip->GetMousePosition();
    list += "callback " + std::to_string(at.x) + " ";
    view.getGW()->setTransform(Matrix3());
    view.getGW()->setColor(LINE_COLOR, 1, 0, 0);
    view.getGW()->polyline(4, Square(view.SnapPoint(at) + Point3(0, 0, 5), 2.5f).data(), true);
  }
  std::string list;
};

TEST_F(Drawing, ARedrawGoesFromDisplayToItemsToCallbacks) {
  Marking marking;
  std::string& list = marking.list;
  for (const bool hidden : {false, true})
    Add(new Extras([&](auto&) { list += "Display "; }, [&] { list += "Items "; }))->Hide(hidden);
  const auto active = std::make_shared<ViewExp>(FlatView());
  ip_.Views().SetActive(active);
  ip_.Views().Move({7, 7});
  ip_.RegisterRedrawViewsCallback(&marking);

  // Two pixels a unit. A picture's view isn't the active one.
  EXPECT_EQ(Hue(Draw(FlatView(50)), 50, 45), -1);
  EXPECT_EQ(list, "Display Items ");
  list.clear();
  // The square reaches 5 pixels from the pointer; it comes and goes without the scene.
  const Picture pointed = Draw(FlatView(50), {.grid = false, .pointer = IPoint2{70, 30}});
  for (const IPoint2& at : {IPoint2{65, 30}, {75, 30}, {70, 25}, {70, 35}})
    EXPECT_EQ(Hue(pointed, at.x, at.y), 0) << at.x << ", " << at.y;
  EXPECT_EQ(list, "callback 70 Display Items callback 70 callback 7 ");
  EXPECT_EQ(ip_.GetActiveViewExp(), active.get());
  ip_.RedrawViews(0);
  ip_.RedrawViews(0);
  EXPECT_EQ(active->getGW()->Lines().size(), 8u) << "what one redraw drew";
  ip_.UnRegisterRedrawViewsCallback(&marking);
}

TEST_F(Drawing, RedrawsAskedForInDisplayAreDoneAfterwards) {
  std::string list;
  int asks = 1, windows = 0;
  INode* node = nullptr;
  const auto draw = [&](GraphicsWindow& gw) {
    list += "Display ";
    gw.setColor(LINE_COLOR, 1, 0, 0);
    gw.marker({0, 0, 0}, DOT_MRKR);
    std::string why;
    ViewExp view = FlatView();
    EXPECT_FALSE(host::DrawScene(ip_, view, {}, why));
    if (asks-- <= 0) return;
    node->SetNodeTM(0, TransMatrix({3, 0, 0}));
    ip_.RedrawViews(0);
    list += "asked ";
  };
  node = Add(new Extras(draw, [&] { list += "Items "; }));
  ip_.Views().SetPainter([&](TimeValue) { ++windows; });
  // Ten pixels a unit: the picture is that of the second pass.
  const Picture picture = Draw(FlatView(10));
  EXPECT_EQ(list, "Display asked Items Display Items ");
  EXPECT_EQ(Hue(picture, 80, 50), 0);
  EXPECT_EQ(windows, 1) << "they were asked for too";
  asks = 1000;
  Draw(FlatView(10));
  EXPECT_EQ(asks, 1000 - host::Viewports::kMostPasses);
  ip_.Views().SetPainter(nullptr);
}

}  // namespace
