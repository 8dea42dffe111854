#include <cmath>
#include <set>

#include "host/scenefile/scenefile.h"
#include "studio/job/jsonout.h"
#include "studio/steps/steps.h"
#include "tests/studio/jobfixture.h"

namespace studio {
namespace {

using nlohmann::json;
using namespace std::string_literals;

class Files : public JobTest {
 protected:
  json Told(const std::string& line) const { return json::parse(Command(line).out); }
  /// A command that fails for that reason.
  void ExpectRefusal(int status, const std::string& line, const std::string& said) const {
    const Result r = Command(line);
    EXPECT_TRUE(r.status == status && r.out.empty()) << line << r.status << r.out;
    EXPECT_TRUE(Says(r.err, said) && !Says(r.err, "step")) << r.err;
  }
};

const std::string kPainted = kField + R"(,
{"do": "set", "values": {"Brush_Size": 2, "Brush_Amount": 20}},
{"do": "stroke", "tool": "multi", "points": [[-8, -6], [0, 4], [8, -4]], "on": "field"},
{"do": "placements", "file": "p.json"}, {"do": "params", "file": "q.json"},
{"do": "save", "file": "scene.glb"})";

TEST_F(Files, AJobSavesOpensAndMerges) {
  const Result r = RunSteps(kPainted + R"(,
{"do": "save", "file": "out/scene.glb"}, {"do": "primitive", "kind": "sphere", "name": "new"},
{"do": "open", "file": "out/scene.glb"}, {"do": "save", "file": "again.glb"},
{"do": "open", "file": "again.glb", "recover": true}, {"do": "merge", "file": "again.glb"},
{"do": "check", "types": 1, "placements": {"min": 10}}, {"do": "undo"})");
  EXPECT_TRUE(Says(r.err, "there is nothing to undo"));
  ASSERT_EQ(r.json["steps"].size(), 16u);
  EXPECT_EQ(r.Step(12).at("nodes"), 3);
  EXPECT_EQ(r.Step(14).at("losses"), 0);
  EXPECT_EQ(r.Step(15).at("nodes"), 3);
  EXPECT_EQ(r.Step(15).at("renamed").at(1), (json{{"from", "stone"}, {"to", "stone001"}}));
  EXPECT_EQ(r.Step(16).at("objects"), 2);
  for (const char* file : {"out/scene.glb", "again.glb"}) EXPECT_EQ(Read("scene.glb"), Read(file));
  Write("m.obj", "v 0 0 0\n");
  ExpectFaults("", {{R"({"do": "merge", "file": "job.json"})", "cannot merge"},
                    {R"({"do": "open", "file": "m.obj", "recover": true})", "is for scenes"},
                    {R"({"do": "open", "file": "scene.glb", "at": [1, 0, 0]})", "is for models"},
                    {R"({"do": "save", "file": "a.obj"})", "doesn't end in .glb or .gltf"}});
}

TEST_F(Files, CommandsTellWhatAFileHolds) {
  Done(kPainted);
  const size_t count = json::parse(Read("p.json")).at("count");
  const std::string placements = std::to_string(count);
  EXPECT_EQ(Command("placements @scene.glb").out, Read("p.json"));
  EXPECT_EQ(Command("params @scene.glb").out, Read("q.json"));
  EXPECT_TRUE(Says(Command("params @scene.glb --counts").out,
                   R"("name":"Ins_Pos","count":)" + placements + "}"));
  EXPECT_EQ(Told("stats @scene.glb --json").at("placements"), count);
  EXPECT_TRUE(Says(Command("check @scene.glb").out, "1 object sound"));

  Change("scene.glb", "set.gltf", [](Stage& stage) {
    stage.Ip().SetMasterUnit(UNITS_FEET, 2.5f);
    stage.Ip().SetAnimRange(Interval(2 * GetTicksPerFrame(), 101 * GetTicksPerFrame() / 2));
    stage.Ip().GetLayerManager().Layers().back()->Hide(true);
    INode* stone = stage.Ip().GetScene().AllNodes()[1];
    stage.Ip().SelectNodeTab({&stone, 1});
  });
  std::filesystem::path bin;
  for (const auto& file : std::filesystem::directory_iterator(folder_))
    if (file.path().extension() == ".bin") bin = file.path();
  const std::string path = Path("set.gltf").string();
  const size_t text = std::filesystem::file_size(path), whole = text + file_size(bin);
  EXPECT_EQ(Command("info @set.gltf").out, path + ": " + Grouped(whole) +
                                               R"( bytes, unit 2.5 x feet, frames 2 to 50.5
3 nodes: 1 Box, 1 Plane, 1 Sowfield
layers: "0" "Vorn_Sowfield_Objects" (hidden)
selected: "stone"
"sow": 1 type, )" + placements + " placements\n");
  json expected = json::parse(R"({"unit": "feet", "unit_scale": 2.5, "frames": [2, 50.5],
"nodes": 3, "classes": {"Box": 1, "Plane": 1, "Sowfield": 1}, "selected": ["stone"],
"layers": ["0", "Vorn_Sowfield_Objects"], "objects": [{"node": "sow", "types": 1}]})");
  expected["file"] = path, expected["bytes"] = whole;
  expected["objects"][0]["placements"] = count;
  EXPECT_EQ(Told("info @set.gltf --json"), expected);
  std::filesystem::remove(bin);
  EXPECT_EQ(Command("info @set.gltf --recover").out.find(path + ": " + Grouped(text) + " b"), 0u);

