#include <gtest/gtest.h>

#include <limits>

#include "host/host.h"
#include "host/scene/primitives.h"
#include "host/viewport/scenedrawing.h"
#include "tests/host/extras.h"

namespace {

// One pixel a unit, the middle of pixel (x, y) at (x - 49.5, 49.5 - y).
ViewExp FlatView(float z) { return ViewExp::Orthographic({0, 0, z}, {0, 0, 0}, 100, 100, 100); }

class Picking : public testing::Test {
 protected:
  INode* Plane(const Point3& middle, float side) {
    auto* plane = new PlaneObject;
    plane->SetSize(side, side, 1, 1);
    INode* node = ip_.CreateObjectNode(plane);
    node->SetNodeTM(0, TransMatrix(middle));
    return node;
  }
  std::vector<INode*> At(ViewExp view, IPoint2 at) {
    return host::PickNodes(ip_, view, HITTYPE_POINT, true, &at);
  }
  std::vector<INode*> In(ViewExp view, bool crossing, IPoint2 a, IPoint2 b) {
    const IPoint2 corners[] = {a, b};
    return host::PickNodes(ip_, view, HITTYPE_RECT, crossing, corners);
  }
  host::Host host_;
  Interface& ip_ = host_.Services();
  using Nodes = std::vector<INode*>;
};

TEST_F(Picking, AFaceIsHitFromBothSidesInItsMiddleToo) {
  INode* plane = Plane({0, 0, 3}, 60);
  for (const float z : {50.0f, -50.0f}) {
    EXPECT_EQ(At(FlatView(z), {50, 50}), Nodes{plane}) << z;
    EXPECT_EQ(At(FlatView(z), {21, 70}), Nodes{plane}) << z;
    EXPECT_EQ(At(FlatView(z), {12, 50}), Nodes{}) << z;
    EXPECT_EQ(In(FlatView(z), true, {45, 45}, {47, 47}), Nodes{plane}) << z;
    EXPECT_EQ(In(FlatView(z), false, {10, 10}, {90, 90}), Nodes{plane}) << z;
    EXPECT_EQ(In(FlatView(z), false, {10, 10}, {90, 70}), Nodes{}) << z;
  }
  // From its edge it is a line at y = 46.5.
  const ViewExp edge = ViewExp::Orthographic({0, -9, 0}, {0, 0, 0}, 100, 100, 100);
  EXPECT_EQ(At(edge, {50, 44}), Nodes{plane});
  EXPECT_EQ(At(edge, {50, 40}), Nodes{});
}

TEST_F(Picking, AFaceThatReachesBehindTheEyeIsHitWhereItIsSeen) {
  // The ground, 2 below the eye and 100 all round: it is seen under the horizon, row 49.5.
  INode* ground = Plane({0, 0, -2}, 200);
  const ViewExp view = ViewExp::Perspective({0, 0, 0}, {0, 1, 0}, 1.5707964f, 100, 100);
  EXPECT_EQ(At(view, {50, 80}), Nodes{ground});
  EXPECT_EQ(At(view, {5, 95}), Nodes{ground});
  EXPECT_EQ(At(view, {50, 30}), Nodes{});
  EXPECT_EQ(In(view, false, {0, 0}, {99, 99}), Nodes{});
  ground->SetNodeTM(0, TransMatrix({0, -150, -2}));
  EXPECT_EQ(In(view, true, {0, 0}, {99, 99}), Nodes{}) << "all of it behind";
}

TEST_F(Picking, AsksTheObjectsOfVisibleNodesInTheOrderOfTheScene) {
  INode* lower = Plane({0, 0, 0}, 20);
  INode* hidden = Plane({0, 0, 1}, 20);
  hidden->Hide(true);
  INode* layered = Plane({0, 0, 2}, 20);
  ILayer* layer = ip_.GetLayerManager().CreateLayer(L"off");
  layer->AddToLayer(layered);
  auto* points = new TriObject;
  points->mesh.setNumVerts(1);
  points->mesh.setVert(0, {0, 0, 0});
  ip_.CreateObjectNode(points);
  INode* upper = Plane({0, 0, 9}, 20);
  EXPECT_EQ(At(FlatView(50), {50, 50}), (Nodes{lower, layered, upper}));
  layer->Hide(true);
  EXPECT_EQ(At(FlatView(50), {50, 50}), (Nodes{lower, upper}));
  EXPECT_EQ(At(FlatView(50), {80, 50}), Nodes{});
  EXPECT_EQ(In(FlatView(50), false, {0, 0}, {99, 99}), (Nodes{lower, upper}));
  lower->SetNodeTM(0, TransMatrix({0, 0, std::numeric_limits<float>::infinity()}));
  EXPECT_EQ(At(FlatView(50), {50, 50}), Nodes{upper});

  ViewExp view = FlatView(50);
  GraphicsWindow& gw = *view.getGW();
  IPoint2 at{50, 50};
  EXPECT_EQ(upper->GetObjectRef()->HitTest(0, upper, HITTYPE_POINT, 1, 0, &at, &view), 1);
  EXPECT_EQ(gw.getRndLimits(), GW_ILLUM) << "the limits are put back";
  EXPECT_EQ(upper->GetObjectRef()->HitTest(0, upper, HITTYPE_POINT, 1, 0, &at, nullptr), 0);
}

}  // namespace
