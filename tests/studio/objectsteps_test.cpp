#include "tests/studio/jobfixture.h"

namespace studio {
namespace {

using nlohmann::json;
using ParamSteps = JobTest;
using TypeSteps = JobTest;

TEST_F(ParamSteps, ALowerEndWithoutRangeTakesTheUpperEndAlong) {
  const Result result = Done(kField + R"(,
{"do": "set", "row": "stone", "param": "Tr_ZPos_Min", "value": 3},
{"do": "get", "row": 1, "param": "Tr_ZPos_Max"},
{"do": "set", "row": "stone", "values": {"Tr_ZRot_Max": 360, "Tr_ZRot_Min": -5, "Tr_Random": true}},
{"do": "get", "param": "Tr_ZRot_Min"}, {"do": "get", "type": 0, "param": "Tr_ZRot_Max"},
{"do": "set", "index": 1, "param": "Tr_ZPos_Min", "value": 1},
{"do": "get", "index": 1, "param": "Tr_ZPos_Max"}, {"do": "undo", "count": 3},
{"do": "get", "param": "Tr_ZPos_Max"}, {"do": "get", "param": "Tr_Random"})");
  EXPECT_EQ(result.Step(12)["redo"], 3);
  const std::pair<size_t, json> values[] = {{6, 3},  {8, {0, -5}}, {9, 360},
                                            {11, 3}, {13, {0, 0}}, {14, {0, 0}}};
  for (const auto& [step, value] : values) EXPECT_EQ(result.Step(step)["value"], value) << step;
}

TEST_F(ParamSteps, AnimationGetsItsRandomTableAndModesTheirNames) {
  const Result result = Done(kField + R"(,
{"do": "set", "row": "stone", "values": {"Tr_AnimOn": 1, "Tr_AnimMax": 20, "Geo_PaintPct": 30}},
{"do": "params", "file": "deep/down/params.json"},
{"do": "set", "values": {"Display_Mode": "Squirrel", "Display_Type": "stone"}},
{"do": "get", "param": "Display_Mode"}, {"do": "get", "param": "Display_Type"})");
  const std::string params = Read("deep/down/params.json");
  for (const char* told :
       {R"("object":"sow",)", R"("name":"Rnd_Anim","count":10000,)",
        R"("Tr_AnimMax","count":1,"values":[20]})", R"("Geo_Nodes","count":1,"values":["stone"]})",
        R"({"id":82,"name":"Brush_Amount","value":10})"})
    EXPECT_TRUE(Says(params, told));
  EXPECT_EQ(result.Step(8)["value"], 5);
  EXPECT_EQ(result.Step(9)["value"], 1);
}

TEST_F(ParamSteps, WhatTheObjectDoesntHoldIsRefused) {
  ExpectFaults(
      kField + ",\n",
      {{R"({"do": "set", "param": "Tr_Random", "row": 2, "value": 1})",
        "job.json:6:44: step 5 (set): there is no row 2: 0 is all types, and the object has 1\n"},
       {R"({"do": "set", "param": "Geo_PaintPct", "type": "stine", "value": 1})",
        "6:48: step 5 (set): no object type is named \"stine\", did you mean \"stone\"?\n"},
       {R"({"do": "set", "param": "Tr_AnimOn", "index": 1, "value": 1})",
        "6:46: step 5 (set): \"Tr_AnimOn\" has 1 entries, counted from 0: there is no 1\n"},
       {R"({"do": "set", "param": "Display_Type", "value": 2})",
        "\"Display_Type\" can't be 2: the range is 0 to 1, the number of types\n"},
       // A quarter of |x| + |y| of the unit box.
       {R"({"do": "set", "param": "Brush_Size", "value": 0.25})",
        "\"Brush_Size\" can't be 0.25: with these types it is at least 0.5\n"},
       {R"({"do": "get", "param": "Ins_Pos", "index": 0})",
        "step 5 (get): \"Ins_Pos\" has 0 entries, counted from 0: there is no 0\n"},
       {R"({"do": "rows", "rows": [1]})",
        "6:25: step 5 (rows): there is no type 1: the object has 1, counted from 0\n"},
       {R"({"do": "check", "types": 2})", "6:26: step 5 (check): found 1 types, expected 2\n"},
       {R"({"do": "check", "placements": {"min": 1500}})",
        "6:31: step 5 (check): found 0 placements, expected at least 1,500\n"}});
}

TEST_F(ParamSteps, RowsAndSeedsFollowTheRowTheyName) {
  const Result result = Done(kField + R"(,
{"do": "get", "param": "Rnd_YRot"}, {"do": "seed", "row": "stone"},
{"do": "get", "param": "Rnd_YRot"}, {"do": "rows", "list": "objects", "rows": ["stone", "all"]},
{"do": "rows", "rows": ["stone"]}, {"do": "undo"}, {"do": "get", "param": "Rnd_YRot"})");
  const json &before = result.Step(5)["value"], &after = result.Step(7)["value"];
  ASSERT_EQ(before.size(), 200u);
  int same[2] = {};  // in the global row and in the type's
  for (size_t i = 0; i < 200; ++i) same[i / 100] += before[i] == after[i];
  EXPECT_TRUE(same[0] == 100 && same[1] < 3) << same[0] << " and " << same[1];
  EXPECT_EQ(result.Step(8)["rows"], json({0, 1}));
  EXPECT_EQ(result.Step(9)["rows"], json({0}));
  EXPECT_EQ(result.Step(11)["value"], before);
}

TEST_F(TypeSteps, ReplaceAndRemoveWorkOnTypesOfAllKinds) {
  const Result r =
      Done(kField + R"(, {"do": "primitive", "kind": "box", "name": "fir", "size": [2, 2, 5]},
{"do": "proxy", "kind": "vray", "from": "fir", "name": "proxy", "file": "fir.vrmesh"},
{"do": "proxy", "kind": "mokset", "from": "fir", "name": "kept"},
{"do": "add", "nodes": ["proxy", "kept", "fir"]},
{"do": "replace", "type": "stone", "node": "proxy"},
{"do": "get", "param": "Geo_Kind"}, {"do": "remove", "types": [1, "kept"]},
{"do": "get", "param": "Geo_Names"}, {"do": "check", "types": 2})");
  EXPECT_EQ(r.Step(10)["value"].dump(), "[3,3,1,0]");
  EXPECT_EQ(r.Step(11)["removed"], 2);
  EXPECT_EQ(r.Step(12)["value"].dump(), R"(["proxy","fir"])");
}

TEST_F(TypeSteps, ABrokenFileIsNamedWhereItIsRead) {
  const std::string convert = R"(, {"do": "convert", "type": "stone", "file": ")";
  Done(kField + convert + R"(in\\deep\\s.Vorn"}, {"do": "restore", "type": 0},
{"do": "convert", "type": 0, "file": "s.Vorn"}, {"do": "save", "file": "s.glb"})");
  EXPECT_TRUE(std::filesystem::exists(Path("in") / "deep" / "s.Vorn"));
  std::filesystem::resize_file(Path("s.Vorn"), 200);
  const std::string update =
      R"({"do": "open", "file": "s.glb"}, {"do": "select", "object": "sow"}, {"do": "update"})";
  ExpectFault(update + R"(, {"do": "restore", "type": 0})", "s.Vorn\": at byte ");
  EXPECT_EQ(Done(update).Step(3)["unread"].dump(), "[0]");
  EXPECT_EQ(RunSteps(kField + convert + "s.json\"}").status, 1);
  EXPECT_FALSE(std::filesystem::exists(Path("s.json")));
}

