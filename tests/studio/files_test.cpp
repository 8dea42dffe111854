#include <algorithm>
#include <cmath>
#include <set>

#include "host/io/scenefile.h"
#include "studio/steps/stage.h"
#include "tests/studio/jobfixture.h"

namespace studio {
namespace {

using nlohmann::json;

class Files : public JobTest {
 protected:
  /// Opens a scene, changes it and saves it.
  template <class F>
  void Change(const std::string& from, const std::string& to, F change) const {
    std::ostringstream notices;
    Stage stage("", notices);
    std::string error;
    ASSERT_TRUE(host::OpenScene(stage.Ip(), Path(from).string(), {}, error)) << error;
    change(stage);
    ASSERT_TRUE(host::SaveScene(stage.Ip(), Path(to).string(), {}, error)) << error;
  }
  json Told(const std::vector<std::string>& words) const { return json::parse(Command(words).out); }
  /// A command that fails for that reason.
  void ExpectRefusal(const std::vector<std::string>& words, int status,
                     const std::string& said) const {
    const Result r = Command(words);
    EXPECT_TRUE(r.status == status && r.out.empty()) << r.status << ' ' << r.out;
    EXPECT_NE(r.err.find(said), std::string::npos) << r.err;
    EXPECT_EQ(r.err.find("step"), std::string::npos) << r.err;
  }
  std::string Size(const std::vector<std::string>& files) const {
    size_t bytes = 0;
    for (const std::string& file : files) bytes += std::filesystem::file_size(Path(file));
    const std::string digits = std::to_string(bytes);
    return digits.substr(0, digits.size() - 3) + "," + digits.substr(digits.size() - 3) + " bytes";
  }
};

const std::string kPainted = kField + R"(,
{"do": "set", "values": {"Brush_Size": 2, "Brush_Amount": 20}},
{"do": "stroke", "tool": "multi", "points": [[-8, -6], [0, 4], [8, -4]], "on": "field"},
{"do": "placements", "file": "p.json"}, {"do": "params", "file": "q.json"},
{"do": "save", "file": "scene.glb"})";

TEST_F(Files, AJobSavesAndOpens) {
  const Result first = RunSteps(kPainted + R"(,
{"do": "save", "file": "out/scene.glb"}, {"do": "primitive", "kind": "sphere", "name": "new"},
{"do": "open", "file": "out/scene.glb"},
{"do": "placements", "file": "p2.json"}, {"do": "params", "file": "q2.json"},
{"do": "save", "file": "again.glb"}, {"do": "check", "types": 1, "placements": {"min": 10}},
{"do": "undo"})");
  EXPECT_NE(first.err.find("there is nothing to undo"), std::string::npos) << first.err;
  EXPECT_EQ(first.json["steps"].size(), 16u);
  EXPECT_EQ(first.Step(12).at("nodes"), 3);
  EXPECT_EQ(Read("p.json"), Read("p2.json"));
  EXPECT_EQ(Read("q.json"), Read("q2.json"));
  EXPECT_EQ(Read("out/scene.glb"), Read("again.glb"));
  EXPECT_EQ(Read("scene.glb"), Read("again.glb"));
}

TEST_F(Files, CommandsTellWhatAFileHolds) {
  Done(kPainted);
  const size_t count = json::parse(Read("p.json")).at("count");
  EXPECT_EQ(Command({"placements", "@scene.glb"}).out, Read("p.json"));
  EXPECT_EQ(Command({"params", "@scene.glb"}).out, Read("q.json"));
  EXPECT_NE(Command({"params", "@scene.glb", "--counts"})
                .out.find(R"("name":"Ins_Pos","count":)" + std::to_string(count) + "}"),
            std::string::npos);
  EXPECT_EQ(Told({"stats", "@scene.glb", "--json"}).at("placements"), count);
  EXPECT_NE(Command({"check", "@scene.glb"}).out.find("1 object sound"), std::string::npos);

  Change("scene.glb", "set.gltf", [](Stage& stage) {
    stage.Ip().SetMasterUnit(UNITS_FEET, 2.5f);
    stage.Ip().SetAnimRange(Interval(2 * GetTicksPerFrame(), 101 * GetTicksPerFrame() / 2));
    stage.Ip().GetLayerManager().Layers().back()->Hide(true);
    INode* stone = stage.Ip().GetScene().AllNodes()[1];
    stage.Ip().SelectNodeTab({&stone, 1});
  });
  std::vector<std::string> pair = {"set.gltf"};
  for (const auto& file : std::filesystem::directory_iterator(folder_))
    if (file.path().extension() == ".bin") pair.push_back(file.path().filename().string());
  ASSERT_EQ(pair.size(), 2u);
  const std::string path = Path("set.gltf").string(), placements = std::to_string(count);
  EXPECT_EQ(
      Command({"info", path}).out, path + ": " + Size(pair) + R"(, unit 2.5 x feet, frames 2 to 50.5
3 nodes: 1 Box, 1 Plane, 1 Sowfield
layers: "0" "Vorn_Sowfield_Objects" (hidden)
selected: "stone"
"sow": 1 type, )" + placements + " placements\n");
  EXPECT_EQ(Told({"info", path, "--json"}),
            json({{"file", path},
                  {"bytes", std::filesystem::file_size(Path(pair[0])) +
                                std::filesystem::file_size(Path(pair[1]))},
                  {"unit", "feet"},
                  {"unit_scale", 2.5},
                  {"frames", {2.0, 50.5}},
                  {"nodes", 3},
                  {"classes", {{"Box", 1}, {"Plane", 1}, {"Sowfield", 1}}},
                  {"layers", {"0", "Vorn_Sowfield_Objects"}},
                  {"selected", {"stone"}},
                  {"objects", {{{"node", "sow"}, {"types", 1}, {"placements", count}}}}}));
  std::filesystem::remove(Path(pair[1]));
  EXPECT_EQ(Command({"info", path, "--recover"}).out.find(path + ": " + Size({"set.gltf"})), 0u);

  Done(R"({"do": "save", "file": "empty.glb"})");
  EXPECT_NE(Command({"info", "@empty.glb"}).out.find("\nno nodes\n"), std::string::npos);
  EXPECT_EQ(Command({"view", "@empty.glb", "@v.png"}).err,
            "view: the scene is empty: there is nothing to look at\n");
}

// Placements of 2 x 3 x 4, turned a quarter about Z and lifted a quarter unit, on a field that
// leans by 30 degrees about X. A line up the field turns them by nothing or by half about its
// normal.
TEST_F(Files, PlacementsAreTheSameInAllForms) {
  Done(
      R"({"do": "primitive", "kind": "plane", "name": "field", "size": [20, 20], "rotate": [30, 0, 0]},
{"do": "primitive", "kind": "box", "name": "st\"o,ne"}, {"do": "create", "name": "sow"},
{"do": "add", "nodes": "st\"o,ne"},
{"do": "set", "row": "all", "values": {"Tr_Unify": 0, "Tr_XScale_Min": 200, "Tr_YScale_Min": 300,
 "Tr_ZScale_Min": 400, "Tr_ZRot_Min": 90, "Tr_ZPos_Min": 0.25}},
{"do": "set", "type": 0, "values": {"Tr_AnimOn": 1, "Tr_AnimMin": 5, "Tr_AnimMax": 5}},
{"do": "stroke", "tool": "line", "points": [[1, -8], [1, 8]], "on": "field"},
{"do": "time", "frame": 3}, {"do": "save", "file": "a.glb"})");
  const json all = Told({"placements", "@a.glb"}).at("placements");
  std::istringstream csv(Command({"placements", "@a.glb", "--csv"}).out);
  std::string line;
  std::getline(csv, line);
  EXPECT_EQ(line,
            "placement,type,name,x,y,z,angle_x,angle_y,angle_z,rand,anim_rand,time,"
            "m00,m01,m02,m10,m11,m12,m20,m21,m22,m30,m31,m32");
  const double c = std::sqrt(3) / 2, s = 0.5;
  const int time = (5 + 3) * 160;  // ticks; 30 frames a second
  int animRands = 0;
  for (size_t p = 0; p < all.size(); ++p) {
    const json& told = all[p];
    const double x = told["position"][0], y = told["position"][1], z = told["position"][2];
    EXPECT_NEAR(z, y * s / c, 1e-5);
    const double h = told["angles"][0] > 0 ? 1 : -1;
    const double matrix[4][3] = {
        {0, 2 * c * h, 2 * s * h}, {-3 * h, 0, 0}, {0, -4 * s, 4 * c}, {x, y - s / 4, z + c / 4}};
    ASSERT_TRUE(std::getline(csv, line));
    const std::string start = std::to_string(p) + ",0,\"st\"\"o,ne\",";
    ASSERT_EQ(line.rfind(start, 0), 0u) << line;
    const json cells = json::parse("[" + line.substr(start.size()) + "]");
    EXPECT_NEAR(double(told["angles"][0]), h * std::acos(c), 1e-5);
    EXPECT_NEAR(double(told["angles"][1]), 0, 1e-5);
    EXPECT_NEAR(std::fabs(double(told["angles"][2])), std::acos(h), 1e-5);
    EXPECT_EQ(told["rand"], p % 100);
    EXPECT_EQ(told["time"], time);
    animRands += told["anim_rand"] != 0;
    json expected = told["position"];
    expected.insert(expected.end(), told["angles"].begin(), told["angles"].end());
    expected.insert(expected.end(), {told["rand"], told["anim_rand"], time});
    for (size_t r = 0; r < 4; ++r) {
      const json& row = told["matrix"][r];
      for (size_t k = 0; k < 3; ++k) EXPECT_NEAR(double(row[k]), matrix[r][k], 1e-5) << r << k;
      expected.insert(expected.end(), row.begin(), row.end());
    }
    EXPECT_EQ(cells, expected) << line;
  }
  EXPECT_FALSE(std::getline(csv, line));
  EXPECT_GT(animRands, 1);
}

TEST_F(Files, ViewsAreThoseOfTheStep) {
  const struct {
    const char* step;
    std::vector<std::string> words;
  } views[] = {
      {R"("size": [64, 48])", {}},
      {R"("size": [64, 48], "mode": "Bounding Box")", {"--mode", "Bounding Box"}},
      {R"("size": [64, 48], "mode": "Original")", {"--mode", "Original"}},
      {R"("size": [64, 48], "view": {"camera": "cam"})", {"--camera", "cam"}},
      {R"("size": [64, 48], "view": {"orthographic": "front"})", {"--side", "front"}},
      {R"("size": [64, 48], "view": {"orthographic": "left"})", {"--side", "left"}},
      {R"("size": [64, 48], "view": {"eye": [9, -9, 9], "target": [0, 1, 0]})",
       {"--eye", "9", "-9", "9", "--target", "0", "1", "0"}},
      {R"("size": [64, 48], "view": {"eye": [9, -9, 9], "target": [0, 1, 0], "fov": 90})",
       {"--eye", "9", "-9", "9", "--target", "0", "1", "0", "--fov", "90"}},
  };
  std::string steps = R"({"do": "open", "file": "scene.glb"})";
  for (size_t i = 0; i < std::size(views); ++i)
    steps +=
        R"(, {"do": "view", "file": "s)" + std::to_string(i) + ".png\", " + views[i].step + "}";
  Done(kPainted + R"(, {"do": "camera", "name": "cam", "eye": [0, -20, 5], "target": [0, 0, 0]},
{"do": "save", "file": "scene.glb"})");
  Done(steps);
  std::set<std::string> pictures;
  for (size_t i = 0; i < std::size(views); ++i) {
    std::vector<std::string> words = {"view", "@scene.glb", "@v.png", "--size", "64", "48"};
    words.insert(words.end(), views[i].words.begin(), views[i].words.end());
    EXPECT_EQ(Command(words).status, 0);
    EXPECT_EQ(Read("v.png"), Read("s" + std::to_string(i) + ".png")) << views[i].step;
    EXPECT_TRUE(pictures.insert(Read("v.png")).second) << views[i].step;
  }
}

