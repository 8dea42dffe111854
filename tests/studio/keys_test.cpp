#include "tests/studio/jobfixture.h"

namespace studio {
namespace {

using Keys = JobTest;

TEST_F(Keys, AParameterFollowsItsKeysAndUndoTakesThemBack) {
  const Result result = Done(kField + R"(,
{"do": "set", "param": "Hue Shift", "value": 5},
{"do": "key", "param": "Hue Shift", "frame": 0, "value": 10},
{"do": "key", "param": "Hue Shift", "frame": 20, "value": 30}, {"do": "time", "frame": 5},
{"do": "get", "param": "Hue Shift"}, {"do": "undo", "count": 2},
{"do": "get", "param": "Hue Shift"})");
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

}  // namespace
}  // namespace studio
