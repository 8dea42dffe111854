#include "tests/studio/jobfixture.h"

namespace studio {
namespace {

using nlohmann::json;
using ParamSteps = JobTest;

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

}  // namespace
}  // namespace studio
