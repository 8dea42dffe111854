#include <algorithm>
#include <bit>
#include <limits>
#include <random>

#include "studio/diff/align.h"
#include "studio/diff/scenediff.h"
#include "tests/studio/jobfixture.h"

namespace studio {
namespace {

using nlohmann::json;

// The length of the longest common subsequence by the plain table.
size_t LongestCommon(const std::vector<std::uint64_t>& a, const std::vector<std::uint64_t>& b) {
  std::vector<std::vector<size_t>> best(a.size() + 1, std::vector<size_t>(b.size() + 1));
  for (size_t i = 0; i < a.size(); ++i)
    for (size_t j = 0; j < b.size(); ++j)
      best[i + 1][j + 1] = a[i] == b[j] ? best[i][j] + 1 : std::max(best[i][j + 1], best[i + 1][j]);
  return best[a.size()][b.size()];
}

TEST(Align, KeepsAsManyInTheirOrderAsThereCanBe) {
  std::mt19937 random(7);
  for (int round = 0; round < 300; ++round) {
    const size_t all = random() % 30;
    AlignKeys keys;
    for (size_t i = 0; i < all; ++i) {
      if (random() % 4 != 0) keys.a.push_back(i);
      if (random() % 4 != 0) keys.b.push_back(i);
    }
    if (round % 3 == 0) std::shuffle(keys.b.begin(), keys.b.end(), random);
    int nextA = 0, nextB = 0;
    size_t equal = 0;
    for (const AlignedPair& p : Align(std::span(&keys, 1))) {
      ASSERT_TRUE(p.a >= 0 || p.b >= 0);
      ASSERT_TRUE(p.a < 0 || p.a == nextA++);
      ASSERT_TRUE(p.b < 0 || p.b == nextB++);
      if (p.a >= 0 && p.b >= 0) equal += keys.a[size_t(p.a)] == keys.b[size_t(p.b)];
    }
    ASSERT_EQ(size_t(nextA), keys.a.size());
    ASSERT_EQ(size_t(nextB), keys.b.size());
    EXPECT_EQ(equal, LongestCommon(keys.a, keys.b)) << "round " << round;
  }
}

TEST(Align, TakesLooserKeysBetweenStricterOnes) {
  // By the first keys 1 and 5 are the same. Between them one went and the rest has new first keys.
  const AlignKeys levels[] = {{{1, 2, 3, 4, 5}, {1, 30, 40, 5, 6}},
                              {{10, 20, 30, 40, 50}, {10, 30, 40, 50, 60}}};
  const std::vector<AlignedPair> expected = {{0, 0}, {1, -1}, {2, 1}, {3, 2}, {4, 3}, {-1, 4}};
  EXPECT_EQ(Align(levels), expected);
  // Without any likeness they go together in their order; equal ones do the first to the first.
  const AlignKeys changed{{1, 2, 3}, {4, 5}}, equal{{7, 7}, {7, 7, 7}};
  EXPECT_EQ(Align(std::span(&changed, 1)), (std::vector<AlignedPair>{{0, 0}, {1, 1}, {2, -1}}));
  EXPECT_EQ(Align(std::span(&equal, 1)), (std::vector<AlignedPair>{{0, 0}, {1, 1}, {-1, 2}}));
}

class Diff : public JobTest {
 protected:
  json Told(const std::string& words) const {
    const Result r = Command("diff --json " + words);
    EXPECT_EQ(r.status, 1) << r.err;
    return json::parse(r.out);
  }
  // A painted scene "a.glb", and `steps` behind it.
  void Paint(const std::string& steps) const {
    Done(kField + R"(,
{"do": "primitive", "kind": "sphere", "name": "ball", "size": [1], "at": [55, 50, 0]},
{"do": "add", "nodes": "ball"}, {"do": "set", "values": {"Brush_Size": 2, "Brush_Amount": 20}},
{"do": "stroke", "tool": "multi", "points": [[-8, -6], [0, 4], [8, -4]], "on": "field"},
{"do": "placements", "file": "a.json"}, {"do": "save", "file": "a.glb"},
)" + steps);
  }
  json Placements(const std::string& name) const { return json::parse(Read(name))["placements"]; }
};

TEST_F(Diff, NothingDiffersExactlyWhereTheBytesAreTheSame) {
  Paint(R"({"do": "save", "file": "b.glb"},
{"do": "set", "param": "Brush_Size", "value": 3}, {"do": "save", "file": "c.glb"},
{"do": "undo"}, {"do": "save", "file": "d.glb"},
{"do": "rows", "rows": ["ball"]}, {"do": "save", "file": "e.glb"},
{"do": "colour", "type": "ball", "colour": "#102030"}, {"do": "save", "file": "f.glb"},
{"do": "time", "frame": 7}, {"do": "save", "file": "g.glb"},
{"do": "selection", "nodes": ["stone", "field"]}, {"do": "save", "file": "h.glb"},
{"do": "selection"}, {"do": "save", "file": "i.glb"})");
  const auto compare = [&](const std::string& a, const std::string& b) {
    const Result r = Command("diff @" + a + " @" + b);
    EXPECT_EQ(r.status, Read(a) == Read(b) ? 0 : 1) << b << ": " << r.out << r.err;
    EXPECT_EQ(r.out == "nothing differs\n", r.status == 0) << r.out;
  };
  for (const char* file : {"a.glb", "b.glb", "c.glb", "d.glb", "e.glb", "f.glb", "g.glb"})
    compare("a.glb", file);
  EXPECT_EQ(Read("a.glb"), Read("d.glb"));
  EXPECT_EQ(Read("g.glb"), Read("i.glb"));
  EXPECT_EQ(Command("diff @a.glb @c.glb").out, "object \"sow\"\n  Brush_Size: 2 -> 3\n");
  EXPECT_EQ(Command("diff @g.glb @h.glb").out, "scene\n  selection: [] -> [\"stone\",\"field\"]\n");
  EXPECT_EQ(Told("@e.glb @g.glb")["scene"].dump(), R"([{"a":0,"b":1120,"what":"time"}])");
  EXPECT_EQ(Told("@a.glb @f.glb")["things"].size(), 1u);
  // An object without types, and one that had some: its tables have their first rows.
  Done(R"({"do": "primitive", "kind": "box", "name": "box"},
{"do": "create", "name": "sow"}, {"do": "save", "file": "empty.glb"},
{"do": "add", "nodes": "box"}, {"do": "remove", "types": [0]}, {"do": "save", "file": "was.glb"})");
  compare("empty.glb", "was.glb");
}

TEST_F(Diff, PlacementsThatCameWentAndChangedAreTold) {
  Paint(R"({"do": "remove", "types": ["stone"]}, {"do": "save", "file": "d.glb"}, {"do": "undo"},
{"do": "stroke", "tool": "erase", "points": [[0, 4], [1, 3]], "on": "field"},
{"do": "stroke", "tool": "line", "points": [[-3, -6], [0, 2]], "on": "field"},
{"do": "placements", "file": "b.json"}, {"do": "save", "file": "b.glb"},
{"do": "set", "row": "ball", "values": {"Tr_XScale_Min": 60}}, {"do": "save", "file": "c.glb"})");
  const json a = Placements("a.json"), b = Placements("b.json");
  // Positions are unlike one another, and those that stay keep their order.
  const auto onlyIn = [](const json& these, const json& others) {
    json only;
    for (size_t i = 0; i < these.size(); ++i)
      if (std::none_of(others.begin(), others.end(),
                       [&](const json& p) { return p["position"] == these[i]["position"]; }))
        only.push_back(i);
    return only;
  };
  const json first = Told("@a.glb @b.glb")["objects"][0];
  ASSERT_FALSE(onlyIn(a, b).empty() || onlyIn(b, a).empty());
  EXPECT_EQ(first["placements"]["only_a"], onlyIn(a, b));
  EXPECT_EQ(first["placements"]["only_b"], onlyIn(b, a));
  EXPECT_TRUE(first["placements"]["changed"].empty() && first["tables"].empty()) << first;

  const json second = Told("@b.glb @c.glb")["objects"][0];
  const auto balls = std::count_if(b.begin(), b.end(), [](auto& p) { return p["type"] == 1; });
  ASSERT_EQ(second["placements"]["changed"].size(), size_t(balls));
  const json& parts = second["placements"]["changed"][0]["parts"];
  ASSERT_EQ(parts.size(), 2u);
  EXPECT_TRUE(parts[0]["what"] == "scale" && parts[1]["what"] == "matrix") << parts;
  EXPECT_EQ(parts[0]["a"], json({1, 1, 1}));
  EXPECT_FLOAT_EQ(parts[0]["b"][0].get<float>(), 0.6f);
  // Its upper end follows while the row isn't random, and so do Y and Z while it unifies them.
  ASSERT_EQ(second["tables"].size(), 6u);
  EXPECT_EQ(second["tables"][0]["entries"].dump(), R"([{"a":100,"b":60,"what":"ball"}])");
  EXPECT_TRUE(Says(Command("diff @b.glb @c.glb --object sow").out,
                   "... and " + std::to_string(balls - 3) + " more"));

  // Types belong together by their names.
  const json third = Told("@a.glb @d.glb")["objects"][0];
  EXPECT_EQ(third["types"].dump(),
            R"({"moved":[{"a":1,"b":0,"what":"ball"}],"only_a":["stone"],"only_b":[]})");
  json stones;
  for (size_t i = 0; i < a.size(); ++i)
    if (a[i]["type"] == 0) stones.push_back(i);
  EXPECT_EQ(third["placements"]["only_a"], stones);
  EXPECT_TRUE(third["placements"]["only_b"].empty() && third["tables"].empty()) << third;
}

TEST_F(Diff, TheSceneAroundTheObjectsIsTold) {
  const std::string rest = R"(
{"do": "primitive", "kind": "sphere", "name": "round", "segments": 8},
{"do": "primitive", "kind": "box", "name": "still", "at": [1, 2, 3]},)";
  ASSERT_EQ(RunText(R"({"unit": "feet", "steps": [
{"do": "primitive", "kind": "box", "name": "went"}, {"do": "primitive", "kind": "box", "name": "thing"},
{"do": "primitive", "kind": "box", "name": "sized", "size": [1, 2, 3]},)" +
                    rest + R"({"do": "save", "file": "a.glb"}]})")
                .status,
            0);
  Done(R"({"do": "primitive", "kind": "plane", "name": "thing", "colour": "#112233"},
{"do": "primitive", "kind": "box", "name": "sized", "size": [1, 2, 4]},)" +
       rest + R"({"do": "key", "node": "round", "frame": 3, "position": [1, 0, 0]},
{"do": "camera", "name": "came", "eye": [0, 0, 9], "target": [0, 0, 0]},
{"do": "save", "file": "b.glb"})");
  const json told = Told("@a.glb @b.glb");
  EXPECT_EQ(told["scene"].dump(), R"([{"a":"feet","b":"metres","what":"unit"}])");
  EXPECT_TRUE(told["nodes_only_a"] == json({"went"}) && told["nodes_only_b"] == json({"came"}));
  ASSERT_EQ(told["nodes"].size(), 2u);
  const json &thing = told["nodes"][0], &changes = thing["changes"];
  EXPECT_TRUE(thing["name"] == "thing" && told["nodes"][1]["name"] == "round") << told;
  ASSERT_EQ(changes.size(), 2u);
  EXPECT_EQ(changes[0].dump(), R"({"a":"Box","b":"Plane","what":"object"})");
  EXPECT_EQ(changes[1]["what"], "wire colour");
  ASSERT_EQ(told["things"].size(), 1u);
  EXPECT_EQ(told["things"][0]["changes"].dump(), R"([{"a":[1,2,3],"b":[1,2,4],"what":"size"}])");
  // A name that is a Sowfield object's on one side alone.
  Done(R"({"do": "create", "name": "thing"}, {"do": "save", "file": "c.glb"})");
  const json one = Told("@c.glb @a.glb --object thing");
  EXPECT_EQ(one["nodes"][0]["changes"].dump(), R"([{"a":"Sowfield","b":"Box","what":"object"}])");
  EXPECT_EQ(one["scene"], json::array());
}

