#include "sowfield/model/params.h"

#include <array>
#include <cmath>
#include <set>
#include <sstream>

#include "sowfield/model/paramedit.h"
#include "tests/sowfield/fixture.h"

namespace sowfield {
namespace {

// Types: i int, b bool, f float, p point, s text, a file, n node, m material.
// Shapes: . scalar, T type, N node type, F file type, R renderer proxy type, S slot, B random
// block, P placement, C samples, V variation, * any number.
// Type and shape, default (0), new entry, low, high (? or nothing where none is told): id and name.
constexpr const char* kGroups = R"(
nN: 0 Geo_Nodes; nR: 103 Proxy_Nodes; n*: 32 Excl_Splines; n.: 47 CamNode; m*: 96 Proxy_Mtls;
sT: 75 Geo_Names; s*: 44 Texture_Names; aF: 95 Proxy_Files; pT: 2 Geo_BoxMax, 3 Geo_BoxMin;
pC: 6 Geo_Points; pP: 87 Ins_Pos, 88 Ins_Normal; i.: 1 Geo_Reserved_A; i*: 52 Geo_Reserved_B;
iT 0 100: 53 Geo_Reserved_C; iT 0 100 1 100: 79 Geo_PaintPct; iT 0 ? 0 3: 51 Geo_Kind; iT 0 ? 0: 4 Geo_PointCount,
5 Geo_VertCount, 99 Geo_FaceCount; iF 0 ? -1: 97 Proxy_MtlIndex; iS 0 0 0 1: 11 Tr_Random;
iS 1 1 0 1: 62 Tr_Unify; fS 0 0 -5000000 5000000: 12 Tr_ZPos_Min, 13 Tr_ZPos_Max;
fS 0 100 -30 130: 101 Tr_Normal_Min, 102 Tr_Normal_Max; fS 0 0 -360 360: 58 Tr_XRot_Min,
59 Tr_XRot_Max, 60 Tr_YRot_Min, 61 Tr_YRot_Max, 14 Tr_ZRot_Min, 15 Tr_ZRot_Max;
fS 100 100 0 10000: 16 Tr_XScale_Min, 17 Tr_XScale_Max, 63 Tr_YScale_Min, 64 Tr_YScale_Max,
65 Tr_ZScale_Min, 66 Tr_ZScale_Max; iT 0 0 0 1: 70 Tr_AnimOn; iT 0 0 -10000 10000: 71 Tr_AnimMin,
72 Tr_AnimMax; fB 0 ? 0 100: 8 Rnd_ZPos, 100 Rnd_Normal, 54 Rnd_XRot, 55 Rnd_YRot, 9 Rnd_ZRot,
10 Rnd_XScale, 56 Rnd_YScale, 57 Rnd_ZScale; f* 0 ? 0 100: 69 Rnd_Anim; iP 0 ? 0: 89 Ins_Type;
iP 0 ? 0 99: 90 Ins_Rand; iP 0 ? 0 9999: 73 Ins_AnimRand; i. 4 ? 0 6: 29 Display_Mode;
i. 1 ? 1 100: 30 PointCloud; i. 0 ? 0: 98 Display_Type, 77 Paint_ListExtra; b.: 76 ForceDisplay,
78 List_Locked, 91 Paint_On_Self, 94 Paint_Delete_Target, 31 Excl_On, 48 CamClip, 33 Color Shift,
43 Advance Shift, 18 Random_Trans, 68 AnimOffset, 7 Geo_UserSpacing; b. 1: 74 Show_Logo,
92 Paint_Similar, 93 Paint_Instances, 67 Unify_Scale; f. 0.5 ? 0.5 1000: 50 Logo_size;
i. 10 ? 1 500: 82 Brush_Amount; i. 10 ? 0 180: 84 Brush_Snap; i. 0 ? 0 100: 85 Brush_Falloff;
i. 100: 86 Brush_Erase; f. 20: 80 Brush_Size, 81 Brush_LineSize; f.: 83 Brush_Collision, 19 Z_Pos,
20 Z_Pos_Random, 21 Pos_InOut, 22 Pos_InOut_Random, 23 Z_Rot, 24 Z_Rot_Random; f. 100: 27 X_Scale,
28 X_Scale_Random; i. 0 ? 0 1: 46 Cam_Radio, 45 Filter_Mode; i. 0 ? 0 500: 49 FOV;
i. 12 ? 2 500: 34 Color Variation; f. 0 ? 0 180: 35 Hue Shift; f. 0 ? 0 100: 36 Saturation;
f. 0 ? 0 25: 37 Brightness, 38 Contrast; fV: 39 HueRand, 40 SatRand, 41 BriRand, 42 ConRand;)";

TEST(Params, AllHaveTheirIdsNamesTypesShapesDefaultsAndRanges) {
  const auto desc = MakeBlockDesc(nullptr);
  IParamBlock2 block(*desc, nullptr);
  std::set<int> ids;
  std::istringstream groups(kGroups);
  for (std::string head, list, name; std::getline(groups >> std::ws, head, ':');) {
    std::string form, told[4] = {"0", "?", "?", "?"};
    std::istringstream(head) >> form >> told[0] >> told[1] >> told[2] >> told[3];
    std::getline(groups, list, ';');
    std::istringstream members(list);
    for (int id = 0; members >> id && std::getline(members >> std::ws, name, ',');) {
      SCOPED_TRACE(name);
      const ParamEntry* e = FindParam(ParamID(id));
      ASSERT_TRUE(ids.insert(id).second && e && desc->Find(e->id));
      EXPECT_TRUE(ToUtf8(e->name) == name && FindParam(std::wstring_view(e->name)) == e);
      EXPECT_EQ((std::string{"ibfpsanm"[int(e->type)], ".TNFRSBPCV*"[int(e->form)]}), form);
      const double found[] = {e->initial, e->newEntry, e->panel.low, e->panel.high};
      for (int i = 0; i < 4; ++i) EXPECT_TRUE(told[i] == "?" || std::stod(told[i]) == found[i]);
      EXPECT_EQ(desc->Find(e->id)->animatable, id >= 35 && id <= 38);
      EXPECT_EQ(block.Count(e->id), form[1] == '.' ? 1 : 0);
      EXPECT_TRUE(form != "f." || block.GetFloat(e->id) == float(e->initial));
      EXPECT_TRUE((form != "i." && form != "b.") || block.GetInt(e->id) == e->initial);
      // Geo_Kind, Ins_Pos, all others, Ins_AnimRand, Geo_Names.
      EXPECT_EQ(UndoRank(e->id), id == 51 ? 0 : id == 87 ? 1 : id == 73 ? 3 : id == 75 ? 4 : 2);
    }
  }
  EXPECT_TRUE(ids.size() == 102 && AllParams().size() == 102);
  EXPECT_TRUE(!FindParam(25) && !FindParam(26) && !FindParam(104) && !FindParam(L"ins_pos"));
}

struct Painted : SowfieldScene {
  Painted() {
    for (const wchar_t* name : {L"a", L"b", L"c"}) AddAsType(AddBox(name, 1, 2, 3));
    AppendPlacements({{{}, {}, 0, 0, 0}, {{}, {}, 2, 99, 9999}, {{}, {}, 1, 50, 1}});
  }
  void ExpectBreach(const std::string& start) {
    EXPECT_EQ(Breach().substr(0, start.size()), start) << Breach();
  }
};

TEST(Invariants, NameEachBreach) {
  const std::tuple<int, int, float> edits[] = {
      {51, 1, 4},   {51, 0, -1},        {5, 0, -5},        {99, 0, -5},    {89, 1, 3},
      {89, 0, -1},  {90, 2, 100},       {90, 2, -1},       {73, 0, 10000}, {73, 0, -1},
      {87, 1, NAN}, {88, 2, NAN},       {55, 399, 100.5f}, {8, 0, -0.5f},  {100, 100, NAN},
      {70, 1, 1},   {30, 0, 0},         {30, 0, 101},      {29, 0, 7},     {29, 0, -1},
      {98, 0, 4},   {98, 0, -1},        {77, 0, -1},       {79, 2, -1},    {82, 0, 10001},
      {85, 0, 101}, {85, 0, -1},        {80, 0, -1},       {81, 0, 2e7f},  {34, 0, 501},
      {34, 0, 0},   {46, 0, 2},         {45, 0, 2},        {12, 3, NAN},   {66, 0, INFINITY},
      {83, 0, NAN}, {50, 0, -INFINITY}, {38, 0, NAN}};
  for (const auto& [id, index, value] : edits) {
    Painted s;
    const ParamEntry& e = *FindParam(ParamID(id));
    if (e.type == ParamType::Int) s.Set(e.id, int(value), index);
    if (e.type == ParamType::Float) s.Set(e.id, value, index);
    if (e.type == ParamType::Point3) s.Set(e.id, Point3(0, value, 0), index);
    s.ExpectBreach(ToUtf8(e.name) + (e.IsTable() ? "[" + std::to_string(index) + "] " : " is "));
  }
  for (const ParamEntry& e : AllParams()) {
    Painted s;
    const int count = s.Block().Count(e.id);
    const float two[] = {1, 2};
    const bool drawn = e.form == IndexForm::Variation || e.id == Rnd_Anim;
    if (!drawn && (!e.IsTable() || count == 0 || e.id == Geo_Kind || e.id == Ins_Pos)) continue;
    drawn ? s.Block().Append(e.id, 2, two) : s.Block().Delete(e.id, count - 1, 1);
    // The four tables of shifts are held against the first.
    s.ExpectBreach((e.id == HueRand ? "SatRand" : ToUtf8(e.name)) + " has ");
  }
  // Whatever nobody reads, and all that does no harm.
  Painted s;
  for (const ParamEntry& e : AllParams()) {
    const bool idle = e.role == Role::Reserved || e.role == Role::Mirrored;
    if (idle && !(e.IsTable() && s.Block().Count(e.id) == 0))
      e.type == ParamType::Float ? s.Set(e.id, NAN) : s.Set(e.id, -7);
  }
  for (const auto& [id, value] : {std::pair(84, -5), {86, 900}, {49, -1}, {82, 0}, {74, 7}})
    s.Set(Param(id), value);
  for (const float v : {0.f, -3.f, 1e9f}) s.Set(Logo_size, v), s.Set(Tr_XRot_Max, v, 1);
  for (const Param id : kShiftTables) s.Block().Append(id, 1, std::array{0.5f}.data());
  EXPECT_EQ(s.Breach(), "");
}

struct Edited : SowfieldScene {
  Edited() { AddAsType(AddBox(L"box", 4, 4, 4)); }
  void Write(const std::vector<std::tuple<Param, int, double>>& values) {
    std::vector<ParamWrite> writes;
    for (const auto& [id, index, value] : values) {
      writes.push_back({FindParam(id), index, value});
      EXPECT_EQ(WhyNotWritable(D(), writes.back()), "");
    }
    redraws = 0, log.Clear();
    WriteParams(D(), 0, writes);
  }
  // Lower and upper ends of X, Y and Z in a row.
  std::vector<float> Scales(int row) {
    std::vector<float> all;
    for (const int id : {16, 63, 65, 17, 64, 66})
      all.push_back(Block().GetFloat(ParamID(id), 0, row));
    return all;
  }
  std::string WhyNot(Param id, double value, int index = 0) {
    return WhyNotWritable(D(), {FindParam(id), index, value});
  }
};

TEST(Edits, TakeAlongWhatBelongsTogetherInAnyOrder) {
  Edited s;
  const auto row = [&](Param id) { return s.Block().GetFloat(id, 0, 1); };
  s.Write({{Tr_ZRot_Max, 1, 360}, {Tr_ZRot_Min, 1, -5}, {Tr_Random, 1, 1}});
  EXPECT_TRUE(row(Tr_ZRot_Min) == -5 && row(Tr_ZRot_Max) == 360 && s.redraws == 1);
  EXPECT_EQ(s.log.Count(Event::RowControlsChanged), 1);
  s.Write({{Tr_ZPos_Min, 1, 3}});
  EXPECT_EQ(row(Tr_ZPos_Max), 0);
  s.Write({{Tr_XScale_Min, 0, 150}});
  EXPECT_EQ(s.Scales(0), (std::vector<float>{150, 150, 150, 150, 150, 150}));
  s.Write({{Tr_YScale_Max, 1, 120}, {Tr_XScale_Max, 1, 200}});
  EXPECT_EQ(s.Scales(1), (std::vector<float>{100, 100, 100, 200, 120, 200}));
  s.Write({{Tr_XScale_Min, 1, 50}, {Tr_Unify, 1, 0}});
  EXPECT_EQ(s.Scales(1), (std::vector<float>{50, 100, 100, 200, 120, 200}));
  s.Write({{Tr_AnimOn, 0, 1}});
  EXPECT_EQ(s.Block().Count(Rnd_Anim), 10000);
  s.Write({{PointCloud, 0, 40}, {Display_Mode, 0, 3}});
  EXPECT_EQ(s.Block().GetInt(PointCloud), 40);
  s.Write({{Display_Mode, 0, 1}});
  EXPECT_TRUE(s.Block().GetInt(PointCloud) == 1 && s.redraws == 1);
  for (const int id : {39, 40, 41, 42}) s.Block().Append(ParamID(id), 1, std::array{0.5f}.data());
  s.Write({{ColorVariation, 0, 5}, {Brush_Amount, 0, 7}});
  EXPECT_TRUE(s.Block().Count(BriRand) == 1 && s.redraws == 0);
  s.Write({{HueShift, 0, 9}, {Saturation, 0, 9}});
  for (const int id : {39, 40, 41, 42}) EXPECT_EQ(s.Block().Count(ParamID(id)), 0);
  EXPECT_EQ(s.log.events, std::vector{Event::VariationsDropped});
  EXPECT_EQ(s.Breach(), "");
}

TEST(Edits, AreBoundByTypesBrushAndUnit) {
  Edited s;
  const ParamEntry& height = *FindParam(Tr_ZPos_Max);
  EXPECT_EQ(InputRange(s.D(), height), (Range{-5000, 5000}));
  s.host.Services().SetMasterUnit(UNITS_KILOMETERS, 1);
  EXPECT_EQ(InputRange(s.D(), height), (Range{-500, 500}));
  EXPECT_TRUE(InputStep(height) == 0.01 && InputStep(*FindParam(Brush_Size)) == 0.5);
  EXPECT_EQ(s.WhyNot(Tr_ZPos_Min, 501, 1),
            "\"Tr_ZPos_Min\" can't be 501: the range is -500 to 500");
  EXPECT_EQ(s.WhyNot(Brush_Amount, 1.5), "\"Brush_Amount\" takes a whole number, this is 1.5");
  EXPECT_EQ(s.WhyNot(Tr_AnimMin, 1, 1), "\"Tr_AnimMin\" has no entry 1");
  EXPECT_EQ(s.WhyNot(Brush_Collision, NAN),
            "\"Brush_Collision\" can't be nan: the range is 0 to 1000000");
  EXPECT_EQ(s.WhyNot(Unify_Scale, 1),
            "\"Unify_Scale\" mirrors the panel's check box: set \"Tr_Unify\" of a row");
  for (const Param id : {X_Scale, Ins_Rand, CamNode}) EXPECT_NE(s.WhyNot(id, 1), "");
}

}  // namespace
}  // namespace sowfield