  Done(R"({"do": "save", "file": "empty.glb"})");
  const std::string told = Command("info @empty.glb").out;
  EXPECT_TRUE(Says(told, "\nno nodes\n") && !Says(told, "selected")) << told;
  ExpectRefusal(1, "view @empty.glb @v.png", "view: the scene is empty: there is nothing to look");
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
 "Tr_ZScale_Min": 400, "Tr_ZRot_Min": 90}},
{"do": "set", "row": 1, "param": "Tr_ZPos_Min", "value": 0.25},
{"do": "set", "type": 0, "values": {"Tr_AnimOn": 1, "Tr_AnimMin": -3, "Tr_AnimMax": -3}},
{"do": "stroke", "tool": "line", "points": [[1, -8], [1, 8]], "on": "field"},
{"do": "time", "frame": 12.5}, {"do": "save", "file": "a.glb"})");
  const json all = Told("placements @a.glb").at("placements");
  std::istringstream csv(Command("placements @a.glb --csv").out);
  std::string line;
  std::getline(csv, line);
  EXPECT_EQ(line,
            "placement,type,name,x,y,z,angle_x,angle_y,angle_z,rand,anim_rand,time,"
            "m00,m01,m02,m10,m11,m12,m20,m21,m22,m30,m31,m32");
  const double c = std::sqrt(3) / 2, s = 0.5;
  const int time = 2000 - 3 * 160;  // 160 ticks are a frame
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
    EXPECT_TRUE(told["rand"] == p % 100 && told["time"] == time) << told;
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
  const std::pair<std::string, std::string> views[] = {
      {"", ""},
      {R"(, "mode": "Bounding Box")", " --mode 'Bounding Box'"},
      {R"(, "mode": "Original")", " --mode Original"},
      {R"(, "view": {"camera": "cam"})", " --camera cam"},
      {R"(, "view": {"orthographic": "front"})", " --side front"},
      {R"(, "view": {"eye": [9, -9, 9], "target": [0, 1, 0]})", " --eye 9 -9 9 --target 0 1 0"},
      {R"(, "view": {"eye": [9, -9, 9], "target": [0, 1, 0], "fov": 90})",
       " --eye 9 -9 9 --target 0 1 0 --fov 90"},
  };
  Done(kPainted + R"(, {"do": "camera", "name": "cam", "eye": [0, -20, 5], "target": [0, 0, 0]},
{"do": "save", "file": "scene.glb"})");
  std::set<std::string> pictures;
  for (const auto& [fields, words] : views) {
    Done(R"({"do": "open", "file": "scene.glb"},
{"do": "view", "file": "s.png", "size": [64, 48])" +
         fields + "}");
    EXPECT_EQ(Command("view @scene.glb @v.png --size 64 48" + words).status, 0);
    EXPECT_EQ(Read("v.png"), Read("s.png")) << fields;
    EXPECT_TRUE(pictures.insert(Read("v.png")).second) << fields;
  }
}

