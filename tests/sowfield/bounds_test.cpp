// The boxes that the object gives: of its mesh, and the estimate of the light modes.

#include <gtest/gtest.h>

#include "tests/sowfield/placement_twin.h"

namespace sowfield {
namespace {

struct BoundsScene : SowfieldScene {
  Box3 Local() {
    Box3 box;
    object->GetLocalBoundBox(0, node, nullptr, box);
    return box;
  }
  /// Placement by placement and row by row.
  Box3 Plainly() {
    const IParamBlock2& b = Block();
    const Matrix3 tm = node->GetObjectTM(0);
    Box3 box = TransformCorners(object->mesh.getBoundingBox(), tm);
    const Point3 center = box.IsEmpty() ? tm.GetTrans() : box.Center();
    const auto range = [&](int low, int high, int slot) {
      const float a = b.GetFloat(ParamID(low), 0, slot);
      const float c = b.GetInt(11, 0, slot) ? b.GetFloat(ParamID(high), 0, slot) : a;
      return std::pair(std::min(a, c), std::max(a, c));
    };
    const auto scale = [&](int slot) {
      return (b.GetInt(62, 0, slot) ? range(16, 17, slot) : range(65, 66, slot)).second * 0.01f;
    };
    float extra = 0.01f;
    for (int r = 1; r <= D().TypeCount(); ++r) extra = std::max(extra, scale(r) - 1);
    const float margin = 0.01f + scale(0) + extra;
    for (int p = 0; p < D().PlacementCount(); ++p) {
      INode* source = b.GetINode(Geo_Nodes, 0, b.GetInt(Ins_Type, 0, p));
      Matrix3 turn = source->GetNodeTM(0);
      turn.NoTrans();
      const EvaluatedMesh shape = EvalMesh(source, 0);
      const Box3 of = TransformCorners(shape.mesh->getBoundingBox(), turn);
      const Point3 at = b.GetPoint3(Ins_Pos, 0, p);
      box += at + of.pmin * margin, box += at + of.pmax * margin;
    }
    box.pmin -= center, box.pmax -= center;
    for (int slot = 0; slot <= D().TypeCount(); ++slot) {
      const auto [low, high] = range(12, 13, slot);
      box.pmax.z += std::max(high, 0.0f), box.pmin.z += std::min(low, 0.0f);
    }
    return box;
  }
};

void ExpectNear(const Box3& a, const Point3& lower, const Point3& upper) {
  EXPECT_LT(Apart(a.pmin, lower), 1e-4);
  EXPECT_LT(Apart(a.pmax, upper), 1e-4);
}

TEST(Bounds, OfTwoPlacementsByHand) {
  BoundsScene s;
  s.AddAsType(s.AddBox(L"box", 2, 4, 6, {50, 60, 70}));
  s.AppendPlacements({{{10, 0, 0}}, {{-20, 5, 100}}});
  s.Set(Show_Logo, 0), s.Set(Display_Mode, 2), s.Set(Display_Type, 7);
  // All scales at 100 leave 2 percent to spare.
  ExpectNear(s.Local(), {-21.02f, -2.04f, 0}, {11.02f, 7.04f, 106.12f});
  // Offsets of rows add; the negative one takes nothing off the top.
  s.Set(Tr_ZPos_Min, 3.0f, 0), s.Set(Tr_ZPos_Min, -2.0f, 1), s.Set(Tr_ZPos_Max, 50.0f, 1);
  ExpectNear(s.Local(), {-21.02f, -2.04f, -2}, {11.02f, 7.04f, 109.12f});
  s.Set(Tr_Random, 1, 1);
  ExpectNear(s.Local(), {-21.02f, -2.04f, -2}, {11.02f, 7.04f, 159.12f});
}

TEST(Bounds, TheEstimateIsThatOfAllPlacementsOneByOne) {
  for (std::uint32_t seed = 1; seed <= 20; ++seed) {
    Draws draw(seed);
    BoundsScene s;
    const auto turned = [&] {
      Matrix3 tm;
      tm.RotateX(draw.Float(-3, 3)), tm.Scale(draw.Point(0.5f, 2)), tm.Translate({7, 8, 9});
      return tm;
    };
    for (int t = 0; t < 3; ++t) {
      s.AddAsType(s.AddSphere(L"ball", draw.Float(1, 9), 8));
      s.Block().GetINode(Geo_Nodes, 0, t)->SetNodeTM(0, turned());
    }
    ScrambleRows(s, draw, 3);
    ScatterPlacements(s, draw, 3, int(seed) * 7);
    s.node->SetNodeTM(0, turned()), s.node->SetObjectOffset(TransMatrix({1, 2, 3}));
    s.Set(Show_Logo, int(seed % 2)), s.Set(Display_Mode, int(seed % 4));
    EXPECT_EQ(s.Local(), s.Plainly()) << seed;
    Box3 world;
    s.object->GetWorldBoundBox(0, s.node, nullptr, world);
    EXPECT_EQ(world, TransformCorners(s.Local(), s.node->GetObjectTM(0)));
  }
}

TEST(Bounds, OfAnObjectWithoutPlacementsAndOfTheHeavyModes) {
  BoundsScene s;
  s.Set(Logo_size, 10.0f), s.Set(Display_Mode, 1);
  const Box3 logo = s.object->mesh.getBoundingBox();
  s.Set(Tr_ZPos_Min, -4.0f), s.node->SetNodeTM(0, TransMatrix({5, 6, 7}));
  const Point3 center = logo.Center();
  ExpectNear(s.Local(), logo.pmin - center - Point3(0, 0, 4), logo.pmax - center);
  s.AddAsType(s.AddBox(L"box", 2, 2, 2)), s.AppendPlacements({{{100, 0, 0}}});
  s.Set(Show_Logo, 0), s.Set(Display_Mode, 4);
  ExpectNear(s.Local(), {94, -7, -11}, {96, -5, -9});  // a pyramid, seen from the node
}

}  // namespace
}  // namespace sowfield