TEST_F(Files, ObjectsOfOneNameAreCounted) {
  Done(kField + R"(, {"do": "create", "name": "b"}, {"do": "add", "nodes": ["stone", "field"]},
{"do": "create", "name": "c"}, {"do": "save", "file": "a.glb"})");
  const auto types = [&](const char* object) {
    return Told({"stats", "@two.glb", "--json", "--object", object}).at("types");
  };
  Change("a.glb", "two.glb", [](Stage& stage) { stage.SowfieldNodes()[1]->SetName(L"sow"); });
  EXPECT_EQ(types("sow#1"), 1);
  EXPECT_EQ(types("sow#2"), 2);
  for (const char* name : {"sow", "sow#0", "sow#3"})
    ExpectRefusal({"params", "@two.glb", "--object", name}, 1,
                  R"(2 Sowfield objects are named "sow": tell which, "sow#1" to "sow#2")");
  ExpectRefusal({"params", "@two.glb", "--object", "sow#2x"}, 1, "no node is named \"sow#2x\"");
  ExpectRefusal({"params", "@two.glb", "--object", "c#2"}, 1, "1 Sowfield object is named \"c\"");
  ExpectRefusal({"params", "@two.glb"}, 2, "3 Sowfield objects: name one with --object");
  EXPECT_EQ(Done(R"({"do": "open", "file": "two.glb"}, {"do": "select", "object": "sow#2"},
{"do": "check", "types": 2})")
                .Step(2)
                .at("node"),
            "sow");
  Change("two.glb", "two.glb", [](Stage& stage) { stage.SowfieldNodes()[2]->SetName(L"sow#2"); });
  EXPECT_EQ(types("sow#2"), 0);
}

TEST_F(Files, TheSelectionIsKeptAndCompared) {
  Done(kField +
       R"(, {"do": "selection", "nodes": ["stone", "field"]}, {"do": "save", "file": "a.glb"},
{"do": "open", "file": "a.glb"}, {"do": "save", "file": "b.glb"},
{"do": "selection"}, {"do": "save", "file": "c.glb"})");
  EXPECT_EQ(Read("a.glb"), Read("b.glb"));
  EXPECT_NE(Command({"info", "@a.glb"}).out.find("\nselected: \"stone\" \"field\"\n"),
            std::string::npos);
  EXPECT_EQ(Command({"info", "@c.glb"}).out.find("selected"), std::string::npos);
  EXPECT_EQ(Command({"diff", "@b.glb", "@c.glb"}).out,
            "scene\n  selection: [\"stone\",\"field\"] -> []\n");
  ExpectFault(kField + R"(, {"do": "selection", "nodes": "tree"})", "no node is named \"tree\"");
}

TEST_F(Files, FailuresNameTheFileAndTheReason) {
  Done(kField + R"(, {"do": "save", "file": "scene.glb"})");
  std::string bytes = Read("scene.glb");
  bytes[bytes.find("\"matrix\":[") + 11] ^= 1;
  Write("broken.glb", bytes);
  for (const char* command : {"info", "check", "stats", "params", "placements"}) {
    const Result r = Command({command, "@broken.glb"});
    EXPECT_TRUE(r.status == 1 && r.out.empty()) << command;
    EXPECT_NE(r.err.find("broken.glb\": its description is damaged"), std::string::npos) << r.err;
  }
  Write("text.glb", "glTF, more or less");
  ExpectRefusal({"info", "none.glb"}, 1, "info: there is no file \"none.glb\"\n");
  ExpectRefusal({"check", "@text.glb"}, 1, "is no scene that this program saved");
  ExpectRefusal({"view", "@scene.glb", "v.jpg"}, 2,
                "view: pictures are PNG files: \"v.jpg\" doesn't end in .png\n");
  ExpectRefusal({"view", "@scene.glb", "@v.png", "--side", "above"}, 2, "--side: above not in {");
  ExpectRefusal({"view", "@scene.glb", "@v.png", "--camera", "stone"}, 1, "view: \"stone\" is no");
  ExpectRefusal({"placements", "@scene.glb", "--object", "stone"}, 1, "\"stone\" is no Sowfield");
  ExpectRefusal({"placements", "@scene.glb", "--object", ""}, 2, "--object: it is empty");
  ExpectRefusal({"diff", "@scene.glb", "@scene.glb", "--object", ""}, 2, "--object: it is empty");
  ExpectRefusal({"import", "@text.glb", "@new.glb", "--join", ""}, 2, "--join: it is empty");
  ExpectRefusal({"import", "@text.glb", "new.obj"}, 2,
                "import: scenes are glTF files: \"new.obj\"");
  ExpectRefusal({"recover", "@scene.glb", "new.obj"}, 2, "recover: scenes are glTF files");

  ExpectFault(R"({"do": "open", "file": "scene.glb", "at": [1, 0, 0]})", "\"at\" is for models");
  ExpectFault(R"({"do": "save", "file": "a.obj"})", "doesn't end in .glb or .gltf");
}

TEST_F(Files, WhatCanBeReadOfADamagedFileIsSavedAnew) {
  Done(kPainted);
  const std::string bytes = Read("scene.glb");
  const auto count = json::parse(Read("p.json")).at("count").get<size_t>();
  EXPECT_EQ(Command({"check", "@scene.glb", "--recover"}).status, 0);
  const std::string broken = bytes.substr(0, bytes.size() - 8);  // what is for viewers stands last
  Write("cut.glb", broken);
  EXPECT_EQ(Command({"stats", "@cut.glb"}).status, 1);
  const Result stats = Command({"stats", "@cut.glb", "--json", "--recover"});
  EXPECT_EQ(stats.status, 0);
  EXPECT_EQ(json::parse(stats.out).at("placements"), count);
  EXPECT_EQ(stats.err, "lost: it has " + std::to_string(broken.size()) + " bytes, expected " +
                           std::to_string(bytes.size()) + "\n");
  EXPECT_EQ(Command({"check", "@cut.glb", "--recover"}).status, 1);
  EXPECT_EQ(Command({"recover", "@cut.glb", "@cut.glb"}).status, 2);
  EXPECT_EQ(Read("cut.glb"), broken);
  EXPECT_EQ(Command({"recover", "@cut.glb", "@new.glb"}).status, 0);
  EXPECT_EQ(Read("new.glb"), bytes);
}

TEST_F(Files, ScenesKeepPathsThatHoldEverywhere) {
  const std::filesystem::path before = std::filesystem::current_path();
  Write("a.json", "{\"steps\": [" + kField + R"(, {"do": "convert", "type": 0, "file": "s.Vorn"},
{"do": "open", "file": "sow.obj"}, {"do": "save", "file": "a.glb"}]})");
  Write("sow.obj", "o sow\nv 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 3\n");
  std::filesystem::current_path(folder_);
  const Result run = Command({"run", "a.json"});
  std::filesystem::current_path(before);
  ASSERT_EQ(run.status, 0) << run.err;
  // The model's node has the name as well; a Sowfield object is asked for.
  const Result params = Command({"params", "@a.glb", "--object", "sow", "--json"});
  ASSERT_EQ(params.status, 0) << params.err;
  EXPECT_NE(params.out.find(Path("s.Vorn").string()), std::string::npos) << params.out;
}

