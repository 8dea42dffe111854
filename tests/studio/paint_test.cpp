#include <cmath>

#include "tests/studio/jobfixture.h"

namespace studio {
namespace {

using nlohmann::json;

struct Spot {
  double x, y, z;
};

double Apart(const Spot& a, const Spot& b) { return std::hypot(a.x - b.x, a.y - b.y, a.z - b.z); }

class Painting : public JobTest {
 protected:
  static std::vector<Spot> SpotsOf(const json& placements) {
    std::vector<Spot> spots;
    for (const json& p : placements["placements"])
      spots.push_back({p["position"][0], p["position"][1], p["position"][2]});
    return spots;
  }
  static double Closest(const std::vector<Spot>& spots) {
    double least = INFINITY;
    for (size_t i = 0; i < spots.size(); ++i)
      for (size_t j = 0; j < i; ++j) least = std::min(least, Apart(spots[i], spots[j]));
    return least;
  }
};

TEST_F(Painting, ALineLaysPlacementsJustBeyondTheCollisionDistance) {
  const Result result = Done(kField + R"(,
{"do": "set", "param": "Brush_Collision", "value": 2}, {"do": "stroke", "tool": "line", )" +
                             kView + R"(, "spacing": 1, "points": [[-8, 3, 0], [8, 3, 0]]},
{"do": "placements"}, {"do": "check", "types": 1, "placements": {"min": 8, "max": 9}})");
  // Pixels are 0.1 wide: 161 events, a placement each time 2 or a rounding more is behind.
  EXPECT_EQ(result.Step(6)["events"], 161);
  const std::vector<Spot> spots = SpotsOf(result.Step(7)["placements"]);
  EXPECT_GE(Closest(spots), 2.0 - 1e-6);  // the distance is compared in single precision
  for (size_t i = 0; i < spots.size(); ++i) {
    EXPECT_NEAR(spots[i].y, 3, 0.05);
    EXPECT_NEAR(spots[i].z, 0, 1e-5);
    EXPECT_TRUE(i == 0 || std::fabs(spots[i].x - spots[i - 1].x - 2.05) < 0.06) << i;
  }
  EXPECT_NEAR(spots.front().x, -8, 0.051);
}

TEST_F(Painting, TheMultiToolStaysInItsBrushAndApartAndTurnsAboutZ) {
  const Result result =
      Done(kField + R"(,
{"do": "set", "values": {"Brush_Size": 1.5, "Brush_Collision": 0.3, "Brush_Amount": 60}},
{"do": "set", "row": "all", "param": "Tr_XScale_Min", "value": 50},
{"do": "set", "row": "stone", "param": "Tr_ZPos_Min", "value": 0.25},
{"do": "stroke", "tool": "multi", )" +
           kView + R"(, "events": 30, "points": [[-5, -5], [5, 5]], "on": "field"},
{"do": "placements"})");
  EXPECT_EQ(result.Step(8)["events"], 30);
  const json& placements = result.Step(9)["placements"];
  const std::vector<Spot> spots = SpotsOf(placements);
  EXPECT_GT(spots.size(), 60u);
  EXPECT_GE(Closest(spots), 0.3);
  for (size_t i = 0; i < spots.size(); ++i) {
    const auto& [x, y, z] = spots[i];
    // Hits are drawn from twice the brush size; the distance to the way's line, a pixel allowed.
    EXPECT_LE(std::fabs(x - y) / std::sqrt(2.0), 3.1);
    EXPECT_NEAR(z, 0, 1e-5);
    const json& p = placements["placements"][i];
    EXPECT_EQ(p["rand"], i % 100);
    const double spin = p["angles"][2];
    EXPECT_NEAR(std::hypot(double(p["angles"][0]), double(p["angles"][1])), 0, 1e-6);
    const double expected[4][3] = {{0.5 * std::cos(spin), 0.5 * std::sin(spin), 0},
                                   {-0.5 * std::sin(spin), 0.5 * std::cos(spin), 0},
                                   {0, 0, 0.5},
                                   {x, y, 0.25}};
    for (size_t r = 0; r < 4; ++r)
      for (size_t c = 0; c < 3; ++c) EXPECT_NEAR(double(p["matrix"][r][c]), expected[r][c], 2e-6);
  }
}

TEST_F(Painting, TheEraserTakesThoseInItsRadiusAndUndoBringsThemBack) {
  const Result result = Done(kField + R"(,
{"do": "set", "values": {"Brush_Size": 2.83, "Brush_Collision": 0.5}},
{"do": "stroke", "tool": "line", )" +
                             kView + R"(, "spacing": 1, "points": [[-8, 0, 0], [8, 0, 0]]},
{"do": "placements"}, {"do": "stroke", "tool": "erase", )" +
                             kView + R"(, "points": [[1, 0, 0]]},
{"do": "placements"}, {"do": "undo"}, {"do": "placements"}, {"do": "redo"}, {"do": "placements"},
{"do": "leave"}, {"do": "check"})");
  const json &before = result.Step(7)["placements"], &after = result.Step(9)["placements"];
  json left = json::array();
  for (const json& p : before["placements"]) {
    const double way = std::hypot(double(p["position"][0]) - 1, double(p["position"][1]));
    ASSERT_GT(std::fabs(way - 2.83), 1e-4);
    if (way > 2.83) left.push_back(p);
  }
  EXPECT_LT(left.size(), before["placements"].size());
  EXPECT_EQ(after["placements"], left);
  EXPECT_EQ(result.Step(11)["placements"], before);
  EXPECT_EQ(result.Step(13)["placements"], after);
}

TEST_F(Painting, OnlySelectedRowsArePainted) {
  const Result result = Done(kField + R"(,
{"do": "primitive", "kind": "sphere", "name": "bush", "size": [0.5], "at": [50, 40, 0]},
{"do": "add", "nodes": ["bush"]}, {"do": "set", "values": {"Brush_Size": 3, "Brush_Collision": 0}},
{"do": "rows", "rows": ["bush"]}, {"do": "stroke", "tool": "multi", )" +
                             kView + R"(, "points": [[0, 0, 0]]},
{"do": "get", "param": "Ins_Type"}, {"do": "rows", "rows": []},
{"do": "stroke", "tool": "multi", )" +
                             kView + R"(, "points": [[0, 0, 0]]},
{"do": "get", "param": "Ins_Type"})");
  const json &first = result.Step(10)["value"], &all = result.Step(13)["value"];
  EXPECT_EQ(first, json(std::vector<int>(10, 1)));
  EXPECT_NE(std::find(all.begin() + 10, all.end(), json(0)), all.end());
}

TEST_F(Painting, PaintModeGoesOnUntilAnotherKindOfStep) {
  const std::string stroke =
      R"({"do": "stroke", "tool": "line", )" + kView + R"(, "points": [[0, 0, 0]]})";
  const Result result = RunText("{\"steps\": [\n" + kField + ",\n" + stroke + R"(,
{"do": "undo"}, {"do": "redo"}, {"do": "stats"}, {"do": "check"}, {"do": "leave"}, {"do": "leave"},
)" + stroke + R"(,
{"do": "rows", "rows": []}, {"do": "leave"}]})");
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_NE(result.out.find("\n 10 leave      paint mode is off, "), std::string::npos)
      << result.out;
  EXPECT_NE(result.out.find("\n 11 leave      paint mode was off, "), std::string::npos);
  EXPECT_NE(result.out.find("\n 14 leave      paint mode was off, "), std::string::npos);
}

