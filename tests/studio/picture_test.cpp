#include <set>

#include "tests/studio/jobfixture.h"

namespace studio {
namespace {

using Pictures = JobTest;

/// A row of stones along the middle of the field, in paint mode.
const std::string kPainted = kField +
                             R"(, {"do": "set", "values": {"Brush_Size": 1, "Brush_Amount": 3}})" +
                             Stroke("multi", "[[-8, 0, 0], [8, 0, 0]]");

TEST_F(Pictures, EachDisplayModeLooksAnotherWay) {
  const std::vector<std::string> modes = {"None",    "Dot",      "Bounding Box", "Point Cloud",
                                          "Pyramid", "Squirrel", "Original"};
  std::string steps = kPainted;
  for (const std::string& mode : modes)
    steps += R"(, {"do": "view", )" + kView + R"(, "file": ")" + mode + R"(.png", "mode": ")" +
             mode + "\"}";
  Done(steps);
  std::set<std::string> files = {""};  // what a missing one reads as
  for (const std::string& mode : modes)
    EXPECT_TRUE(files.insert(Read(mode + ".png")).second) << mode;
}

TEST_F(Pictures, AModeThatIsAskedForIsDrawnUnlessItIsBeyondReachAndThenItIsSaid) {
  Done(kPainted + R"(, {"do": "leave"},
{"do": "save", "file": "plain.glb"})");
  const auto claim = [&](int vertices) {  // of all placements
    Change("plain.glb", "a.glb", [&](Stage& stage) {
      auto& block = *Stage::SowfieldOf(stage.SowfieldNodes()[0])->pblock2;
      block.SetValue(sowfield::Geo_VertCount, 0, vertices / block.Count(sowfield::Ins_Pos), 0);
    });
    const Result result = Command("view @a.glb @a.png --mode Original --side top");
    EXPECT_EQ(result.status, 0) << result.err;
    return result.out;
  };
  claim(1000);
  const std::string plain = Read("a.png");
  EXPECT_FALSE(Says(claim(50'000'000), "budget"));
  EXPECT_EQ(Read("a.png"), plain);
  EXPECT_TRUE(Says(claim(2'000'000'000), "\"sow\" from Original to"));
}

TEST_F(Pictures, TheBrushIsShownInPaintModeAndDisturbsNothing) {
  const std::string off = R"(, {"do": "view", "file": "a.png", "cursor": [80, 45]})";
  ExpectFault(kField + off, "no brush to show: paint mode is off");

  const std::string shot = R"(, {"do": "view", "mode": "Dot", "type": "stone", )" + kView,
                    begin = kPainted + R"(, {"do": "undo"})",
                    rest = R"(, {"do": "redo"})" + Stroke("multi", "[[0, -8, 0], [0, 8, 0]]") +
                           R"(, {"do": "placements"}, {"do": "params"})";
  const Result plain = Done(begin + rest);
  const Result shown = Done(begin + shot + R"(, "file": "off.png"})" + shot +
                            R"(, "file": "on.png", "cursor": [200, 60]})" + shot +
                            R"(, "file": "after.png"})" + rest);
  EXPECT_NE(Read("on.png"), Read("off.png"));
  EXPECT_EQ(Read("after.png"), Read("off.png"));
  EXPECT_EQ(shown.Step(13)["placements"], plain.Step(10)["placements"]);
  EXPECT_EQ(shown.Step(14)["params"], plain.Step(11)["params"]);
}

TEST_F(Pictures, APickNamesWhatIsSeenAtAPlace) {
  // A pixel is 0.1 wide and (120, 120) the field's middle; the stone lies outside of the view.
  // The only placement is hit as it is drawn, a dot at pixel (170, 120).
  const std::string picks[][2] = {
      {R"("at": [120, 120])", R"(["field","box"])"},
      {R"("at": [180, 120])", R"(["field"])"},
      {R"("at": [5, 5])", "[]"},
      {R"("rect": [60, 60, 160, 160], "crossing": false)", R"(["box"])"},
      {R"("rect": [190, 190, 60, 60])", R"(["field","sow","box"])"},
      {R"("at": [172, 118])", R"(["field","sow"])"},
      {R"("at": [190, 120])", R"(["field"])"}};
  std::string steps = kField + R"(,
{"do": "primitive", "kind": "box", "name": "box", "size": [2, 2, 1]},
{"do": "set", "param": "Display_Mode", "value": "Dot"}, {"do": "stroke", "tool": "line", )" +
                      kView + R"(, "mouse": [[170, 120]]}, {"do": "leave"})";
  for (const auto& [at, nodes] : picks) steps += R"(, {"do": "pick", )" + kView + ", " + at + "}";
  const Result result = Done(steps);
  for (size_t i = 0; i < std::size(picks); ++i)
    EXPECT_EQ(result.Step(9 + i)["nodes"].dump(), picks[i][1]) << picks[i][0];
}

}  // namespace
}  // namespace studio