// The same scene on two stages, of which one is changed.
TEST_F(Diff, BitsDecide) {
  Paint(R"({"do": "leave"})");
  std::ostringstream notices;
  Stage a("", notices), b("", notices);
  std::string error;
  for (Stage* stage : {&a, &b})
    ASSERT_TRUE(host::OpenScene(stage->Ip(), Path("a.glb").string(), {}, error)) << error;
  const auto block = [](Stage& s) { return Stage::SowfieldOf(s.SowfieldNodes()[0])->pblock2; };
  const auto changed = [&] {  // what must be the only one
    const SceneChange c = CompareScenes(a, b, std::nullopt);
    const auto all =
        c.objects.empty() ? std::vector<PlacementChange>() : c.objects[0].change.changed;
    return all.size() == 1 ? all[0] : PlacementChange{-1};
  };
  const auto put = [&](Stage& s, float x) {
    block(s)->SetValue(sowfield::Ins_Pos, 0, Point3(x, 1, 0), 4);
  };
  const float nan = std::numeric_limits<float>::quiet_NaN();
  put(a, nan), put(b, nan);
  EXPECT_TRUE(CompareScenes(a, b, std::nullopt).Nothing());
  put(b, std::bit_cast<float>(0x7fc00001u));
  EXPECT_EQ(changed().a, 4);
  const PlacementValues values({*block(a), 0}, {*block(b), 0});
  EXPECT_EQ(values.Of(changed())[0].b, R"(["0x7fc00001",1,0])");
  put(a, 0), put(b, -0.0f);
  EXPECT_TRUE(changed().parts & kPosition);
  put(b, 0);
  block(b)->SetValue(sowfield::Ins_AnimRand, 0, block(b)->Ints(sowfield::Ins_AnimRand)[9] ^ 1, 9);
  EXPECT_EQ(changed().parts, unsigned(kRandom));
}

}  // namespace
}  // namespace studio