// A job that paints in all ways, with random rows; its file of placements is `name`.
std::string LongJob(const std::string& name) {
  return "{\"rand_seed\": 5, \"steps\": [\n" + kField + R"(,
{"do": "set", "values": {"Brush_Size": 2, "Brush_Collision": 0.2, "Brush_Falloff": 40, "Brush_Erase": 60}},
{"do": "set", "row": "stone", "values": {"Tr_Random": 1, "Tr_ZRot_Max": 360, "Tr_XRot_Max": 10, "Tr_XScale_Min": 50}},
{"do": "stroke", "tool": "multi", )" +
         kView + R"(, "points": [[-5, -5], [5, 5], [5, -5]], "on": "field"},
{"do": "primitive", "kind": "sphere", "name": "ball", "size": [3], "at": [-4, 4, 0]},
{"do": "stroke", "tool": "multi", "view": {"eye": [6, -22, 16], "target": [0, 0, 0]}, "points": [[-7, 4, 0], [7, 4, 0]]},
{"do": "stroke", "tool": "line", "view": {"eye": [0, -30, 20], "target": [0, 0, 0]}, "points": [[-8, 7, 0], [8, 7, 0]]},
{"do": "stroke", "tool": "erase", )" +
         kView + R"(, "points": [[0, 0, 0], [3, 3, 0]]},
{"do": "undo"}, {"do": "redo"}, {"do": "seed", "row": "stone"},
{"do": "placements", "file": ")" +
         name + "\"}]}";
}

TEST_F(Painting, AJobReplaysBitForBit) {
  for (const char* name : {"one.json", "two.json"}) ASSERT_EQ(RunText(LongJob(name)).status, 0);
  EXPECT_GT(Read("one.json").size(), 1000u);
  EXPECT_EQ(Read("one.json"), Read("two.json"));
}

TEST_F(Painting, PointsThatTheViewOrTheSurfaceDoesntHoldStopTheStroke) {
  const std::pair<const char*, const char*> cases[] = {
      {R"({"do": "stroke", "tool": "line", "view": {"eye": [0, 0, 5], "target": [0, 9, 5]}, "points": [[0, -9, 0]]})",
       "the point [0, -9, 0] lies behind the view's eye\n"},
      {R"({"do": "stroke", "tool": "line", "view": {"orthographic": "top", "center": [0, 0, 0], "span": 10},
"size": [100, 100], "points": [[0, 0, 0], [7, 0, 0]]})",
       // 10 pixels a unit from the middle between pixels 49 and 50.
       "the point [7, 0, 0] lies outside of the view: at pixel [120, 50] of 100 x 100\n"},
      {R"({"do": "stroke", "tool": "line", "points": [[11, 0]], "on": "field"})",
       "\"field\" has no surface at [11, 0]\n"},
      {R"({"do": "stroke", "tool": "line", "points": [[11, 0]], "on": "fields"})",
       "no node is named \"fields\", did you mean \"field\"?\n"},
  };
  for (const auto& [step, said] : cases) {
    const Result result = RunSteps(kField + ",\n" + step);
    EXPECT_EQ(result.status, 1);
    const size_t at = result.err.find("step 5 (stroke): ");
    ASSERT_NE(at, std::string::npos) << result.err;
    EXPECT_EQ(result.err.substr(at + 17), said);
    EXPECT_EQ(result.json["steps"].size(), 4u);
  }
  ExpectFault(R"({"do": "create"}, {"do": "stroke", "tool": "line", "mouse": [[1, 1]]})",
              "the object has no types to paint: add one first");
}

TEST_F(Painting, PicturesShowAnotherModeAndLeaveNoTrace) {
  const std::string steps = kField + R"(,
{"do": "stroke", "tool": "line", )" +
                            kView + R"(, "points": [[-8, 0, 0], [8, 0, 0]]},
{"do": "undo"}, {"do": "params"}, {"do": "redo"}, {"do": "params"}, {"do": "undo"},
{"do": "view", "file": "a.png", "size": [64, 48], "mode": "Original", "type": "stone"},
{"do": "params"}, {"do": "redo"},
{"do": "view", "file": "sub/b.png", "size": [64, 48], "mode": "Squirrel", "view": {"orthographic": "front"}},
{"do": "params"}, {"do": "undo", "count": 3})";
  const Result result = Done(steps);
  EXPECT_EQ(result.Step(12)["params"], result.Step(7)["params"]);
  EXPECT_EQ(result.Step(15)["params"], result.Step(9)["params"]);
  EXPECT_EQ(result.Step(16)["undo"], 0);
  for (const char* file : {"a.png", "sub/b.png"})
    EXPECT_EQ(Read(file).substr(0, 8), "\x89PNG\r\n\x1a\n") << file;
}

}  // namespace
}  // namespace studio
