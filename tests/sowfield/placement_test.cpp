#include "sowfield/model/placement.h"

#include <cmath>
#include <cstring>
#include <limits>
#include <set>

#include "host/core/parallel.h"
#include "sowfield/display/budgets.h"
#include "sowfield/display/figures.h"
#include "sowfield/model/displaymode.h"
#include "sowfield/model/placementbatch.h"
#include "sowfield/model/stats.h"
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
    Generator range = g, whole = g;
    const float unit = float(g.Step()) * 2.3283064e-10f;
    ASSERT_EQ(range.RandomRange(7.5f, -2.25f), unit * (7.5f - -2.25f) + -2.25f);
    ASSERT_EQ(whole.RandomInt(5, 1), int(std::floor((5.999999f - 1.0f) * unit + 1.0f)));
    ASSERT_TRUE(range == g && whole == g) << "a form takes one step";
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
  EXPECT_EQ(larger.verts[1], logo.verts[1] * 2.5f);

  const Mesh m = MakeSquirrelMesh(1);
  ExpectForm(m, 484, 964, {-0.220123f, -0.450518f, 0}, {0.220123f, 0.450518f, 1.05303f});
  EXPECT_EQ(MakeSquirrelMesh(-3).verts[1], m.verts[1] * -3.0f);
  // Closed: each edge once in each direction.
  std::set<std::pair<std::uint32_t, std::uint32_t>> edges;
  for (const Face& f : m.faces)
    for (int i = 0; i < 3; ++i) ASSERT_TRUE(edges.insert({f.v[i], f.v[(i + 1) % 3]}).second);
  for (const auto& [from, to] : edges) ASSERT_EQ(edges.count({to, from}), 1u);

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
      const Mesh& m = s.Seen();
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

// Bit for bit, but for which NaN a NaN is.
bool Same(const Matrix3& a, const Matrix3& b) {
  for (int i = 0; i < 4; ++i)
    for (int k = 0; k < 3; ++k) {
      const float x = a.GetRow(i)[k], y = b.GetRow(i)[k];
      if (std::memcmp(&x, &y, sizeof x) != 0 && !(std::isnan(x) && std::isnan(y))) return false;
    }
  return true;
}

struct Scattered : SowfieldScene {
  explicit Scattered(int count) {
    for (int t = 0; t < kTypes; ++t) AddAsType(AddBox(L"Source", 1, 1, 1));
    ScrambleRows(*this, draw, kTypes);
    ScatterPlacements(*this, draw, kTypes, count);
  }
  static constexpr int kTypes = 3;
  Draws draw{77};
};

// Quarter turns, turns that need another reduction, numbers that are none, zeros of both signs.
void AddOddPlacements(SowfieldScene& s) {
  const float inf = std::numeric_limits<float>::infinity();
  const float odd[] = {0.0f, -0.0f, 1.5707964f, -3.1415927f, 1048576.0f, 1e7f, -3e30f, inf, NAN};
  for (const float a : odd)
    for (const float b : odd)
      s.AppendPlacements({{{-0.0f, b, 0.0f}, {a, b, a}, 1, 7, 0}, {{0, 0, b}, {b, a, 0}, 2, 8, 0}});
}

