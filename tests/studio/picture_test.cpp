#include <algorithm>

#include "tests/studio/jobfixture.h"

namespace studio {
namespace {

class Pictures : public JobTest {
 protected:
  /// A row of stones along the middle of the field, in paint mode of the multi tool.
  static std::string Painted() {
    return kField + R"(,
{"do": "set", "values": {"Brush_Size": 1, "Brush_Amount": 3}},
{"do": "stroke", "tool": "multi", )" +
           kView + R"(, "points": [[-8, 0, 0], [8, 0, 0]]})";
  }
};

TEST_F(Pictures, EachDisplayModeLooksAnotherWay) {
  const std::vector<std::string> modes = {"None",    "Dot",      "Bounding Box", "Point Cloud",
                                          "Pyramid", "Squirrel", "Original"};
  std::string steps = Painted();
  for (const std::string& mode : modes)
    steps += ",\n{\"do\": \"view\", \"file\": \"" + mode + ".png\", \"size\": [160, 90], " +
             "\"mode\": \"" + mode + "\", \"view\": {\"eye\": [3, -8, 6], \"target\": [0, 0, 0]}}";
  const Result result = RunSteps(steps);
  ASSERT_EQ(result.status, 0) << result.err;
  std::vector<std::string> files;
  for (const std::string& mode : modes) {
    const std::string file = Read(mode + ".png");
    EXPECT_EQ(file.substr(0, 4), "\x89PNG") << mode;
    EXPECT_EQ(std::count(files.begin(), files.end(), file), 0) << mode;
    files.push_back(file);
  }
}

TEST_F(Pictures, TheBrushIsShownInPaintModeAndDisturbsNothing) {
  const std::string off = R"({"do": "view", "file": "a.png", "cursor": [80, 45]})";
  const Result refused = RunSteps(kField + ", " + off);
  EXPECT_EQ(refused.status, 1);
  EXPECT_NE(refused.err.find("there is no brush to show: paint mode is off"), std::string::npos)
      << refused.err;

  const std::string view = kView;
  const std::string shot = R"(, {"do": "view", "mode": "Dot", )" + view + ", \"file\": ";
  const std::string second = R"(, {"do": "stroke", "tool": "multi", )" + view +
                             R"(, "points": [[0, -8, 0], [0, 8, 0]]}, {"do": "placements"})";
  const Result plain = RunSteps(Painted() + second);
  const Result shown =
      RunSteps(Painted() + shot + R"("off.png"})" + shot + R"("on.png", "cursor": [200, 60]})" +
               shot + R"("after.png"})" + second);
  ASSERT_EQ(shown.status, 0) << shown.err;
  EXPECT_NE(Read("on.png"), Read("off.png"));
  EXPECT_EQ(Read("after.png"), Read("off.png"));
  EXPECT_EQ(shown.Step(11)["placements"], plain.Step(8)["placements"]);
}

TEST_F(Pictures, APickNamesWhatIsSeenAtAPlace) {
  // A pixel is 0.1 wide and (120, 120) the field's middle; the stone lies outside of the view.
  const std::string pick = R"(, {"do": "pick", )" + kView;
  const Result result = RunSteps(
      kField + R"(, {"do": "primitive", "kind": "box", "name": "box", "size": [2, 2, 1]})" + pick +
      R"(, "at": [120, 120]})" + pick + R"(, "at": [180, 120]})" + pick + R"(, "at": [5, 5]})" +
      pick + R"(, "rect": [60, 60, 190, 190], "crossing": false})" + pick +
      R"(, "rect": [190, 190, 60, 60]})");
  ASSERT_EQ(result.status, 0) << result.err;
  using Names = std::vector<std::string>;
  EXPECT_EQ(result.Step(6)["nodes"], (Names{"field", "box"}));
  EXPECT_EQ(result.Step(7)["nodes"], Names{"field"});
  EXPECT_EQ(result.Step(8)["nodes"], Names{});
  EXPECT_EQ(result.Step(9)["nodes"], Names{"box"});
  EXPECT_EQ(result.Step(10)["nodes"], (Names{"field", "box"}));

  // Placements are hit as they are drawn: the dot of the only one is at pixel (170, 120).
  const std::string line = R"(, {"do": "set", "param": "Display_Mode", "value": "Dot"},
{"do": "stroke", "tool": "line", )" +
                           kView + R"(, "mouse": [[170, 120]]}, {"do": "leave"})";
  const Result dots =
      RunSteps(kField + line + pick + R"(, "at": [172, 118]})" + pick + R"(, "at": [190, 120]})");
  ASSERT_EQ(dots.status, 0) << dots.err;
  EXPECT_EQ(dots.Step(8)["nodes"], (Names{"field", "sow"}));
  EXPECT_EQ(dots.Step(9)["nodes"], Names{"field"});
}

}  // namespace
}  // namespace studio
