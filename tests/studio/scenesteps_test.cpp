#include <map>

#include "studio/steps/steps.h"
#include "tests/studio/jobfixture.h"

namespace studio {
namespace {

using nlohmann::json;
using namespace std::string_literals;
using SceneSteps = JobTest;

TEST_F(SceneSteps, AnObjIsOpenedTurnedAndMoved) {
  // A triangle in the file's XY plane; the file's Y is the scene's Z.
  Write("tri.obj", "o leaf\nv 0 0 0\nv 1 0 0\nv 0 2 0\nf 1 2 3\n");
  const Result result = Done(
      R"({"do": "open", "file": "tri.obj", "name": "blade", "scale": 3, "turn": 90, "at": [10, 0, 0]},
{"do": "create"}, {"do": "add", "nodes": "blade"},
{"do": "get", "param": "Geo_VertCount", "type": "blade"}, {"do": "stats"},
{"do": "get", "param": "Brush_LineSize"})");
  EXPECT_EQ(result.Step(1)["nodes"], json({"blade"}));
  EXPECT_EQ(result.Step(4)["value"], 3);
  EXPECT_EQ(result.Step(5)["types"], 1);
  EXPECT_EQ(result.Step(5)["placements"], 0);
  // (|x| + |y|) / 2 of the box's diagonal (1, 2, 0), scaled by 3, after the file's Y went up and
  // X went to Y: (0, 3, 6).
  EXPECT_NEAR(result.Step(6)["value"].get<double>(), 1.5, 1e-5);
}

TEST_F(SceneSteps, PartsAreJoinedIntoOneNodeAndATypeGetsItsColour) {
  Write("pair.obj",
        "v 0 0 0\nv 1 0 0\nv 0 2 0\nv 5 0 0\nv 6 0 0\nv 5 4 0\no a\nf 1 2 3\no b\nf 4 5 6\n");
  Write("job.json", R"({"steps": [{"do": "open", "file": "pair.obj", "join": "pair"},
{"do": "create"}, {"do": "add", "nodes": "pair"},
{"do": "colour", "type": "pair", "colour": "#ff8000"}]})");
  std::vector<Fault> faults;
  const auto job = ReadJob(Read("job.json"), faults);
  ASSERT_TRUE(job);
  std::ostringstream notices;
  Stage stage(Path("").string(), notices);
  for (const Call& call : job->calls) {
    Outcome out;
    FunctionOf(call.decl->name)(stage, call, out);
  }

  // The joined node stands at the bottom centre of the parts' box, 0 to 6 along X.
  const auto nodes = stage.TheHost().GetScene().FindNodes(L"pair");
  ASSERT_EQ(nodes.size(), 1u);
  EXPECT_EQ(nodes[0]->GetNodeTM(0).GetTrans(), Point3(3, 0, 0));
  EXPECT_EQ(EvalMesh(nodes[0], 0).mesh->getNumVerts(), 6);
  EXPECT_TRUE(stage.TheHost().GetScene().FindNodes(L"a").empty());

  const auto slot = [&] { return stage.EditedNode()->GetMtl()->GetSubMtl(1)->GetDiffuse(); };
  EXPECT_EQ(slot(), (Color{1, 128.0f / 255, 0}));
  EXPECT_TRUE(stage.TheHost().Undo().Undo());
  EXPECT_EQ(slot(), (Color{0, 18.0f / 255, 1}));
}

TEST_F(SceneSteps, NamesMustBeNewAndFound) {
  const std::pair<const char*, const char*> cases[] = {
      {R"({"do": "primitive", "kind": "box", "name": "a"},
{"do": "primitive", "kind": "box", "name": "a"})",
       "job.json:3:44: step 2 (primitive): a node is named \"a\" already\n"},
      {R"({"do": "primitive", "kind": "box", "name": "stone"},
{"do": "delete", "nodes": ["ston"]})",
       "job.json:3:28: step 2 (delete): no node is named \"ston\", did you mean \"stone\"?\n"},
      {R"({"do": "primitive", "kind": "box", "name": "a"},
{"do": "select", "object": "a"})",
       "job.json:3:28: step 2 (select): \"a\" is no Sowfield object\n"},
      {R"({"do": "stats"})",
       "job.json:2:1: step 1 (stats): no Sowfield object is edited: create one, or select one by "
       "name\n"},
      {R"({"do": "primitive", "kind": "box", "name": "a"},
{"do": "view", "file": "x.png", "view": {"camera": "a"}})",
       "job.json:3:52: step 2 (view): \"a\" is no camera\n"},
      {R"({"do": "view", "file": "x.png"})",
       "job.json:2:1: step 1 (view): the scene is empty: there is nothing to look at\n"},
      {R"({"do": "undo"})", "job.json:2:1: step 1 (undo): there is nothing to undo\n"},
  };
  for (const auto& [step, said] : cases) {
    const Result result = RunSteps(step);
    EXPECT_EQ(result.status, 1) << step;
    EXPECT_EQ(result.err, said);
    EXPECT_FALSE(result.json["ok"].get<bool>());
    EXPECT_FALSE(std::filesystem::exists(Path("x.png")));
  }
}

TEST_F(SceneSteps, TwoNodesOfOneNameAreAmbiguous) {
  Write("two.obj", "o leaf\nv 0 0 0\nv 1 0 0\nv 0 2 0\nf 1 2 3\n");
  const Result result =
      RunSteps(R"({"do": "open", "file": "two.obj"}, {"do": "open", "file": "two.obj"},
{"do": "delete", "nodes": "leaf"})");
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err, "job.json:3:27: step 3 (delete): 2 nodes are named \"leaf\"\n");
}

