// The random tables, the placements made from them, and the mesh that shows these.

#include "sowfield/model/placement.h"

#include <gtest/gtest.h>

#include <set>

#include "sowfield/display/budgets.h"
#include "sowfield/display/figures.h"
#include "tests/sowfield/placement_twin.h"

namespace sowfield {
namespace {

using Tables = std::vector<std::vector<float>>;
const std::vector<int> kTables = {8, 100, 54, 55, 9, 10, 56, 57};

// The values of tables that are drawn row by row, at `from` on.
void Draw(Generator& g, Tables& tables, size_t from, size_t rows) {
  for (auto& t : tables) t.resize(std::max(t.size(), from + rows));
  for (size_t r = from; r < from + rows; ++r)
    for (auto& t : tables) t[r] = float(g.Step()) * 2.3283064e-10f * 100.0f;
}

void ExpectTables(const IParamBlock2& block, const std::vector<int>& ids, const Tables& expected) {
  for (size_t i = 0; i < ids.size(); ++i) {
    const auto found = block.Floats(ParamID(ids[i]));
    EXPECT_EQ(std::vector<float>(found.begin(), found.end()), expected[i]) << ids[i];
  }
}

TEST(Generator, FirstOutputsAndForms) {
  // The recurrence, worked outside of this program.
  Generator g, before;
  for (const auto word : {1588437975u, 2268752316u, 3071397075u}) EXPECT_EQ(g.Step(), word);
  for (int i = 0; i < 2000; ++i) {
    Generator forms[3] = {g, g, g};
    const float unit = float(g.Step()) * 2.3283064e-10f;
    ASSERT_EQ(forms[0].Random(100), unit * 100.0f);
    ASSERT_EQ(forms[1].RandomRange(7.5f, -2.25f), unit * (7.5f - -2.25f) + -2.25f);
    ASSERT_EQ(forms[2].RandomInt(5, 1), int(std::floor((5.999999f - 1.0f) * unit + 1.0f)));
    for (const Generator& f : forms) ASSERT_EQ(f, g) << "a form takes one step";
  }
  // Bounds hold where the unit rounds to one: a word within 128 of 2^32.
  while (Generator(before).Step() < 0xFFFFFF80u) before.Step();
  for (const auto& [upper, lower] : {std::pair(5, 1), {100000, 0}, {2147483647, -9}, {7, 7}}) {
    const int v = Generator(before).RandomInt(upper, lower);
    EXPECT_TRUE(v >= lower && v <= upper) << lower << " to " << upper << " gave " << v;
  }
}

TEST(RandomTables, AreDrawnAcrossTheTablesAndReseededByBlock) {
  SowfieldScene s;
  Generator plain;
  Tables expected(8), anim(1);
  for (const size_t block : {0, 1, 2}) {
    if (block > 0) s.AddAsType(s.AddBox(L"box", 1, 1, 1));
    Draw(plain, expected, 100 * block, 100);
    ExpectTables(s.Block(), kTables, expected);
  }
  // A type's row renews its block, the global row all, as does any row once the tables are empty.
  for (const int slot : {2, 0, 1}) {
    for (const int id : kTables)
      if (slot < 2) s.Block().Delete(ParamID(id), 0, slot == 0 ? 17 : 300);
    ReseedRandomBlock(s.D(), slot);
    Draw(plain, expected, slot == 2 ? 200 : 0, slot == 2 ? 100 : 300);
    ExpectTables(s.Block(), kTables, expected);
  }
  Draw(plain, anim, 0, 10000);
  for (int i = 0; i < 2; ++i) EnsureAnimTable(s.D());
  ExpectTables(s.Block(), {Rnd_Anim}, anim);
  EXPECT_EQ(s.D().rng.Step(), plain.Step()) << "drawn once";
}

TEST(Placement, WorkedCases) {
  SowfieldScene s;
  s.AddAsType(s.AddBox(L"box", 1, 1, 1));
  s.AppendPlacements({{{1, 2, 3}, {0.9f, -0.7f, 1.57079633f}}});
  const auto matrix = [&] { return PlacementEvaluator(s.Block(), 0).Matrix(0); };
  s.Set(Tr_Normal_Min, 0.0f, 1);
  // Upright, and a quarter turn about Z: X to Y, Y to -X.
  EXPECT_LT(Apart(matrix(), {{0, 1, 0}, {-1, 0, 0}, {0, 0, 1}, {1, 2, 3}}), 1e-6);
  // The two rows of N add: 30 + 20 percent of a quarter turn about X.
  s.Set(Tr_Normal_Min, 30.0f, 0), s.Set(Tr_Normal_Min, 20.0f, 1);
  s.Set(Ins_Normal, Point3(1.57079633f, 0, 0));
  EXPECT_LT(Apart(matrix().GetRow(1), {0, 0.70710678f, 0.70710678f}), 1e-6);
  // In full, 6 + 4 up the Z axis go to -Y; here 4 is a quarter of the way from 3 to 7.
  s.Set(Tr_Normal_Min, 70.0f, 1), s.Set(Tr_Normal_Max, 70.0f, 1), s.Set(Tr_ZPos_Min, 6.0f, 0);
  s.Set(Tr_ZPos_Min, 3.0f, 1), s.Set(Tr_ZPos_Max, 7.0f, 1), s.Set(Tr_Random, 1, 1);
  s.Set(Rnd_ZPos, 25.0f, 100);
  EXPECT_LT(Apart(matrix().GetTrans(), {1, -8, 3}), 1e-5);
  // The scale rows add: X is 0.5 + 1.0, Y 0.3 + 1.0 with the type's X, Z 0.2 + 1.0.
  s.Set(Tr_XScale_Min, 50.0f), s.Set(Tr_YScale_Min, 30.0f), s.Set(Tr_ZScale_Min, 20.0f);
  for (const Param id : {Tr_XScale_Min, Tr_XScale_Max}) s.Set(id, 200.0f, 1);
  s.Set(Tr_Unify, 0);
  EXPECT_LT(Apart(PlacementEvaluator(s.Block(), 0).Form(0, 0).scale, {1.5f, 1.3f, 1.2f}), 1e-6);
}

TEST(Placement, AgreesWithTheStepListBitForBit) {
  for (const int types : {1, 2, 7}) {
    SowfieldScene s;
    s.host.Services().SetAnimRange({320, 16000});
    for (int t = 0; t < types; ++t) s.AddAsType(s.AddBox(L"box", 1, 1, 1));
    Draws draw(2024);
    ScrambleRows(s, draw, types), ScatterPlacements(s, draw, types, 1000);
    const PlacementEvaluator evaluator(s.Block(), 480);
    ASSERT_EQ(evaluator.Count(), 1000u);
    for (int p = 0; p < 1000; ++p) {
      const PlacementTwin twin(s.Block(), p);
      ASSERT_EQ(evaluator.Matrix(size_t(p)), twin.Matrix()) << p;
      ASSERT_EQ(evaluator.Time(size_t(p)), twin.Time(480)) << p;
    }
  }
}

TEST(StoredAngles, GiveTheBaseOrientationBack) {
  Draws draw{7};
  // Anywhere, walls, near both poles, near a quarter turn about Y, and exactly on the axes.
  const Point3 kinds[] = {{1, 1, 1}, {1, 1, 1e-4f}, {1e-4f, 1e-4f, 1}, {1, 1e-6f, 1e-6f},
                          {0, 0, 1}, {1, 0, 0},     {0, 1, 0},         {0, 0, 0}};
  for (int i = 0; i < 16000; ++i) {
    // A spin about Z, then the normal as third row; the angles taken with N at 100.
    const Point3 n = draw.Point(-1, 1) * kinds[i % 8];
    Matrix3 base;
    const Point3 angles = StoredAngles(draw.Float(-6.3f, 6.3f), n, &base);
    const Matrix3 again = PlacementEvaluator::Apply(Matrix3(), PlacementForm(), angles, {0, 0, 0});
    ASSERT_LT(Apart(again, base), 2e-6) << n.x << " " << n.y << " " << n.z;
    ASSERT_LT(Apart(again.GetRow(2), Length(n) > 0 ? Normalize(n) : Point3(0, 0, 1)), 2e-6);
  }
  EXPECT_LT(Apart(StoredAngles(0.5f, {0, 0, 1}), {0, 0, 0.5f}), 1e-7);
}

constexpr int kLogoVerts = 786, kLogoFaces = 722;

void ExpectForm(const Mesh& m, int verts, int faces, const Point3& low, const Point3& high) {
  ASSERT_TRUE(m.getNumVerts() == verts && m.getNumFaces() == faces);
  EXPECT_TRUE(m.getBoundingBox().pmin == low && m.getBoundingBox().pmax == high);
}

TEST(Figures, AreOfTheirFormAndScaleWithTheirSize) {
  Mesh logo, larger;
  MakeLogoMesh(1, logo), MakeLogoMesh(2.5f, larger);
  ExpectForm(logo, 786, 722, {-0.722872f, -0.538958f, -1.78589e-05f},
             {0.722872f, 0.53896f, 4.48946e-05f});
  EXPECT_EQ(logo.faces[721], (Face{{783, 764, 782}, 1, EDGE_C}));
  std::array<int, 8> flags{};  // faces by the visible edges' bits
  for (const Face& f : logo.faces) ++flags[f.edgeVisFlags()];
  EXPECT_EQ(flags, (std::array{39, 346, 211, 96, 23, 0, 7, 0}));
  EXPECT_EQ(larger.verts[1], logo.verts[1] * 2.5f);

  const Mesh m = MakeSquirrelMesh(1);
  ExpectForm(m, 484, 964, {-0.220123f, -0.450518f, 0}, {0.220123f, 0.450518f, 1.05303f});
  EXPECT_EQ(MakeSquirrelMesh(-3).verts[1], m.verts[1] * -3.0f);
  // Closed: each edge once in each direction. Turned outward: the volume by signed tetrahedra.
  std::set<std::pair<std::uint32_t, std::uint32_t>> edges;
  double volume = 0;
  for (const Face& f : m.faces) {
    for (int i = 0; i < 3; ++i) ASSERT_TRUE(edges.insert({f.v[i], f.v[(i + 1) % 3]}).second);
    volume += DotProd(m.verts[f.v[0]], CrossProd(m.verts[f.v[1]], m.verts[f.v[2]])) / 6;
  }
  for (const auto& [from, to] : edges) ASSERT_EQ(edges.count({to, from}), 1u);
  EXPECT_TRUE(volume > 0.01 && volume < 0.44 * 0.9 * 1.05303) << volume;

  const Mesh p = MakePyramidMesh({-3, 2, 10}, {1, 8, 3});  // 4 wide, 6 deep, 7 high
  ExpectForm(p, 4, 3, {-2, -3, 0}, {2, 3, 7});
  EXPECT_EQ(p.verts[3], Point3(0, 0, 7));
  EXPECT_EQ(p.faces[1], (Face{{3, 1, 2}, 0, EDGE_ALL}));
}

TEST(Logo, IsShownWithoutTypesOrWhenAskedForOrInTheModeNone) {
  SowfieldScene s;
  s.Set(Show_Logo, 0), s.Set(Logo_size, 0.25f);
  EXPECT_EQ(s.Shown(), kLogoVerts) << "no types";
  EXPECT_EQ(s.Block().GetFloat(Logo_size), 0.5f) << "raised and written back";
  s.AddAsType(s.AddBox(L"box", 1, 1, 1));
  s.AppendPlacements({{}});
  for (const auto& [mode, logo, verts] :
       {std::tuple(4, 0, 4), {4, 1, kLogoVerts + 4}, {3, 0, 0}, {1, 0, 0}, {0, 0, kLogoVerts}}) {
    s.Set(Show_Logo, logo), s.Set(Display_Mode, mode);
    EXPECT_EQ(s.Shown(), verts) << mode;
  }
}

TEST(DisplayMesh, IsThePlainOneBitForBitInWorldSpaceAndFollowsLogoAndNode) {
  SowfieldScene s;
  s.Set(Show_Logo, 0), s.Set(ForceDisplay, 1);
  INode *turned = s.AddBox(L"turned", 2, 3, 5), *ball = s.AddSphere(L"ball", 2, 6, {7, 7, 7});
  INode* mirrored = s.AddPlane(L"mirrored", 3, 1, 2, 2);
  Matrix3 tm;
  tm.Scale({1, 2, 0.5f}), tm.RotateX(0.4f), tm.RotateY(2.5f), tm.SetTrans({-30, 2, 9});
  turned->SetNodeTM(0, tm);
  ball->SetObjectOffset(TransMatrix({1, 2, 3}));
  mirrored->SetNodeTM(0, {{-1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {1, 1, 1}});
  for (INode* n : {turned, ball, mirrored}) s.AddAsType(n);
  // As a user may do afterwards: the pivot off the floor, the source somewhere else.
  ball->Move(0, Matrix3(), {1, 1, 1}, true, false, true);
  turned->Move(0, Matrix3(), {100, 0, 0}, true, false, false);
  Draws draw{99};
  ScrambleRows(s, draw, 3), ScatterPlacements(s, draw, 3, 80);
  for (const int mode : {4, 5, 6}) {
    for (const int only : {-1, 0, 1, 2}) {
      s.Set(Display_Type, only + 1), s.Set(Display_Mode, mode);
      const auto& [v, f] = PlainMesh(s, mode, only);
      const Mesh& m = s.object->mesh;
      SCOPED_TRACE(testing::Message() << "mode " << mode << " type " << only);
      ASSERT_TRUE(std::equal(v.begin(), v.end(), m.verts.begin(), m.verts.end()));
      ASSERT_TRUE(std::equal(f.begin(), f.end(), m.faces.begin(), m.faces.end()));
    }
  }
  s.node->SetNodeTM(0, tm);
  s.Set(Show_Logo, 1), s.Set(Display_Type, 0);
  const auto& [v, f] = PlainMesh(s, 6);
  const Mesh& m = s.object->mesh;
  ASSERT_EQ(size_t(s.Shown()), kLogoVerts + v.size());
  for (size_t i = 0; i < v.size(); ++i) ASSERT_LT(Apart(m.verts[kLogoVerts + i] * tm, v[i]), 2e-3);
  EXPECT_EQ(m.faces[kLogoFaces].v[2], f[0].v[2] + kLogoVerts);
}

struct Crowd : SowfieldScene {
  Crowd(int placements, int mode) {
    Set(ForceDisplay, 1), Set(Show_Logo, 0);
    for (int i = 0; i < 2; ++i) AddAsType(AddBox(L"box", 1, 1, 1));
    Set(Display_Mode, mode);
    const std::vector<Point3> zero(size_t(placements), Point3(0, 0, 0));
    const std::vector<int> none(size_t(placements), 0);
    for (const Param id : {Ins_Pos, Ins_Normal}) Block().Append(id, placements, zero.data());
    for (const int id : {89, 90, 73}) Block().Append(ParamID(id), placements, none.data());
    Set(ForceDisplay, 0);
  }
  int Mode() { return Block().GetInt(Display_Mode); }
};

TEST(Budgets, AreMetExactlyAtTheirLimits) {
  // Mode, placements, vertices and samples of the type, percent of the cloud, mode after it.
  const std::array<int, 6> cases[] = {
      {6, 4, 10'000'000, 0, 1, 6},  {6, 4, 10'000'001, 0, 1, 4},  {5, 18'750, 8, 0, 1, 5},
      {5, 18'751, 8, 0, 1, 4},      {4, 1'000'000, 8, 0, 1, 4},   {4, 1'000'001, 8, 0, 1, 1},
      {3, 1'000, 8, 2'999, 100, 3}, {3, 1'001, 8, 2'999, 100, 4},  // 100 * (2999 / 100 + 1)
      {2, 125'000, 8, 0, 1, 2},     {2, 125'001, 8, 0, 1, 4},     {1, 3'000'000, 8, 0, 1, 1},
      {1, 3'000'001, 8, 0, 1, 0}};
  for (const auto& [mode, placements, vertices, samples, percent, becomes] : cases) {
    SCOPED_TRACE(testing::Message() << "mode " << mode << ", " << placements);
    Crowd s(placements, mode);
    s.Set(Geo_VertCount, vertices), s.Set(Geo_PointCount, samples), s.Set(PointCloud, percent);
    ApplyBudgets(s.D(), 0);
    EXPECT_EQ(s.Mode(), becomes);
    EXPECT_EQ(s.Boxes().size(), becomes == mode ? 0u : 1u);
    EXPECT_EQ(s.Block().GetInt(PointCloud), mode == 3 && becomes == 4 ? 1 : percent);
  }
}

TEST(Budgets, FallThroughCountTheShownTypeRestWhenForcedAndKeepSilentWithClosedPanels) {
  for (const bool open : {true, false}) {
    Crowd s(3'000'001, 6);
    if (!open) s.CloseEdit();
    s.Set(ForceDisplay, 1), s.Set(Display_Mode, 2);
    EXPECT_EQ(s.Mode(), 2);
    s.Set(Geo_VertCount, 100), s.Set(Display_Type, 2), s.Set(ForceDisplay, 0),
        s.Set(Display_Mode, 6);
    EXPECT_EQ(s.Mode(), 6) << "of the other type there are none";
    s.Set(Display_Type, 0);
    s.object->BuildMesh(480);  // a lowered mode refreshes the object at the host's time
    EXPECT_TRUE(s.Mode() == 0 && s.D().curTime == 480 && s.object->ivalid == Interval(480, 480));
    WStr told;
    for (const auto& box : s.Boxes()) told += box.text.substr(box.text.find_last_of(L' '));
    EXPECT_EQ(told, open ? L" Pyrimad Dot None" : L"");
  }
}

}  // namespace
}  // namespace sowfield
