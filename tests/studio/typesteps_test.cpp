#include "tests/studio/jobfixture.h"

namespace studio {
namespace {

using nlohmann::json;
using TypeSteps = JobTest;

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
