#include "host/viewport/picture.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "host/host.h"
#include "host/scene/camera.h"
#include "host/scene/mtl.h"
#include "host/scene/primitives.h"

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
  Picture Draw(const ViewExp& view) {
    const auto picture = host::DrawScene(ip_, view, {false}, error_);
    EXPECT_TRUE(picture) << error_;
    return picture.value_or(Picture{});
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

}  // namespace