TEST_F(TypeSteps, ConversionTakesTheMeshOfThePresentTime) {
  const Result r = Done(kField + R"(,
{"do": "key", "node": "stone", "frame": 0, "scale": [1, 1, 1]},
{"do": "key", "node": "stone", "frame": 10, "scale": [5, 5, 5]}, {"do": "time", "frame": 5},
{"do": "convert", "type": 0, "file": "s.Vorn"}, {"do": "get", "param": "Geo_BoxMax"})");
  // A box of 1 by 1 by 1 at three times its size, round its own foot.
  EXPECT_NEAR(double(r.Step(9)["value"][0][0]), 1.5, 1e-6) << r.Step(9);
}

TEST_F(TypeSteps, KeepTheBrushWithinWhatTheTypesAllow) {
  // A stone of 1 by 1 and a rock of 40 by 40 allow radii from 0.5 and from 20. Loading and updating
  // raise it, in a step of their own; the latter reads a file that was written anew under the
  // type's feet.
  Done(kField + R"(, {"do": "primitive", "kind": "box", "name": "rock", "size": [40, 40, 1]},
{"do": "convert", "type": 0, "file": "a.Vorn"},
{"do": "add", "nodes": "rock"}, {"do": "convert", "type": 1, "file": "b.Vorn"},
{"do": "remove", "types": [1]}, {"do": "save", "file": "f.glb"})");
  const std::string files = R"({"do": "open", "file": "f.glb"})",
                    brush = R"(, {"do": "set", "param": "Brush_Size", "value": )",
                    read = R"(, {"do": "get", "param": "Brush_LineSize"})";
  ExpectFault(files + brush + "0.4}", "it is at least 0.5");
  for (const std::string step :
       {R"({"do": "load", "type": 0, "file": "b.Vorn"})", R"({"do": "update"})"}) {
    if (step.find("update") != step.npos) Write("a.Vorn", Read("b.Vorn"));
    const json steps =
        Done(files + ", " + step + read + R"(, {"do": "undo"})" + read).json["steps"];
    EXPECT_EQ(steps.at(steps.size() - 3)["value"], 20);
    EXPECT_EQ(steps.back()["value"], 1);
    ExpectFault(files + ", " + step + brush + "3}", "it is at least 20");
  }
}

TEST_F(TypeSteps, SayWhatTheyCantDo) {
  ExpectFaults(
      kField + ",\n",
      {{R"({"do": "replace", "type": "stone", "node": "sow"})", "can't become an object type"},
       {R"({"do": "remove", "types": ["stone", "tree"]})", "no object type is named \"tree\""},
       {R"({"do": "proxy", "kind": "corona", "from": "stone", "file": "x"})", "tell its file"},
       {R"({"do": "camera", "name": "eye", "eye": [0, 0, 9], "target": [0, 1, 0]},
{"do": "proxy", "kind": "mokset", "from": "eye"})",
        "it has none"}});
}

}  // namespace
}  // namespace studio