TEST_F(SceneSteps, FilesThatCantBeUsedStopTheJob) {
  Write("broken.obj", "v 0 0 0\nf 1 2 9\n");
  Write("nan.obj", "v nan 0 0\nv 1 0 0\nv 0 2 0\nf 1 2 3\n");
  Write("folder-is-a-file", "x");
  for (const char* file : {"missing.obj", "broken.obj", "nan.obj", "job.json"}) {
    const Result result =
        RunSteps(std::string(R"({"do": "open", "file": ")") + file + "\"},\n{\"do\": \"check\"}");
    EXPECT_EQ(result.status, 1) << file;
    EXPECT_EQ(result.err.find("job.json:2:24: step 1 (open): "), 0u) << result.err;
    EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
    EXPECT_EQ(result.json["steps"].size(), 0u);
  }
  ExpectFault(R"({"do": "create"}, {"do": "params", "file": "folder-is-a-file/p.json"})",
              "step 2 (params): the folder ");
}

TEST_F(SceneSteps, SourcesThatCantBeAreRefusedAndNothingIsAdded) {
  const char* kNodes = R"({"do": "primitive", "kind": "box", "name": "good"},
{"do": "primitive", "kind": "box", "name": "flat", "scale": [1, 0, 1]},
{"do": "primitive", "kind": "box", "name": "mirrored", "scale": [-1, 1, 1]},
{"do": "camera", "name": "eye", "eye": [0, 0, 5], "target": [1, 0, 0]},
{"do": "create", "name": "sow"},
)";
  for (const char* bad : {"flat", "eye", "sow"}) {
    const Result result =
        RunSteps(std::string(kNodes) + "{\"do\": \"add\", \"nodes\": [\"good\", \"" + bad + "\"]}");
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err.find(std::string("job.json:7:33: step 6 (add): \"") + bad +
                              "\" can't become an object type: "),
              0u)
        << result.err;
    EXPECT_EQ(result.json["steps"].size(), 5u);
  }
  Done(kNodes + R"({"do": "add", "nodes": ["good", "mirrored"]}, {"do": "check", "types": 2})"s);
}

TEST_F(SceneSteps, CreateIsOneUndoStepAndStandsWhereToldWithItsLogo) {
  const Result result = Done(R"({"do": "create", "name": "sow", "at": [12, -7.5], "logo_size": 4},
{"do": "get", "param": "Logo_size"}, {"do": "params", "tables": "counts"}, {"do": "undo"},
{"do": "redo"}, {"do": "select", "object": "sow"}, {"do": "get", "param": "Logo_size"})");
  EXPECT_NEAR(result.Step(2)["value"].get<double>(), 4, 1e-4);
  const json& params = result.Step(3)["params"]["params"];
  EXPECT_EQ(params.size(), 102u);
  // The global row is set up: one entry in a slot table, 100 random values.
  const std::map<std::string, int> counts = {
      {"Tr_XScale_Min", 1}, {"Rnd_XScale", 100}, {"Geo_Nodes", 0}};
  size_t met = 0;
  for (const json& p : params)
    if (const auto at = counts.find(p["name"]); at != counts.end()) met += p["count"] == at->second;
  EXPECT_EQ(met, counts.size());
  EXPECT_EQ(result.Step(4)["undo"], 0);
  EXPECT_EQ(result.Step(5)["undo"], 1);
  EXPECT_EQ(result.Step(7)["value"], result.Step(2)["value"]);
  ExpectFault(R"({"do": "create"}, {"do": "undo"}, {"do": "stats"})",
              "step 3 (stats): no Sowfield object is edited");
}

TEST_F(SceneSteps, DeletingASourceTakesItsTypeAndUndoBringsItBack) {
  const Result result = RunSteps(kField + R"(,
{"do": "delete", "nodes": "stone"}, {"do": "check", "types": 0},
{"do": "undo"}, {"do": "check", "types": 1},
{"do": "undo"}, {"do": "check", "types": 0},
{"do": "redo", "count": 2}, {"do": "check", "types": 0},
{"do": "redo"})");
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err, "job.json:10:1: step 13 (redo): there is nothing to redo\n");
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

TEST_F(SceneSteps, TimeMovesPlacementsThroughTheirAnimation) {
  const Result result = Done(kField + R"(,
{"do": "camera", "name": "eye", "eye": [0, -30, 30], "target": [0, 0, 0], "fov": 50},
{"do": "stroke", "tool": "line", "view": {"camera": "eye"}, "points": [[0, 0, 0]]},
{"do": "time", "frame": 12.5}, {"do": "placements"},
{"do": "set", "type": 0, "values": {"Tr_AnimOn": 1, "Tr_AnimMin": -3, "Tr_AnimMax": -3}},
{"do": "placements"},
{"do": "view", "file": "eye.png", "size": [32, 32], "view": {"camera": "eye"}})");
  // 160 ticks are a frame.
  EXPECT_EQ(result.Step(8)["placements"]["time"], 2000);
  EXPECT_EQ(result.Step(8)["placements"]["placements"][0]["time"], 2000);
  EXPECT_EQ(result.Step(10)["placements"]["placements"][0]["time"], 2000 - 3 * 160);
  EXPECT_TRUE(std::filesystem::exists(Path("eye.png")));
}

}  // namespace
}  // namespace studio
