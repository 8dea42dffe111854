#include "tests/studio/jobfixture.h"

namespace studio {
namespace {

using SplineStep = JobTest;

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
