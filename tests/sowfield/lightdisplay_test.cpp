#include "host/viewport/renderitems.h"
#include "host/viewport/snap.h"
#include "sowfield/display/lightmodes.h"
#include "sowfield/model/displaymode.h"
#include "sowfield/model/palette.h"
#include "tests/sowfield/placement_twin.h"

namespace sowfield {
namespace {

using Drawn = std::vector<std::pair<Point3, std::uint32_t>>;  // points and colours

/// Types with turned, scaled and shifted sources, and placements of all of them.
struct LightScene : SowfieldScene {
  LightScene(int types, int count, std::uint32_t seed, float spread = 1000) : draw(seed) {
    for (int t = 0; t < types; ++t) {
      INode* source = AddSphere(L"ball", draw.Float(1, 4), 3 + 2 * t);
      AddAsType(source);
      source->SetNodeTM(0, Turned()), source->SetObjectOffset(TransMatrix(draw.Point(-3, 3)));
    }
    if (types > 0) ScrambleRows(*this, draw, types);
    ScatterPlacements(*this, draw, types, count);
    for (int p = 0; p < count; ++p) Set(Ins_Pos, draw.Point(-spread, spread), p);
    Set(Show_Logo, 0);
  }
  Matrix3 Turned() {
    Matrix3 m;
    m.RotateX(draw.Float(-3, 3)), m.RotateY(draw.Float(-3, 3)), m.RotateZ(draw.Float(-3, 3));
    return m.Scale(draw.Point(0.5f, 2)), m.Translate(draw.Point(-9, 9)), m;
  }
  GraphicsWindow& Redraw(int mode, int only = 0) {
    Set(Display_Mode, mode), Set(Display_Type, only);
    view.getGW()->Clear();
    EXPECT_EQ(object->Display(0, node, &view, 0), 1);
    return *view.getGW();
  }
  int Hit(HitType type, std::vector<IPoint2> at) {
    view.getGW()->setTransform(TransMatrix({99, 0, 0}));  // as another object left it
    return object->HitTest(0, node, type, 0, 0, at.data(), &view);
  }
  /// All dots of a redraw, point by point from the tables.
  Drawn Plainly() {
    const IParamBlock2& b = Block();
    const int mode = b.GetInt(Display_Mode), only = b.GetInt(Display_Type);
    const Matrix3 toObject = Inverse(node->GetObjectTM(0));
    Drawn all;
    for (int p = 0; p < D().PlacementCount(); ++p) {
      const int t = b.GetInt(Ins_Type, 0, p);
      if (only && t != only - 1) continue;
      const Point3 stored = b.GetPoint3(Ins_Pos, 0, p);
      Set(Ins_Pos, stored * toObject, p);
      const Matrix3 m = PlacementTwin(b, p).Matrix();
      Set(Ins_Pos, stored, p);

      const INode* source = b.GetINode(Geo_Nodes, 0, t);
      Matrix3 turn = source->GetNodeTM(0);
      const Point3 offset = turn.GetTrans() - source->GetObjectTM(0).GetTrans();
      turn.NoTrans();
      const auto rgba = GraphicsWindow::PackedColor(UnpackColor(kTypePalette[size_t(t % 26)]));
      if (mode == kShowDot) all.push_back({m.GetTrans(), rgba});
      int s = 0;
      for (int k = 0; k < t; ++k) s += b.GetInt(Geo_PointCount, 0, k);
      const int n = b.GetInt(Geo_PointCount, 0, t);
      const double end = n > 25 ? (n - 10) / 99.0 * (b.GetInt(PointCloud) - 1) + 10 : n;
      for (int i = 0; mode == kShowCloud && i < end - 1e-3; ++i)
        all.push_back({(b.GetPoint3(Geo_Points, 0, s + i) * turn - offset) * m, rgba});
    }
    return all;
  }
  Box3 Local() {
    Box3 box;
    object->GetLocalBoundBox(0, node, nullptr, box);
    return box;
  }

