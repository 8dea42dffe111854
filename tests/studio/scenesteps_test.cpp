#include "tests/studio/jobfixture.h"

namespace studio {
namespace {

using nlohmann::json;
using namespace std::string_literals;
using SceneSteps = JobTest;
using Keys = JobTest;
using SplineStep = JobTest;

TEST_F(SceneSteps, AnObjIsOpenedTurnedAndMoved) {
  // A triangle in the file's XY plane; the file's Y is the scene's Z.
  Write("tri.obj", "o leaf\nv 0 0 0\nv 1 0 0\nv 0 2 0\nf 1 2 3\n");
  const Result result = Done(
      R"({"do": "open", "file": "tri.obj", "name": "blade", "scale": 3, "turn": 90, "at": [10, 0, 0]},
{"do": "create"}, {"do": "add", "nodes": "blade"},
{"do": "get", "param": "Geo_VertCount", "type": "blade"}, {"do": "check", "types": 1},
{"do": "get", "param": "Brush_LineSize"})");
  EXPECT_EQ(result.Step(1)["nodes"], json({"blade"}));
  EXPECT_EQ(result.Step(4)["value"], 3);
  // (|x| + |y|) / 2 of the box's diagonal (1, 2, 0), scaled by 3, after the file's Y went up and
  // X went to Y: (0, 3, 6).
  EXPECT_NEAR(result.Step(6)["value"].get<double>(), 1.5, 1e-5);
}

TEST_F(SceneSteps, PartsAreJoinedIntoOneNodeAndATypeGetsItsColour) {
  Write("pair.obj",
        "v 0 0 0\nv 1 0 0\nv 0 2 0\nv 5 0 0\nv 6 0 0\nv 5 4 0\no a\nf 1 2 3\no b\nf 4 5 6\n");
  Done(R"({"do": "open", "file": "pair.obj", "join": "pair"},
{"do": "create"}, {"do": "add", "nodes": "pair"},
{"do": "colour", "type": "pair", "colour": "#ff8000"}, {"do": "save", "file": "a.glb"},
{"do": "undo"}, {"do": "save", "file": "b.glb"})");
  const auto expectSlot = [](Stage& stage, const Color& colour) {
    INode* sow = stage.SowfieldNodes().at(0);
    EXPECT_EQ(sow->GetMtl()->GetSubMtl(1)->GetDiffuse(), colour);
  };
  Change("a.glb", "c.glb", [&](Stage& stage) {
    expectSlot(stage, {1, 128.0f / 255, 0});
    // The joined node stands at the bottom centre of the parts' box, 0 to 6 along X.
    const auto nodes = stage.Ip().GetScene().AllNodes();
    ASSERT_EQ(nodes.size(), 2u);
    EXPECT_EQ(ToUtf8(nodes[0]->GetName()), "pair");
    EXPECT_EQ(nodes[0]->GetNodeTM(0).GetTrans(), Point3(3, 0, 0));
    EXPECT_EQ(EvalMesh(nodes[0], 0).mesh->getNumVerts(), 6);
  });
  Change("b.glb", "c.glb", [&](Stage& stage) { expectSlot(stage, {0, 18.0f / 255, 1}); });
}

TEST_F(SceneSteps, NamesMustBeNewAndFound) {
  Write("two.obj", "o leaf\nv 0 0 0\nv 1 0 0\nv 0 2 0\nf 1 2 3\n");
  ExpectFaults(
      "{\"do\": \"primitive\", \"kind\": \"box\", \"name\": \"stone\"},\n",
      {{R"({"do": "primitive", "kind": "box", "name": "stone"})",
        "job.json:3:44: step 2 (primitive): a node is named \"stone\" already\n"},
       {R"({"do": "delete", "nodes": ["ston"]})",
        "job.json:3:28: step 2 (delete): no node is named \"ston\", did you mean \"stone\"?\n"},
       {R"({"do": "selection", "nodes": "tree"})", "no node is named \"tree\""},
       {R"({"do": "select", "object": "stone"})",
        "job.json:3:28: step 2 (select): \"stone\" is no Sowfield object\n"},
       {R"({"do": "view", "file": "x.png", "view": {"camera": "stone"}})",
        "job.json:3:52: step 2 (view): \"stone\" is no camera\n"},
       {R"({"do": "open", "file": "two.obj"}, {"do": "open", "file": "two.obj"},
{"do": "delete", "nodes": "leaf"})",
        "job.json:4:27: step 4 (delete): 2 nodes are named \"leaf\"\n"},
       {R"({"do": "create", "name": "sow"}, {"do": "add", "nodes": ["stone", "sow"]})",
        "job.json:3:67: step 3 (add): \"sow\" can't become an object type: "},
       {R"({"do": "stats"})",
        "step 2 (stats): no Sowfield object is edited: create one, or select one by name\n"},
       {R"({"do": "create"}, {"do": "undo"}, {"do": "stats"})",
        "step 4 (stats): no Sowfield object is edited"}});
  ExpectFault(R"({"do": "view", "file": "x.png"})",
              "job.json:2:1: step 1 (view): the scene is empty: there is nothing to look at\n");
  ExpectFault(R"({"do": "undo"})", "step 1 (undo): there is nothing to undo\n");
  EXPECT_FALSE(std::filesystem::exists(Path("x.png")));
}

TEST_F(SceneSteps, FilesThatCantBeUsedStopTheJob) {
  Write("broken.obj", "v 0 0 0\nf 1 2 9\n");
  Write("nan.obj", "v nan 0 0\nv 1 0 0\nv 0 2 0\nf 1 2 3\n");
  Write("folder-is-a-file", "x");
  for (const char* file : {"missing.obj", "broken.obj", "nan.obj", "job.json"}) {
    const Result result =
        RunSteps(R"({"do": "open", "file": ")"s + file + "\"}, {\"do\": \"check\"}");
    EXPECT_TRUE(result.status == 1 && result.json["steps"].empty()) << file;
    EXPECT_EQ(result.err.find("job.json:2:24: step 1 (open): "), 0u) << result.err;
    EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
  }
  ExpectFault(R"({"do": "create"}, {"do": "params", "file": "folder-is-a-file/p.json"})",
              "step 2 (params): the folder ");
}