TEST_F(Files, ObjectsOfOneNameAreCounted) {
  Done(kField + R"(, {"do": "create", "name": "b"}, {"do": "add", "nodes": ["stone", "field"]},
{"do": "create", "name": "c"}, {"do": "save", "file": "a.glb"})");
  const auto types = [&](const std::string& object) {
    return Told("stats @two.glb --json --object " + object).at("types");
  };
  Change("a.glb", "two.glb", [](Stage& stage) { stage.SowfieldNodes()[1]->SetName(L"sow"); });
  EXPECT_EQ(types("sow#1"), 1);
  EXPECT_EQ(types("sow#2"), 2);
  for (const char* name : {"sow", "sow#0", "sow#3"})
    ExpectRefusal(1, "params @two.glb --object "s + name,
                  R"(2 Sowfield objects are named "sow": tell which, "sow#1" to "sow#2")");
  ExpectRefusal(1, "params @two.glb --object sow#2x", "no node is named \"sow#2x\"");
  ExpectRefusal(1, "params @two.glb --object c#2", "1 Sowfield object is named \"c\"");
  ExpectRefusal(2, "params @two.glb", "3 Sowfield objects: name one with --object");
  Done(R"({"do": "open", "file": "two.glb"}, {"do": "select", "object": "sow#2"},
{"do": "check", "types": 2})");
  Change("two.glb", "two.glb", [](Stage& stage) { stage.SowfieldNodes()[2]->SetName(L"sow#2"); });
  EXPECT_EQ(types("sow#2"), 0);
}

TEST_F(Files, FailuresNameTheFileAndTheReason) {
  Done(kField + R"(, {"do": "save", "file": "scene.glb"})");
  std::string bytes = Read("scene.glb");
  bytes[bytes.find("\"matrix\":[") + 11] ^= 1;
  Write("broken.glb", bytes);
  Write("text.glb", "glTF, more or less");
  for (const std::string command : {"info", "check", "stats", "params", "placements"})
    ExpectRefusal(1, command + " @broken.glb", "broken.glb\": its description is damaged");
  const struct {
    int status;
    const char *line, *said;
  } cases[] = {
      {1, "info none.glb", "info: there is no file \"none.glb\"\n"},
      {1, "check @text.glb", "is no scene that this program saved"},
      {1, "view @scene.glb @v.png --camera stone", "view: \"stone\" is no"},
      {1, "placements @scene.glb --object stone", "\"stone\" is no Sowfield"},
      {2, "view @scene.glb v.jpg", "view: pictures are PNG files: \"v.jpg\" doesn't end in .png\n"},
      {2, "view @scene.glb @v.png --side above", "--side: above not in {"},
      {2, "placements @scene.glb --object ''", "--object: it is empty"},
      {2, "diff @scene.glb @scene.glb --object ''", "--object: it is empty"},
      {2, "diff @scene.glb @none.glb", "there is no file"},
      {2, "diff @text.glb @scene.glb", "is no scene"},
      {2, "diff @scene.glb @scene.glb --object stone", "no Sowfield object is named \"stone\""},
      {2, "diff @scene.glb", "second is required"},
      {2, "import @text.glb @new.glb --join ''", "--join: it is empty"},
      {2, "import @text.glb new.obj", "import: scenes are glTF files: \"new.obj\""},
      {2, "recover @scene.glb new.obj", "recover: scenes are glTF files: \"new.obj\""},
  };
  for (const auto& c : cases) ExpectRefusal(c.status, c.line, c.said);
}

TEST_F(Files, WhatCanBeReadOfADamagedFileIsSavedAnew) {
  Done(kPainted);
  const std::string bytes = Read("scene.glb");
  EXPECT_EQ(Command("check @scene.glb --recover").status, 0);
  const std::string broken = bytes.substr(0, bytes.size() - 8);  // what is for viewers stands last
  Write("cut.glb", broken);
  EXPECT_EQ(Command("stats @cut.glb").status, 1);
  const Result told = Command("placements @cut.glb --recover");
  EXPECT_EQ(told.status, 0);
  EXPECT_EQ(told.out, Read("p.json"));
  EXPECT_EQ(told.err, "lost: it has " + std::to_string(broken.size()) + " bytes, expected " +
                          std::to_string(bytes.size()) + "\n");
  EXPECT_EQ(Command("check @cut.glb --recover").status, 1);
  EXPECT_EQ(Command("recover @cut.glb @cut.glb").status, 2);
  EXPECT_EQ(Read("cut.glb"), broken);
  EXPECT_EQ(Command("recover @cut.glb @new.glb").status, 0);
  EXPECT_EQ(Read("new.glb"), bytes);
}

TEST_F(Files, ASettingThatWouldDoHarmIsMendedAndTold) {
  Done(kPainted);
  Change("scene.glb", "harm.glb", [](Stage& stage) {
    IParamBlock2& block = *Stage::SowfieldOf(stage.SowfieldNodes()[0])->pblock2;
    block.SetValue(sowfield::PointCloud, 0, -5), block.SetValue(sowfield::Display_Mode, 0, 3);
  });
  EXPECT_EQ(Command("view @harm.glb @p.png").status, 0);
  const Result r = Command("check @harm.glb");
  EXPECT_EQ(r.status, 1);
  EXPECT_TRUE(Says(r.err, "PointCloud was -5, allowed is 1 to 100: it is 1 now\n")) << r.err;
}

TEST_F(Files, AModelBecomesAScene) {
  Write("model.obj", "o leaf\nv 1 2 3\nv 4 2 3\nv 1 2 5\nf 1 2 3\no stem\nf 1 2 3\n");
  const struct {
    const char* words;
    size_t nodes;
    Point3 first;
  } cases[] = {{"--up z", 2, {1, 2, 3}},
               {"--up y --force", 2, {1, -3, 2}},
               {"--up z --scale 2.5 --force", 2, {2.5f, 5, 7.5f}},
               {"--up z --join plant --force", 1, {1, 2, 3}}};
  for (const auto& c : cases) {
    ASSERT_EQ(Command("import @model.obj @model.glb "s + c.words).status, 0);
    Change("model.glb", "copy.glb", [&](Stage& stage) {
      const std::vector<INode*> nodes = stage.Ip().GetScene().AllNodes();
      ASSERT_EQ(nodes.size(), c.nodes);
      EXPECT_EQ(ToUtf8(nodes[0]->GetName()), c.nodes == 1 ? "plant" : "leaf");
      const Point3 found = EvalMesh(nodes[0], 0).mesh->verts[0] * nodes[0]->GetObjectTM(0);
      EXPECT_LT(Length(found - c.first), 1e-5f) << found.x << ' ' << found.y << ' ' << found.z;
    });
  }
  EXPECT_EQ(Command("import @model.glb @x.glb").status, 1);
  Write("own.gltf", "{}");
  EXPECT_EQ(Command("import @own.gltf @own.gltf").status, 2);
  EXPECT_EQ(Read("own.gltf"), "{}");
  EXPECT_EQ(Command("stats @model.glb").status, 1);
}

TEST_F(Files, PathsLeadWhereTheSystemTakesThem) {
  std::filesystem::create_directories(Path("real/sub"));
  std::filesystem::create_directory_symlink("real/sub", Path("link"));
  std::filesystem::create_directory_symlink("gone/sub", Path("lost"));
  // The model's node has the object's name; a Sowfield object is asked for.
  Write("sow.obj", "o sow\n" + kTriangle);
  Write("a.json", "{\"steps\": [" + kField +
                      R"(, {"do": "convert", "type": 0, "file": "link/.././s.Vorn"},
{"do": "open", "file": "sow.obj"}, {"do": "save", "file": "link/../new/../x.glb"}]})");
  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::current_path(folder_);
  const Result run = Command("run a.json");
  std::filesystem::current_path(before);
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_FALSE(std::filesystem::exists(Path("x.glb")));
  ASSERT_TRUE(std::filesystem::exists(Path("real/x.glb")));
  for (const char* path : {"@link/../x.glb", "@real/sub/../x.glb", "@real/./x.glb"})
    EXPECT_EQ(Command("check "s + path).status, 0) << path;
  const std::string real = std::filesystem::canonical(Path("real/s.Vorn")).string();
  EXPECT_TRUE(Says(Command("params @real/x.glb --object sow").out, '"' + real + '"'));
  ExpectFault(kField + R"(, {"do": "save", "file": "lost/../x.glb"})", "lost/..");
}