  Draws draw;
  ViewExp view = ViewExp::Orthographic({0, 0, 100}, {0, 0, 0}, 100, 100, 100);
};

void ExpectNear(const Box3& a, const Point3& lower, const Point3& upper) {
  EXPECT_LT(Apart(a.pmin, lower) + Apart(a.pmax, upper), 2e-4);
}

Drawn Found(const GraphicsWindow& gw) {
  Drawn all;
  for (const auto& v : gw.Lines().empty() ? gw.Dots() : gw.Lines()) all.push_back({v.at, v.rgba});
  return all;
}

TEST(LightDisplay, DrawsTheDotsThatThePlainChainGives) {
  LightScene s(27, 400, 5);  // more than there are colours
  for (const bool moved : {false, true}) {
    if (moved) s.node->SetNodeTM(0, s.Turned()), s.node->SetObjectOffset(TransMatrix({1, 2, 3}));
    for (const int mode : {kShowDot, kShowCloud})
      for (int only = 0; only <= 3; ++only) {
        s.Set(PointCloud, 1 + 33 * only);
        const GraphicsWindow& gw = s.Redraw(mode, only);
        EXPECT_EQ(gw.Transform(), s.node->GetObjectTM(0));
        EXPECT_EQ(Found(gw), s.Plainly()) << "mode " << mode << ", type " << only;
      }
  }
  for (const int mode : {kShowNone, kShowPyramid, kShowSquirrel, kShowOriginal})
    EXPECT_TRUE(Found(s.Redraw(mode)).empty());
}

TEST(LightDisplay, ABoxStandsOnItsPlacementTurnedAndScaledAsItsSource) {
  LightScene s(0, 0, 1);
  INode* source = s.AddBox(L"box", 2, 4, 6);
  s.AddAsType(source), source->SetObjectOffset(TransMatrix({7, 8, 9}));
  source->SetNodeTM(0, {{0, 2, 0}, {-1, 0, 0}, {0, 0, 1}, {50, 60, 70}});
  s.Set(Geo_BoxMin, Point3(-1, -2, -3)), s.Set(Geo_BoxMax, Point3(1, 2, 3));
  s.AppendPlacements({{{10, 20, 30}}}), s.node->SetNodeTM(0, TransMatrix({1, 1, 1}));
  s.Set(Tr_ZPos_Min, 5.0f, 1), s.Set(Tr_ZScale_Min, 200.0f, 0), s.Set(Tr_Unify, 0, 0);
  Box3 box;
  for (const auto& v : s.Redraw(kShowBox).Lines()) box += v.at;
  // Its floor lies at (7, 8, 6) from the pivot: turned (-8, 14, 6), and grown upward.
  EXPECT_EQ(box, Box3({-1, 31, 46}, {3, 35, 58}));
  EXPECT_EQ(s.view.getGW()->Lines().size(), 24u);
}

TEST(LightDisplay, CloudsThinOutFromAllToTen) {
  // 99 steps from 10 samples to all; what is begun counts.
  const int expected[][3] = {{25, 1, 25}, {26, 1, 10}, {26, 50, 18}, {3000, 34, 1007}};
  for (const auto& [all, percent, some] : expected) EXPECT_EQ(CloudPoints(all, percent), some);
  for (int samples = 0; samples <= 3000; ++samples) ASSERT_EQ(CloudPoints(samples, 100), samples);
}

TEST(LightDisplay, WhatIsDrawnIsHitAndNothingIsBesideIt) {
  for (std::uint32_t seed = 1; seed <= 32; ++seed) {
    LightScene s(2, 25, seed, 40);
    s.node->SetNodeTM(0, TransMatrix(s.draw.Point(-9, 9)));
    const Point3 eye = s.draw.Point(400, 800);
    s.view = seed % 2 ? ViewExp::Perspective(eye, {0, 0, 0}, 0.5f, 320, 240)
                      : ViewExp::Orthographic(eye, {0, 0, 0}, 400, 320, 240);
    const int mode = int(seed / 2 % 4);  // without placements the logo stands in the middle
    const GraphicsWindow& gw = s.Redraw(mode, int(seed % 3));
    const unsigned limits = gw.getRndLimits();
    int left = mode ? 999 : 120, right = mode ? -999 : 200;
    for (const auto& [at, color] : Found(gw)) {
      double x, y;
      ASSERT_TRUE(s.view.ProjectToScreen(at * s.node->GetObjectTM(0), x, y));
      ASSERT_TRUE(s.Hit(HITTYPE_POINT, {{int(x) + 2, int(y) - 2}})) << seed;
      left = std::min(left, int(x)), right = std::max(right, int(x));
    }
    for (int y = 0; y < 240; y += 5)
      ASSERT_EQ(s.Hit(HITTYPE_POINT, {{left - 9, y}}) + s.Hit(HITTYPE_POINT, {{right + 9, y}}), 0);
    EXPECT_EQ(gw.getRndLimits(), limits);
  }
}

TEST(LightDisplay, TheMarkerIsHitInsideItsFacesAndADeadViewGivesNothing) {
  LightScene s(0, 0, 1);
  s.Set(Logo_size, 20.0f), s.D().RefreshObject();
  const auto& v = s.Seen().verts;
  const auto& f = s.object->mesh.faces[0].v;
  double x, y;
  s.view.ProjectToScreen((v[f[0]] + v[f[1]] + v[f[2]]) * 0.3333f, x, y);
  EXPECT_TRUE(s.Hit(HITTYPE_POINT, {{int(x), int(y)}}) && !s.Hit(HITTYPE_POINT, {{3, 3}}));
  EXPECT_FALSE(s.Hit(HITTYPE_RECT, {{0, 0}, {50, 99}})) << "half of it";
  INode* camera = s.AddNode(L"eye", new CameraObject);
  s.view = ViewExp::FromCamera(camera, 100, 100);
  s.host.Services().DeleteNode(camera, false, false);
  EXPECT_EQ(s.Hit(HITTYPE_POINT, {{50, 50}}) + s.object->Display(0, s.node, &s.view, 0), 0);
}

TEST(LightDisplay, SnapPointsAreOnThePlacementsOfTheMeshAlone) {
  LightScene s(1, 1, 1, 0);
  s.object->suspendSnap = 1;  // as creation by the mouse leaves it
  s.node->SetNodeTM(0, TransMatrix({9, 5, 0}));
  s.Redraw(kShowPyramid);
  const Point3 vertex = s.object->mesh.verts[0] * s.node->GetObjectTM(0);
  for (const int mode : {kShowPyramid, kShowDot}) {
    s.Redraw(mode);
    double x, y;
    s.view.ProjectToScreen(vertex, x, y);
    IPoint2 mouse{int(std::lround(x)), int(std::lround(y))};
    SnapInfo snap;
    EXPECT_EQ(s.object->Snap(0, s.node, &snap, &mouse, &s.view), mode == kShowPyramid);
    EXPECT_LT(Apart(snap.bestWorld, mode == kShowPyramid ? vertex : Point3(0, 0, 0)), 1e-4);
  }
}

TEST(LightDisplay, DrawsOnlyTablesThatAgreeAndSaysThatAFileIsMissing) {
  LightScene s(2, 40, 3);
  const size_t all = s.Redraw(kShowCloud).Dots().size();
  s.D().SetListReady(0);
  EXPECT_EQ(s.Redraw(kShowCloud).Dots().size(), all) << "as while a control is dragged";
  EXPECT_TRUE(s.view.getGW()->Texts().empty());
  s.object->proxyFilesFound = 0;
  for (const int mode : {kShowDot, kShowPyramid}) {
    const auto& texts = s.Redraw(mode).Texts();
    ASSERT_TRUE(texts.size() == 1 && texts[0].text == L"Cannot find external file !");
    EXPECT_TRUE((texts[0].rgba & 0xFFFFFF) == 0xFF && texts[0].at == Point3(0, 0, 0));
  }
  s.Block().Delete(Ins_Normal, 39, 1);
  EXPECT_TRUE(s.Redraw(kShowCloud).Dots().empty() && s.Local().IsEmpty());
}

TEST(Bounds, ByHand) {
  LightScene s(0, 0, 1);
  s.Set(Logo_size, 10.0f), s.Set(Show_Logo, 1), s.Set(Display_Mode, 1);
  s.Set(Tr_ZPos_Min, -4.0f), s.node->SetNodeTM(0, TransMatrix({5, 6, 7}));
  const Box3 logo = s.Seen().getBoundingBox();
  ExpectNear(s.Local(), logo.pmin - logo.Center() - Point3(0, 0, 4), logo.pmax - logo.Center());

  s.AddAsType(s.AddBox(L"box", 2, 4, 6, {50, 60, 70}));
  s.AppendPlacements({{{15, 6, 7}}, {{-15, 11, 107}}});
  s.Set(Show_Logo, 0), s.Set(Tr_ZPos_Min, 0.0f), s.Set(Display_Mode, 4);
  ExpectNear(s.Local(), {-21, -2, 0}, {11, 7, 106});  // of the pyramids, seen from the node
  // All scales at 100 leave 2 percent to spare.
  s.Set(Display_Mode, 2), s.Set(Display_Type, 7);
  ExpectNear(s.Local(), {-21.02f, -2.04f, 0}, {11.02f, 7.04f, 106.12f});
  // Offsets of rows add; the negative one takes nothing off the top.
  s.Set(Tr_ZPos_Min, 3.0f, 0), s.Set(Tr_ZPos_Min, -2.0f, 1), s.Set(Tr_ZPos_Max, 50.0f, 1);
  s.Set(Tr_Random, 1, 1);
  ExpectNear(s.Local(), {-21.02f, -2.04f, -2}, {11.02f, 7.04f, 159.12f});
  // Rows of types count by the largest, 150 percent more here; Z alone tells where it is separate.
  s.Set(Tr_Unify, 0, 1), s.Set(Tr_ZScale_Min, 150.0f, 1), s.Set(Tr_ZScale_Max, 250.0f, 1);
  ExpectNear(s.Local(), {-22.51f, -5.02f, -2}, {12.51f, 10.02f, 168.06f});
  // One turned about Z reaches 5.02 along X. The world's box is that of the turned corners.
  INode* turned = s.AddBox(L"turned", 2, 4, 6);
  ASSERT_TRUE(s.AddAsType(turned));
  turned->SetNodeTM(0, {{0, 1, 0}, {-1, 0, 0}, {0, 0, 1}, {70, 80, 90}});
  s.AppendPlacements({{{15, 6, 7}, {}, 1}});
  s.node->SetNodeTM(0, {{0, 1, 0}, {-1, 0, 0}, {0, 0, 1}, {5, 6, 7}});
  ExpectNear(s.Local(), {-22.51f, -5.02f, -2}, {15.02f, 10.02f, 168.06f});
  Box3 world;
  s.object->GetWorldBoundBox(0, s.node, nullptr, world);
  ExpectNear(world, {-5.02f, -16.51f, 5}, {10.02f, 21.02f, 175.06f});
  // Below 0 in all the corners change sides: 0.01 - 1 + 0.2, of row 1 what isn't random.
  s.Set(Tr_XScale_Min, -100.0f, 0), s.Set(Tr_Random, 0, 1), s.Set(Tr_ZScale_Min, 120.0f, 1);
  ExpectNear(s.Local(), {-20.79f, -1.58f, -6.74f}, {11.58f, 6.58f, 103});
}

TEST(DisplayItems, AnEmptyMeshIsRefreshedOnceAndHasNone) {
  LightScene s(1, 3, 4);
  UpdateDisplayContext context{0, &s.view};
  UpdateNodeContext ofNode(s.node);
  const auto expectItems = [&](size_t count) {
    RenderItemContainer container;
    s.object->UpdatePerNodeItems(context, ofNode, container);
    EXPECT_EQ(container.Items().size(), count);
  };
  s.Set(Display_Mode, 1), s.redraws = 0;
  for (int i = 0; i < 3; ++i) EXPECT_FALSE(s.object->PrepareDisplay(context));
  EXPECT_EQ(s.redraws, 1) << "its own request for a redraw may not come back for ever";
  expectItems(0);
  s.Set(Display_Mode, 4), s.Seen(), s.object->mesh = Mesh(), s.redraws = 0;
  for (int i = 0; i < 2; ++i) EXPECT_TRUE(s.object->PrepareDisplay(context) && s.redraws == 1);
  expectItems(1);
  s.node->Hide(true), expectItems(0);
}

}  // namespace
}  // namespace sowfield
