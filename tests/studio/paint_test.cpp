#include <cmath>
#include <set>

#include "tests/studio/jobfixture.h"

namespace studio {
namespace {

using nlohmann::json;

double Apart(const json& a, const json& b) {
  const json &p = a["position"], &q = b["position"];
  return std::hypot(double(p[0]) - double(q[0]), double(p[1]) - double(q[1]),
                    double(p[2]) - double(q[2]));
}

double Closest(const json& placements) {
  double least = INFINITY;
  for (size_t i = 0; i < placements.size(); ++i)
    for (size_t j = 0; j < i; ++j) least = std::min(least, Apart(placements[i], placements[j]));
  return least;
}

using Painting = JobTest;

json PlacementsOf(const JobTest::Result& result, size_t step) {
  return result.Step(step)["placements"]["placements"];
}

TEST_F(Painting, ALineLaysPlacementsJustBeyondTheCollisionDistance) {
  const Result result =
      Done(kField + R"(, {"do": "set", "param": "Brush_Collision", "value": 2})" +
           Stroke("line", "[[-8, 3, 0], [8, 3, 0]]", R"(, "spacing": 1)") +
           R"(, {"do": "placements"}, {"do": "check", "placements": {"min": 8, "max": 9}})");
  // Pixels are 0.1 wide: 161 events, a placement each time 2 or a rounding more is behind.
  EXPECT_EQ(result.Step(6)["events"], 161);
  const json placements = PlacementsOf(result, 7);
  EXPECT_GE(Closest(placements), 2.0 - 1e-6);  // the distance is compared in single precision
  for (size_t i = 0; i < placements.size(); ++i) {
    const json& position = placements[i]["position"];
    EXPECT_NEAR(double(position[0]), -8 + 2.05 * double(i), 0.051 + 0.06 * double(i));
    EXPECT_NEAR(i > 0 ? Apart(placements[i], placements[i - 1]) : 2.05, 2.05, 0.06);
    EXPECT_NEAR(double(position[1]), 3, 0.05);
    EXPECT_NEAR(double(position[2]), 0, 1e-5);
  }
}

TEST_F(Painting, TheMultiToolStaysInItsBrushAndApartAndTurnsAboutZ) {
  const Result result =
      Done(kField + R"(,
{"do": "set", "values": {"Brush_Size": 1.5, "Brush_Collision": 0.3, "Brush_Amount": 60}})" +
           Stroke("multi", "[[-5, -5], [5, 5]]", R"(, "events": 30, "on": "field")") +
           R"(, {"do": "placements"})");
  EXPECT_EQ(result.Step(6)["events"], 30);
  const json placements = PlacementsOf(result, 7);
  EXPECT_GT(placements.size(), 60u);
  EXPECT_GE(Closest(placements), 0.3);
  std::set<double> spins;
  for (size_t i = 0; i < placements.size(); ++i) {
    const json& p = placements[i];
    const double x = p["position"][0], y = p["position"][1];
    // Hits are drawn from twice the brush size; the distance to the way's line, a pixel allowed.
    EXPECT_LE(std::fabs(x - y) / std::sqrt(2.0), 3.1);
    EXPECT_NEAR(double(p["position"][2]), 0, 1e-5);
    EXPECT_EQ(p["rand"], i % 100);
    EXPECT_NEAR(std::hypot(double(p["angles"][0]), double(p["angles"][1])), 0, 1e-6);
    spins.insert(double(p["angles"][2]));
  }
  EXPECT_GT(spins.size(), 50u);
}

TEST_F(Painting, PaintModeGoesOnUntilAnotherKindOfStep) {
  const std::string stroke = Stroke("line", "[[0, 0, 0]]");
  const Result result = RunSteps(
      kField + stroke + R"(, {"do": "undo"}, {"do": "redo"}, {"do": "stats"}, {"do": "check"},
{"do": "leave"}, {"do": "leave"})" +
          stroke + R"(, {"do": "rows", "rows": []}, {"do": "leave"})",
      {});
  ASSERT_EQ(result.status, 0) << result.err;
  for (const char* told :
       {"\n 10 leave      paint mode is off, ", "\n 11 leave      paint mode was off, ",
        "\n 14 leave      paint mode was off, "})
    EXPECT_TRUE(Says(result.out, told));
}

// Painting in all ways, with random rows.
TEST_F(Painting, AJobReplaysBitForBit) {
  const std::string job = "{\"rand_seed\": 5, \"steps\": [\n" + kField + R"(,
{"do": "set", "values": {"Brush_Size": 2, "Brush_Collision": 0.2, "Brush_Falloff": 40, "Brush_Erase": 60}},
{"do": "set", "row": "stone", "values": {"Tr_Random": 1, "Tr_ZRot_Max": 360, "Tr_XRot_Max": 10, "Tr_XScale_Min": 50}})" +
                          Stroke("multi", "[[-5, -5], [5, 5], [5, -5]]", R"(, "on": "field")") +
                          R"(,
{"do": "primitive", "kind": "sphere", "name": "ball", "size": [3], "at": [-4, 4, 0]},
{"do": "stroke", "tool": "multi", "view": {"eye": [6, -22, 16], "target": [0, 0, 0]}, "points": [[-7, 4, 0], [7, 4, 0]]},
{"do": "stroke", "tool": "line", "view": {"eye": [0, -30, 20], "target": [0, 0, 0]}, "points": [[-8, 7, 0], [8, 7, 0]]})" +
                          Stroke("erase", "[[0, 0, 0], [3, 3, 0]]") + R"(,
{"do": "undo"}, {"do": "redo"}, {"do": "seed", "row": "stone"}, {"do": "placements", "file": "p.json"}]})";
  ASSERT_EQ(RunText(job).status, 0);
  const std::string first = Read("p.json");
  EXPECT_GT(first.size(), 1000u);
  ASSERT_EQ(RunText(job).status, 0);
  EXPECT_EQ(Read("p.json"), first);
}

TEST_F(Painting, PointsThatTheViewOrTheSurfaceDoesntHoldStopTheStroke) {
  ExpectFaults(kField + R"(, {"do": "stroke", "tool": "line", )",
               {{R"("view": {"eye": [0, 0, 5], "target": [0, 9, 5]}, "points": [[0, -9, 0]]})",
                 "step 5 (stroke): the point [0, -9, 0] lies behind the view's eye\n"},
                {R"("view": {"orthographic": "top", "center": [0, 0, 0], "span": 10},
"size": [100, 100], "points": [[0, 0, 0], [7, 0, 0]]})",
                 // 10 pixels a unit from the middle between pixels 49 and 50.
                 "the point [7, 0, 0] lies outside of the view: at pixel [120, 50] of 100 x 100\n"},
                {R"("points": [[11, 0]], "on": "field"})", "\"field\" has no surface at [11, 0]\n"},
                {R"("points": [[11, 0]], "on": "fields"})",
                 "no node is named \"fields\", did you mean \"field\"?\n"}});
  ExpectFault(R"({"do": "create"}, {"do": "stroke", "tool": "line", "mouse": [[1, 1]]})",
              "the object has no types to paint: add one first");
}

}  // namespace
}  // namespace studio