TEST_F(Files, AJobMergesScenes) {
  const Result r = RunSteps(kField + R"(, {"do": "save", "file": "a.glb"},
{"do": "merge", "file": "a.glb"}, {"do": "check"}, {"do": "undo"},
{"do": "open", "file": "a.glb", "recover": true}, {"do": "merge", "file": "job.json"})");
  EXPECT_EQ(r.Step(6).at("nodes"), 3);
  EXPECT_EQ(r.Step(6).at("renamed").at(1), (json{{"from", "stone"}, {"to", "stone001"}}));
  EXPECT_EQ(r.Step(7).at("objects"), 2);
  EXPECT_EQ(r.Step(9).at("nodes"), 3);
  EXPECT_EQ(r.Step(9).at("losses"), 0);
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("cannot merge"), std::string::npos) << r.err;
  Write("m.obj", "v 0 0 0\n");
  ExpectFault(R"({"do": "open", "file": "m.obj", "recover": true})", "is for scenes");
}

TEST_F(Files, AModelBecomesAScene) {
  Write("model.obj",
        "o leaf\nv 1 2 3\nv 4 2 3\nv 1 2 5\nf 1 2 3\no stem\nv 0 0 0\nv 1 0 0\n"
        "v 0 1 0\nf 4 5 6\n");
  const struct {
    std::vector<std::string> words;
    size_t nodes;
    Point3 first;
  } cases[] = {{{"--up", "z"}, 2, {1, 2, 3}},
               {{"--up", "y", "--force"}, 2, {1, -3, 2}},
               {{"--up", "z", "--scale", "2.5", "--force"}, 2, {2.5f, 5, 7.5f}},
               {{"--up", "z", "--join", "plant", "--force"}, 1, {1, 2, 3}}};
  for (const auto& c : cases) {
    std::vector<std::string> words = {"import", "@model.obj", "@model.glb"};
    words.insert(words.end(), c.words.begin(), c.words.end());
    ASSERT_EQ(Command(words).status, 0);
    Change("model.glb", "copy.glb", [&](Stage& stage) {
      const std::vector<INode*> nodes = stage.Ip().GetScene().AllNodes();
      ASSERT_EQ(nodes.size(), c.nodes);
      EXPECT_EQ(ToUtf8(nodes[0]->GetName()), c.nodes == 1 ? "plant" : "leaf");
      const Point3 found = EvalMesh(nodes[0], 0).mesh->verts[0] * nodes[0]->GetObjectTM(0);
      EXPECT_LT(Length(found - c.first), 1e-5f) << found.x << ' ' << found.y << ' ' << found.z;
    });
  }
  EXPECT_EQ(Command({"import", "@model.glb", "@x.glb"}).status, 1);
  Write("own.gltf", "{}");
  EXPECT_EQ(Command({"import", "@own.gltf", "@own.gltf"}).status, 2);
  EXPECT_EQ(Read("own.gltf"), "{}");
  EXPECT_EQ(Command({"stats", "@model.glb"}).status, 1);
}