TEST_F(SceneSteps, CreateIsOneUndoStepAndSizesItsLogo) {
  const Result result = Done(R"({"do": "create", "name": "sow", "at": [12, -7.5], "logo_size": 4},
{"do": "get", "param": "Logo_size"}, {"do": "undo"}, {"do": "redo"},
{"do": "select", "object": "sow"}, {"do": "get", "param": "Logo_size"},
{"do": "params", "tables": "counts"})");
  EXPECT_NEAR(result.Step(2)["value"].get<double>(), 4, 1e-4);
  EXPECT_TRUE(result.Step(3)["undo"] == 0 && result.Step(4)["undo"] == 1);
  EXPECT_EQ(result.Step(6)["value"], result.Step(2)["value"]);
  EXPECT_TRUE(Says(result.Step(7).dump(), R"({"count":100,"id":10,"name":"Rnd_XScale"})"));
}

TEST_F(SceneSteps, DeletingASourceTakesItsTypeAndUndoBringsItBack) {
  ExpectFault(kField + R"(, {"do": "delete", "nodes": "stone"}, {"do": "check", "types": 0},
{"do": "undo"}, {"do": "check", "types": 1}, {"do": "undo"}, {"do": "check", "types": 0},
{"do": "redo", "count": 2}, {"do": "check", "types": 0},
{"do": "redo"})",
              "job.json:8:1: step 13 (redo): there is nothing to redo\n");
}

TEST_F(SceneSteps, TheEditedObjectIsTheOneSelected) {
  const Result result = Done(kField + R"(,
{"do": "create", "name": "second", "at": [40, 0]}, {"do": "check", "types": 0},
{"do": "set", "param": "Brush_Amount", "value": 77}, {"do": "select", "object": "sow"},
{"do": "check", "types": 1}, {"do": "get", "param": "Brush_Amount"},
{"do": "delete", "nodes": "sow"}, {"do": "select", "object": "second"},
{"do": "get", "param": "Brush_Amount"}, {"do": "undo"}, {"do": "check"})");
  EXPECT_EQ(result.Step(10)["value"], 10);
  EXPECT_EQ(result.Step(13)["value"], 77);
  EXPECT_EQ(result.Step(15)["objects"], 2);
}