TEST(PlacementBatch, GivesTheBitsOfTheDefinitionWithEveryKernel) {
  for (const int lifted : {2, 1, 0}) {  // all slots, one type, none
    Scattered s(3000);
    for (int slot = 0; slot <= Scattered::kTypes && lifted < 2; ++slot)
      s.Set(Tr_ZPos_Min, slot == 1 ? float(lifted) : 0, slot), s.Set(Tr_ZPos_Max, 0.0f, slot);
    AddOddPlacements(s);
    const PlacementEvaluator one(s.Block(), 0);
    for (const PlacementKernel kernel : {kPlainKernel, BestPlacementKernel()}) {
      const PlacementBatch batch(one, kernel);
      std::vector<Matrix3> all(one.Count());
      batch.Matrices(0, 3, all.data());
      batch.Matrices(3, all.size() - 3, all.data() + 3);
      std::vector<std::uint32_t> list;
      std::vector<Point3> moved;
      for (size_t p = 0; p < all.size(); ++p) {
        ASSERT_TRUE(Same(all[p], one.Matrix(p))) << p;
        if (p % 3 != 1) list.push_back(std::uint32_t(p)), moved.push_back(one.Position(p) * 0.5f);
      }
      // A list of places, with positions of their own and without.
      const Places places(list);
      std::vector<Matrix3> some(list.size()), stored(list.size());
      std::vector<Point3> origins(list.size());
      batch.Matrices(places, 0, list.size(), moved.data(), some.data());
      batch.Matrices(places, 5, list.size() - 5, stored.data() + 5);
      batch.Origins(places, 0, list.size(), moved.data(), origins.data());
      for (size_t i = 0; i < list.size(); ++i) {
        const Matrix3 expected = one.Matrix(list[i], moved[i]);
        ASSERT_TRUE(Same(some[i], expected) && (i < 5 || Same(stored[i], all[list[i]]))) << i;
        ASSERT_TRUE(Same(TransMatrix(origins[i]), TransMatrix(expected.GetTrans()))) << i;
      }
      std::vector<Point3> buffer(one.Count());
      for (size_t run = 1; run < 2 * all.size(); run *= 53)
        for (size_t from = 0; from < all.size(); from += run) {
          const size_t n = std::min(run, all.size() - from);
          const Point3* at = batch.Origins(from, n, &one.Positions()[from], buffer.data());
          for (size_t i = 0; i < n; ++i)
            ASSERT_TRUE(Same(TransMatrix(at[i]), TransMatrix(all[from + i].GetTrans())));
        }
    }
  }
}

TEST(PlacementFilter, EachWalkAsksForItsOwnTests) {
  Scattered s(60);
  INode* spline = s.AddNode(L"line", nullptr);
  s.Set(Excl_On, 1), s.Block().Append(Excl_Splines, 1, &spline);
  s.Set(Display_Type, 2), s.listener.clear();
  const auto places = [&](unsigned tests) {
    std::vector<size_t> found;
    const Places passing = PlacementFilter(s.D(), 0, tests).Passing();
    for (size_t i = 0; i < passing.size(); ++i) found.push_back(passing[i]);
    return found;
  };
  std::vector<size_t> all, second;
  for (size_t p = 0; p < 60; ++p) {
    all.push_back(p);
    if (s.Block().GetInt(Ins_Type, 0, int(p)) == 1) second.push_back(p);
  }
  EXPECT_TRUE(places(kShownType) == second &&
              CostOfDisplay(s.D()).placements == (long long)(second.size()));
  EXPECT_TRUE(s.listener.empty()) << "budgets don't ask for exclusion";
  EXPECT_TRUE(places(kSeen) == second && places(kExclusion) == all);
  EXPECT_EQ(ComputeStats(s.D()).placements, 60);
  EXPECT_EQ(s.listener.size(), 1u) << "said once that there is no such test yet";
  s.Set(Excl_On, 0), places(kSeen), s.Set(Excl_On, 1), places(kSeen);
  EXPECT_EQ(s.listener.size(), 2u);
  PlacementFilter filter(s.D(), 0, kSeen);
  filter.LeaveOut(1);
  EXPECT_EQ(filter.Passing().size(), 0u);
}

TEST(DisplayMesh, IsTheSameOnAnyNumberOfThreads) {
  Scattered s(20000);
  s.Set(Display_Mode, 4);
  for (const int shown : {0, 2}) {
    s.Set(Display_Type, shown);
    host::SetParallelThreads(1);
    s.Shown();
    const Mesh alone = s.object->mesh;
    for (const int threads : {2, 5}) {
      host::SetParallelThreads(threads);
      s.Shown();
      EXPECT_TRUE(s.object->mesh.verts == alone.verts && s.object->mesh.faces == alone.faces);
    }
  }
}