TEST_F(Files, OnlyScenesMakeWay) {
  Write("m.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 3\n");
  Write("model.glb", "glTF of somebody else");
  Done(kField + R"(, {"do": "save", "file": "scene.glb"}, {"do": "save", "file": "scene.glb"})");
  const std::string scene = Read("scene.glb");
  for (const char* from : {"import @m.obj", "recover @scene.glb"}) {
    std::vector<std::string> words;
    for (std::istringstream in(from); in >> words.emplace_back();) {
    }
    words.back() = "@old.glb";
    Write("old.glb", scene + " ");
    ExpectRefusal(words, 1, "old.glb\" is there already: --force replaces it\n");
    EXPECT_EQ(Read("old.glb"), scene + " ");
    words.push_back("--force");
    EXPECT_EQ(Command(words).status, 0);
    EXPECT_EQ(Read("old.glb") == scene, words[0] == "recover");
    words[2] = "@model.glb";
    ExpectRefusal(words, 1,
                  "model.glb\" is no scene that this program saved: it won't be replaced\n");
  }
  ExpectFault(
      R"({"do": "open", "file": "m.obj"}, {"do": "save", "file": "model.glb", "backup": true})",
      "model.glb\" is no scene that this program saved: it won't be replaced\n");
  EXPECT_EQ(Read("model.glb"), "glTF of somebody else");
}

