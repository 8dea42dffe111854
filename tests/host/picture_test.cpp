#include "host/viewport/picture.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>

#include "host/host.h"
#include "host/scene/camera.h"
#include "host/scene/mtl.h"
#include "host/scene/primitives.h"
#include "host/viewport/viewports.h"
#include "tests/host/extras.h"
#include "tests/host/golden.h"

namespace {

using host::Picture;

class Drawing : public testing::Test {
 protected:
  INode* Box(const Point3& middle, float size, ColorRef color = PackColor(220, 30, 30)) {
    auto* box = new BoxObject;
    box->SetSize(size, size, size);
    INode* node = ip_.CreateObjectNode(box);
    node->SetNodeTM(0, TransMatrix(middle - Point3(0, 0, size / 2)));
    node->SetWireColor(color);
    return node;
  }
  Picture Draw(ViewExp view, const host::PictureOptions& options = {.grid = false}) {
    const auto picture = host::DrawScene(ip_, view, options, error_);
    EXPECT_TRUE(picture) << error_;
    return picture.value_or(Picture{});
  }
  INode* Add(Object* object, const Point3& at = {0, 0, 0}) {
    INode* node = ip_.CreateObjectNode(object);
    node->SetNodeTM(0, TransMatrix(at));
    return node;
  }
  static int Level(const Picture& p, int x, int y, int channel) {
    return p.rgb.at((size_t(y) * size_t(p.width) + size_t(x)) * 3 + size_t(channel));
  }
  /// The channel that stands out by at least 40 levels, or -1: the light is nearly colourless.
  static int Hue(const Picture& p, int x, int y) {
    for (int i = 0; i < 3; ++i)
      if (Level(p, x, y, i) >=
          40 + std::max(Level(p, x, y, (i + 1) % 3), Level(p, x, y, (i + 2) % 3)))
        return i;
    return -1;
  }
  host::Host host_;
  Interface& ip_ = host_.Services();
  std::string error_;
};

TEST_F(Drawing, ThingsStandWhereTheViewProjectsThem) {
  const Point3 places[] = {{0, 0, 0}, {3, 1, 2}, {-4, 2, -1}, {1, -3, 3}, {4, 4, 0}};
  for (const Point3& p : places) Box(p, 0.3f);
  auto* lens = new CameraObject;
  lens->SetFOV(0, 0.9f);
  INode* camera = ip_.CreateObjectNode(lens);
  // It looks along +Y from behind, scaled and mirrored as a file's camera may be.
  camera->SetNodeTM(0, {{-3, 0, 0}, {0, 0, 3}, {0, -3, 0}, {0.3f, -16, 0.4f}});
  for (const ViewExp& view : {ViewExp::Perspective({9, -12, 7}, {0, 0, 0}, 0.8f, 321, 200),
                              ViewExp::Perspective({0.1f, 0, 15}, {0.1f, 0, 0}, 1.2f, 200, 301),
                              ViewExp::Orthographic({-5, -9, 4}, {0, 0, 0}, 18, 300, 222),
                              // Beyond the scene, which a parallel view shows all the same.
                              ViewExp::Orthographic({0, 50, 0}, {0, 60, 0}, 18, 300, 222),
                              ViewExp::FromCamera(camera, 250, 180)}) {
    const Picture picture = Draw(view);
    for (const Point3& p : places) {
      double x = 0, y = 0;
      ASSERT_TRUE(view.ProjectToScreen(p, x, y));
      EXPECT_EQ(Hue(picture, int(std::lround(x)), int(std::lround(y))), 0)
          << "view of width " << view.Width() << " at " << x << ", " << y;
    }
  }
}

TEST_F(Drawing, EdgesLieBetweenThePixelsThatTheViewSays) {
  // Eight pixels a unit; the middle of pixel x is at (x + 0.5) / 8 - 12.5, so the edges of a square
  // from -5 to 2.5 and from -1.25 to 6.25 lie between pixels: columns 60 to 120, and with +Y up
  // rows (10 - 6.25) * 8 = 30 to (10 + 1.25) * 8 = 90.
  auto* plane = new PlaneObject;
  plane->SetSize(7.5f, 7.5f, 300, 300);  // in several loads
  INode* node = ip_.CreateObjectNode(plane);
  node->SetNodeTM(0, TransMatrix({-1.25f, 2.5f, 1}));
  node->SetWireColor(PackColor(40, 40, 220));
  const Picture picture = Draw(ViewExp::Orthographic({0, 0, 9}, {0, 0, 0}, 25, 200, 160));
  for (int y = 0; y < 160; ++y)
    for (int x = 0; x < 200; ++x) {
      const bool inside = x >= 60 && x < 120 && y >= 30 && y < 90;
      ASSERT_EQ(Hue(picture, x, y), inside ? 2 : -1) << x << ", " << y;
    }
}

TEST_F(Drawing, TheNearestShownNodeIsSeenInTheColourOfItsMaterial) {
  INode* unsound = Box({0, -2, 0}, 1);
  unsound->SetNodeTM(0, TransMatrix({std::numeric_limits<float>::quiet_NaN(), 0, 0}));
  // The farther one is 0.05 behind at 20 units, and 50 behind at 20,000.
  for (const float unit : {1.0f, 1000.0f}) {
    INode* front = Box({0, 0, 0}, 2 * unit);
    auto* multi = new MultiMtl;
    multi->SetNumSubMtls(6);
    for (int i = 0; i < 6; ++i) multi->GetSubMtl(i)->SetDiffuse({0.02f, 0.6f, 0.02f}, 0);
    front->SetMtl(multi);
    INode* behind = Box({0, 0.05f * unit, 0}, 2 * unit, PackColor(40, 40, 220));
    const ViewExp view = ViewExp::Perspective({0, -20 * unit, 0}, {0, 0, 0}, 0.3f, 100, 100);
    EXPECT_EQ(Hue(Draw(view), 50, 50), 1) << unit;
    for (int i = 0; i < 6; ++i) multi->SetSubMtl(i, nullptr);
    EXPECT_EQ(Hue(Draw(view), 50, 50), 0) << "an empty slot shows the wire colour";
    front->Hide(true);
    EXPECT_EQ(Hue(Draw(view), 50, 50), 2) << unit;
    ILayer* layer = ip_.GetLayerManager().CreateLayer(L"off" + std::to_wstring(unit));
    layer->AddToLayer(behind);
    layer->Hide(true);
    EXPECT_EQ(Hue(Draw(view), 50, 50), -1) << unit;
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
  for (const float z : {0.0f, 3.0f}) {
    const Point3 square[] = {{-2, -2, z}, {2, -2, z}, {2, 2, z}, {-2, 2, z}};
    gw.polyline(4, square, true);
  }
  for (const float x : {-2.0f, 2.0f})
    for (const float y : {-2.0f, 2.0f}) {
      const Point3 post[] = {{x, y, 0}, {x, y, 3}};
      gw.polyline(2, post, false);
    }
  gw.setColor(TEXT_COLOR, 1, 0, 0);
  gw.text({-2, -2, 3.4f}, L"box 3");
}

TEST_F(Drawing, LooksAsItDidBefore) {
  auto* ground = new PlaneObject;
  ground->SetSize(12, 12, 1, 1);
  Add(ground)->SetWireColor(PackColor(190, 170, 120));
  Box({0, 0, 1}, 2, PackColor(120, 130, 150));
  auto* ball = new SphereObject;
  ball->SetSize(1.2f, 32);
  Add(ball, {-3.5f, 3, 1.2f})->SetWireColor(PackColor(60, 140, 70));
  const ViewExp perspective = ViewExp::Perspective({7, -10, 6}, {0, 0, 1}, 0.9f, 160, 120);
  ExpectGolden(Draw(perspective, {.grid = true}), "meshes");
  Add(new Extras(DrawExhibit));
  ExpectGolden(Draw(perspective), "drawn_perspective");
  ExpectGolden(Draw(ViewExp::Orthographic({0, -20, 1}, {0, 0, 1}, 12, 160, 120), {.grid = true}),
               "drawn_front");
  ExpectGolden(Draw(ViewExp::Orthographic({0, 0, 9}, {0, 0, 0}, 14, 160, 120)), "drawn_top");
}

TEST_F(Drawing, AParallelViewShowsDotsFarBeforeAndBehindItsMeshes) {
  // Eight pixels a unit; the box covers pixels 30 to 70. One dot is over it, one under, two beside,
  // the farther one drawn last.
  Box({0, 0, 0}, 5, PackColor(30, 160, 30));
  const auto dots = [](GraphicsWindow& gw) {
    gw.setColor(LINE_COLOR, 1, 0, 0);
    gw.marker({1.0625f, 0.0625f, 5000}, DOT_MRKR);
    gw.marker({-0.9375f, 0.0625f, -5000}, DOT_MRKR);
    gw.setColor(LINE_COLOR, 0, 0, 1);
    gw.marker({4.0625f, 0.0625f, -4000}, DOT_MRKR);
    gw.setColor(LINE_COLOR, 1, 0, 0);
    gw.marker({4.0625f, 0.0625f, -5000}, DOT_MRKR);
  };
  // Callbacks draw when the depths are settled already, and keep their places towards the meshes.
  struct Late : RedrawViewsCallback {
    std::function<void(GraphicsWindow&)> draw;
    void proc(Interface* ip) override {
      if (ViewExp* view = ip->GetActiveViewExp()) draw(*view->getGW());
    }
  } late;
  late.draw = dots;
  INode* extras = Add(new Extras(dots));
  for (const bool byCallback : {false, true}) {
    extras->Hide(byCallback);
    if (byCallback) ip_.RegisterRedrawViewsCallback(&late);
    const Picture picture = Draw(ViewExp::Orthographic({0, 0, 9}, {0, 0, 0}, 12.5f, 100, 100),
                                 {.grid = false, .pointer = IPoint2{0, 0}});
    EXPECT_EQ(Hue(picture, 58, 49), 0);
    EXPECT_EQ(Hue(picture, 42, 49), 1);
    EXPECT_NE(Hue(picture, 82, 49), -1);
    EXPECT_TRUE(byCallback || Hue(picture, 82, 49) == 2);
  }
  ip_.UnRegisterRedrawViewsCallback(&late);
}

/// A box that writes down what a redraw asks of it.
class Listed : public BoxObject {
 public:
  Listed(std::string& list, std::function<void()> act) : list_(list), act_(std::move(act)) {
    SetSize(2, 2, 2);
  }
  int Display(TimeValue t, INode* node, ViewExp* view, int flags) override {
    list_ += "Display ";
    if (act_) act_();
    return BoxObject::Display(t, node, view, flags);
  }
  bool PrepareDisplay(UpdateDisplayContext& context) override {
    list_ += "Prepare ";
    return BoxObject::PrepareDisplay(context);
  }
  bool UpdatePerNodeItems(UpdateDisplayContext& context, UpdateNodeContext& node,
                          RenderItemContainer& container) override {
    list_ += "Items ";
    return BoxObject::UpdatePerNodeItems(context, node, container);
  }

 private:
  std::string& list_;
  std::function<void()> act_;
};

/// Draws a red square, 5 wide, round the place under the pointer, and lists where that is.
class Marking : public RedrawViewsCallback {
 public:
  explicit Marking(std::string& list) : list_(list) {}
  void proc(Interface* ip) override {
    const IPoint2 at = ip->GetMousePosition();
    list_ += "callback " + std::to_string(at.x) + " ";
    const Point3 p = ip->GetActiveViewExp()->SnapPoint(at);
    const Point3 square[] = {{p.x - 2.5f, p.y - 2.5f, 5},
                             {p.x + 2.5f, p.y - 2.5f, 5},
                             {p.x + 2.5f, p.y + 2.5f, 5},
                             {p.x - 2.5f, p.y + 2.5f, 5}};
    GraphicsWindow& gw = *ip->GetActiveViewExp()->getGW();
    gw.setTransform(Matrix3());
    gw.setColor(LINE_COLOR, 1, 0, 0);
    gw.polyline(4, square, true);
  }

 private:
  std::string& list_;
};

TEST_F(Drawing, ARedrawGoesFromDisplayToItemsToCallbacks) {
  std::string list;
  Add(new Listed(list, nullptr));
  Add(new Listed(list, nullptr))->Hide(true);
  Marking marking(list);
  const auto active =
      std::make_shared<ViewExp>(ViewExp::Orthographic({0, 0, 9}, {0, 0, 0}, 100, 100, 100));
  ip_.Views().SetActive(active);
  ip_.Views().Move({7, 7});
  ip_.RegisterRedrawViewsCallback(&marking);

  // Two pixels a unit. A picture's view isn't the active one.
  const ViewExp view = ViewExp::Orthographic({0, 0, 9}, {0, 0, 0}, 50, 100, 100);
  EXPECT_EQ(Hue(Draw(view), 50, 45), -1);
  EXPECT_EQ(list, "Display Prepare Items ");
  list.clear();
  // The square reaches 5 pixels from the pointer; it comes and goes without the scene.
  const Picture pointed = Draw(view, {.grid = false, .pointer = IPoint2{70, 30}});
  for (const IPoint2& at : {IPoint2{65, 30}, {75, 30}, {70, 25}, {70, 35}})
    EXPECT_EQ(Hue(pointed, at.x, at.y), 0) << at.x << ", " << at.y;
  EXPECT_EQ(Hue(pointed, 70, 30), -1);
  EXPECT_EQ(list, "callback 70 Display Prepare Items callback 70 callback 7 ");
  EXPECT_EQ(ip_.GetActiveViewExp(), active.get());
  EXPECT_EQ(ip_.GetMousePosition(), (IPoint2{7, 7}));
  list.clear();
  Draw(view, {.grid = false, .pointer = IPoint2{7, 7}});
  EXPECT_EQ(list, "callback 6 callback 7 Display Prepare Items callback 7 callback 6 callback 7 ")
      << "the same pixel of another view is a move";

  list.clear();
  EXPECT_TRUE(host::DrawScene(ip_, *active, {.grid = false}, error_));
  EXPECT_EQ(list, "Display Prepare Items callback 7 ");
  ip_.RedrawViews(0);
  EXPECT_EQ(active->getGW()->Lines().size(), 8u) << "what one redraw drew";
  ip_.UnRegisterRedrawViewsCallback(&marking);
}

TEST_F(Drawing, RedrawsAskedForInDisplayAreDoneAfterwards) {
  std::string list;
  int asks = 1;
  INode* node = nullptr;
  const auto act = [&] {
    EXPECT_TRUE(ip_.Views().IsDrawing());
    std::string why;
    ViewExp view = ViewExp::Orthographic({0, 0, 9}, {0, 0, 0}, 10, 10, 10);
    EXPECT_FALSE(host::DrawScene(ip_, view, {}, why));
    EXPECT_NE(why, "");
    if (asks-- <= 0) return;
    node->SetNodeTM(0, TransMatrix({3, 0, 0}));
    ip_.RedrawViews(0);
    list += "asked ";
  };
  node = Add(new Listed(list, act));
  node->SetWireColor(PackColor(220, 30, 30));
  int windows = 0;
  ip_.Views().SetPainter([&](TimeValue) { ++windows; });
  // Ten pixels a unit: the picture is that of the second pass.
  const Picture picture = Draw(ViewExp::Orthographic({0, 0, 9}, {0, 0, 0}, 10, 100, 100));
  EXPECT_EQ(list, "Display asked Prepare Items Display Prepare Items ");
  EXPECT_EQ(Hue(picture, 80, 50), 0);
  EXPECT_EQ(Hue(picture, 50, 50), -1);
  EXPECT_EQ(windows, 1) << "they were asked for too";
  asks = 1000;
  list.clear();
  Draw(ViewExp::Orthographic({0, 0, 9}, {0, 0, 0}, 10, 100, 100));
  EXPECT_EQ(asks, 1000 - host::Viewports::kMostPasses);
  ip_.Views().SetPainter(nullptr);
}

}  // namespace