TEST_F(Files, PathsNeedNotBeText) {
  std::filesystem::create_directory(Path("caf\xe9"));
  WriteTextured("caf\xe9/", "v.png");
  Write("caf\xe9/job.json", "{\"steps\": [" + kField + R"(, {"do": "save", "file": "s.gltf"},
{"do": "convert", "type": 0, "file": "s.Vorn"}]})");
  const Result run = Command("run @caf\xe9/job.json --json");
  EXPECT_EQ(run.status, 1);
  EXPECT_TRUE(Says(run.err, "a scene can't keep the path \"" + Path("caf\\xe9/s.Vorn").string() +
                                "\": it isn't UTF-8"));
  EXPECT_TRUE(Says(json::parse(run.out).at("error"), "caf\uFFFD/job.json"));
  EXPECT_FALSE(std::filesystem::exists(Path("caf\xe9/s.Vorn")));
  for (const std::string line :
       {"info @caf\xe9/s.gltf", "check @caf\xe9/s.gltf", "diff @caf\xe9/s.gltf @caf\xe9/s.gltf",
        "view @caf\xe9/s.gltf @caf\xe9/v.png", "recover @caf\xe9/s.gltf @caf\xe9/r.glb",
        "import @caf\xe9/m.obj @caf\xe9/i\xff.glb", "stats @caf\xe9/r.glb"}) {
    const Result r = Command(line);
    EXPECT_EQ(r.status, 0) << line;
    EXPECT_EQ(r.err.empty(), line[1] != 'm') << r.err;
    if (line[1] != 'm') continue;
    EXPECT_TRUE(
        r.err.starts_with("warning: pictures of \"" + Path("caf\\xe9/m.obj").string() +
                          "\" are lost: a scene can't keep their paths, which aren't UTF-8\n"))
        << r.err;
    EXPECT_TRUE(Says(r.err, "v.png\": No such file"));
  }
  EXPECT_EQ(Told("info @caf\xe9/s.gltf --json").at("file"), Path("caf\uFFFD/s.gltf").string());
  EXPECT_EQ(Read("caf\xe9/v.png").substr(1, 3), "PNG");
}

}  // namespace
}  // namespace studio