TEST_F(Files, PathsLeadWhereTheSystemTakesThem) {
  std::filesystem::create_directories(Path("real/sub"));
  std::filesystem::create_directory_symlink("real/sub", Path("link"));
  std::filesystem::create_directory_symlink("gone/sub", Path("lost"));
  Done(kField + R"(, {"do": "convert", "type": 0, "file": "link/.././s.Vorn"},
{"do": "save", "file": "link/../new/../x.glb"})");
  EXPECT_FALSE(std::filesystem::exists(Path("x.glb")));
  ASSERT_TRUE(std::filesystem::exists(Path("real/x.glb")));
  for (const char* path : {"@link/../x.glb", "@real/sub/../x.glb", "@real/./x.glb"})
    EXPECT_EQ(Command({"check", path}).status, 0) << path;
  const std::string real = std::filesystem::canonical(Path("real/s.Vorn")).string();
  EXPECT_NE(Command({"params", "@real/x.glb"}).out.find('"' + real + '"'), std::string::npos);
  ExpectFault(kField + R"(, {"do": "save", "file": "lost/../x.glb"})", "lost/..");
}

TEST_F(Files, PathsNeedNotBeText) {
  std::filesystem::create_directory(Path("caf\xe9"));
  Write("caf\xe9/m.mtl", "newmtl a\nmap_Kd v.png\n");
  Write("caf\xe9/m.obj",
        "mtllib m.mtl\nusemtl a\nv 0 0 0\nv 1 0 0\nv 0 1 0\nvt 0 0\nf 1/1 2/1 3/1\n");
  Write("caf\xe9/job.json", "{\"steps\": [" + kField + R"(, {"do": "save", "file": "s.gltf"},
{"do": "convert", "type": 0, "file": "s.Vorn"}]})");
  const Result run = Command({"run", "@caf\xe9/job.json", "--json"});
  const std::string said =
      "a scene can't keep the path \"" + Path("caf\\xe9/s.Vorn").string() + "\": it isn't UTF-8";
  EXPECT_TRUE(run.status == 1 && run.err.find(said) != std::string::npos) << run.err;
  EXPECT_NE(json::parse(run.out).at("error").get<std::string>().find("caf\uFFFD/job.json"),
            std::string::npos);
  EXPECT_FALSE(std::filesystem::exists(Path("caf\xe9/s.Vorn")));
  const std::string scene = "@caf\xe9/s.gltf";
  for (const std::vector<std::string>& words :
       std::vector<std::vector<std::string>>{{"info", scene},
                                             {"check", scene},
                                             {"diff", scene, scene},
                                             {"view", scene, "@caf\xe9/v.png"},
                                             {"recover", scene, "@caf\xe9/r.glb"},
                                             {"import", "@caf\xe9/m.obj", "@caf\xe9/i\xff.glb"},
                                             {"stats", "@caf\xe9/r.glb"}}) {
    const Result r = Command(words);
    EXPECT_EQ(r.status, 0) << words[0] << ": " << r.err;
    EXPECT_EQ(r.err, words[0] != "import"
                         ? ""
                         : "warning: pictures of \"" + Path("caf\\xe9/m.obj").string() +
                               "\" are lost: a scene can't keep their paths, which aren't UTF-8\n");
  }
  EXPECT_EQ(Told({"info", scene, "--json"}).at("file"), Path("caf\uFFFD/s.gltf").string());
  EXPECT_EQ(Read("caf\xe9/v.png").substr(1, 3), "PNG");
}

}  // namespace
}  // namespace studio