/// A source whose counts tell the time: at tick t, for t above 0, it is a fan of t / 160 % 4 + 1
/// triangles with its tip at (0, 0, t).
struct Fan : BoxObject {
  Class_ID ClassID() const override { return {0x51, 0x52}; }
  ObjectState Eval(TimeValue t) override {
    shown->mesh = At(t);
    return ObjectState(shown.get(), {t, t});
  }
  bool CanConvertToType(Class_ID id) override { return id == triObjectClassID; }
  static Mesh At(TimeValue t) {
    const auto n = std::uint32_t(std::abs(t) / 160 % 4 + 1);
    Mesh mesh;
    mesh.verts = {{0, 0, float(t)}, {0, 1, 0}};
    for (std::uint32_t i = 1; i <= n; ++i) {
      mesh.verts.push_back({float(i), 1, 0});
      mesh.faces.push_back({{0, i, i + 1}, 0, 0});
    }
    return mesh;
  }
  std::unique_ptr<TriObject, DeleteUnreferenced> shown{new TriObject};
};

struct FanScene : SowfieldScene {
  FanScene() {
    node->SetNodeTM(0, Matrix3());
    EXPECT_TRUE(AddAsType(source));
    EnsureAnimTable(D());
    Set(Show_Logo, 0), Set(Tr_AnimOn, 1), Set(Tr_AnimMin, -3), Set(Tr_AnimMax, 40);
    for (int i = 0; i < 25; ++i)
      AppendPlacements({{{float(10 * i), 0, 0}, {0.1f * float(i), 0, 0.2f}, 0, i, 7 * i}});
    Set(Display_Mode, int(kShowOriginal));
  }
  /// Holds the display mesh at t against the plain one.
  void Compare(TimeValue t) {
    host.Services().SetTime(t), D().RefreshObject();
    const Mesh& mesh = Seen();
    const auto& [v, f] = PlainMesh(*this, kShowOriginal, -1, t);
    EXPECT_TRUE(std::equal(f.begin(), f.end(), mesh.faces.begin(), mesh.faces.end()));
    ASSERT_EQ(mesh.verts.size(), v.size());
    for (size_t i = 0; i < v.size(); ++i) EXPECT_LT(Apart(mesh.verts[i], v[i]), 2e-3) << i;
  }
  INode* source = AddNode(L"moving", new Fan, {3, 4, 5});
};

TEST(AnimatedSource, IsShownByPlacementsAtTimesOfTheirOwnWhateverItsCounts) {
  FanScene s;
  s.Compare(0);
  EXPECT_EQ(s.object->mesh.FirstFault(), "");
  EXPECT_NE(s.object->mesh.verts.size(), 25u * 3);
  s.Compare(800);
  // Without the offset all show the same time: frame 5, two triangles and four vertices each.
  s.Set(Tr_AnimOn, 0), s.Compare(800);
  EXPECT_EQ(s.object->mesh.verts.size(), 25u * 4);
}

TEST(AnimatedSource, ShowsTheMatrixOfTheBuildWhereItsNodeIsKeyed) {
  FanScene s;
  const double h = std::sqrt(0.5);
  TransformControl* control = s.source->GetTMController();
  control->SetKeys(0, {{1, 1, 1}, {0, 0, 0, 1}, {}}, TransformControl::kRotation);
  control->SetKeys(4800, {{1, 1, 1}, {h, 0, 0, h}, {}}, TransformControl::kRotation);
  s.Set(Tr_AnimOn, 0), s.Compare(0);
  const Point3 before = s.object->mesh.verts[1];
  s.Compare(4800);
  EXPECT_GT(Apart(before, s.object->mesh.verts[1]), 0.4);
  // The offset moves the mesh in time, not the matrix.
  s.Set(Tr_AnimOn, 1), s.Compare(2400);
}

}  // namespace
}  // namespace sowfield