TEST_F(Keys, AParameterFollowsItsKeysAndUndoTakesThemBack) {
  const Result result = Done(kField + R"(, {"do": "set", "param": "Hue Shift", "value": 5},
{"do": "key", "param": "Hue Shift", "frame": 0, "value": 10},
{"do": "key", "param": "Hue Shift", "frame": 20, "value": 30}, {"do": "time", "frame": 5},
{"do": "get", "param": "Hue Shift"}, {"do": "undo", "count": 2}, {"do": "get", "param": "Hue Shift"})");
  EXPECT_EQ(result.Step(9).at("value"), 15);
  EXPECT_EQ(result.Step(11).at("value"), 5);
}

TEST_F(Keys, ANodeIsPaintedWhereItsKeysTakeIt) {
  // The field rises by 4 in 8 frames: the stroke at frame 2 lies at 1.
  const Result result = Done(kField + R"(,
{"do": "key", "node": "field", "frame": 0, "position": [0, 0, 0]},
{"do": "key", "node": "field", "frame": 8, "position": [0, 0, 4], "rotation": [0, 0, 90]},
{"do": "time", "frame": 2},
{"do": "stroke", "tool": "line", "points": [[1, 1], [2, 1]], "on": "field", "events": 2, )" +
                             kView + R"(},
{"do": "placements"})");
  const auto& placements = result.Step(9).at("placements").at("placements");
  ASSERT_FALSE(placements.empty());
  for (const auto& p : placements) EXPECT_NEAR(double(p.at("position").at(2)), 1, 1e-5);
}

TEST_F(Keys, WhatCannotBeKeyedIsSaidBeforeTheJobBegins) {
  ExpectFaults(R"({"do": "key", "frame": 0, )",
               {{R"("param": "Brush_Size", "value": 1})", "\"Brush_Size\" can't be animated"},
                {R"("param": "Hue Shift", "value": 181})", "the range is 0 to 180"},
                {R"("param": "Hue Shift"})", "\"value\" is missing"},
                {R"("param": "Hue Shift", "value": 1, "scale": [1, 1, 1]})", "for a node only"},
                {R"("node": "field"})", "\"position\", \"rotation\" or \"scale\""},
                {R"("node": "field", "scale": [1, 0, 1]})", "\"scale\""},
                {R"("position": [0, 0, 0]})", "give one"}});
}

const std::string kFence =
    R"({"do": "spline", "name": "fence", "points": [[0, 0, 0], [4, 0, 0], [4, 4, 1]],
"scale": [2, 1, 1], "rotate": [0, 0, 90], "at": [10, 0, 0], "closed": true},
)";

TEST_F(SplineStep, MakesAShapeThatIsSeenComparedAndMerged) {
  std::string moved = kFence;
  moved.replace(moved.find("[4, 4, 1]"), 9, "[4, 4, 2]");
  Done(moved + R"({"do": "save", "file": "b.glb"})");
  // The first side leads from [10, 0] to [10, 8]; the view's middle lies on it, at 5 pixels a unit.
  const std::string pick =
      R"({"do": "pick", "view": {"orthographic": "top", "center": [10, 4, 0], "span": 24},
"size": [120, 120], "at": )";
  const Result r = Done(kFence + pick + "[60, 60]}, " + pick + R"([60, 95]},
{"do": "save", "file": "a.glb"}, {"do": "merge", "file": "b.glb"}, {"do": "save", "file": "c.glb"})");
  EXPECT_EQ(r.Step(2)["nodes"].dump(), R"(["fence"])");
  EXPECT_EQ(r.Step(3)["nodes"].dump(), "[]");
  EXPECT_TRUE(Says(Command("info @c.glb").out, "2 nodes: 2 Spline\n"));
  EXPECT_EQ(Command("diff @a.glb @b.glb").out,
            "Spline of node \"fence\"\n"
            "  splines[0].knots: \"3 entries\" -> \"1 of them differ\"\n");
}

TEST_F(SplineStep, WhatCannotBeIsNamed) {
  ExpectFaults(
      R"({"do": "spline", "points": )",
      {{"[]}", "\"points\" takes a list of [x, y, z], this is an empty list"},
       {"[[1, 2, 3]]}", "\"points\" needs two points, this list has 1"},
       {"[[1, 2, 3], [1, 2]]}", "\"points\" takes points as [x, y, z], this list has 2"},
       {"[[1, 2, 3], [1, 2, 1e7]]}", "\"points\" can't be 10000000: the range is"},
       {R"([[1, 2, 3], [4, 5, 6]], "name": "a"}, {"do": "create"}, {"do": "add", "nodes": "a"})",
        "\"a\" can't become an object type: it isn't a geometry object"}});
}

}  // namespace
}  // namespace studio
