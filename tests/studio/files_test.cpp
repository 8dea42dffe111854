#include <algorithm>
#include <cstring>

#include "tests/studio/jobfixture.h"

namespace studio {
namespace {

using Files = JobTest;

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
  const auto painted = nlohmann::json::parse(Read("p.json"));
  const size_t count = painted.at("count");
  EXPECT_EQ(Command({"placements", "@scene.glb"}).out, Read("p.json"));
  EXPECT_EQ(Command({"params", "@scene.glb"}).out, Read("q.json"));
  const auto stats = nlohmann::json::parse(Command({"stats", "@scene.glb", "--json"}).out);
  EXPECT_EQ(stats.at("placements"), count);
  const auto info = nlohmann::json::parse(Command({"info", "@scene.glb", "--json"}).out);
  EXPECT_EQ(info.at("objects").at(0).at("placements"), count);
  EXPECT_EQ(info.at("nodes"), 3);
  EXPECT_NE(Command({"check", "@scene.glb"}).out.find("1 object sound"), std::string::npos);

  const std::string csv = Command({"placements", "@scene.glb", "--csv"}).out;
  EXPECT_EQ(size_t(std::count(csv.begin(), csv.end(), '\n')), count + 1);
  const std::string row = csv.substr(csv.find('\n') + 1, csv.find('\n', csv.find('\n') + 1));
  EXPECT_EQ(row.rfind("0,0,\"stone\",", 0), 0u);
  EXPECT_EQ(std::stof(row.substr(12)), painted["placements"][0]["position"][0].get<float>());
  EXPECT_EQ(Command({"view", "@scene.glb", "@v.png", "--size", "64", "32"}).status, 0);
  EXPECT_EQ(Read("v.png").substr(1, 3), "PNG");
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
  EXPECT_EQ(Command({"info", "@none.glb"}).status, 1);
  Write("text.glb", "glTF, more or less");
  EXPECT_EQ(Command({"check", "@text.glb"}).status, 1);
  EXPECT_EQ(Command({"view", "@scene.glb", "@v.jpg"}).status, 2);
  EXPECT_EQ(Command({"placements", "@scene.glb", "--object", "stone"}).status, 1);

  ExpectFault(R"({"do": "open", "file": "scene.glb", "at": [1, 0, 0]})", "\"at\" is for models");
  ExpectFault(R"({"do": "save", "file": "a.obj"})", "doesn't end in .glb or .gltf");
}

TEST_F(Files, WhatCanBeReadOfADamagedFileIsSavedAnew) {
  Done(kPainted);
  const std::string bytes = Read("scene.glb");
  const auto count = nlohmann::json::parse(Read("p.json")).at("count").get<size_t>();
  EXPECT_EQ(Command({"check", "@scene.glb", "--recover"}).status, 0);
  const std::string broken = bytes.substr(0, bytes.size() - 8);  // what is for viewers stands last
  Write("cut.glb", broken);
  EXPECT_EQ(Command({"stats", "@cut.glb"}).status, 1);
  const Result stats = Command({"stats", "@cut.glb", "--json", "--recover"});
  EXPECT_EQ(stats.status, 0);
  EXPECT_EQ(nlohmann::json::parse(stats.out).at("placements"), count);
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
  EXPECT_EQ(r.Step(6).at("renamed").at(1), (nlohmann::json{{"from", "stone"}, {"to", "stone001"}}));
  EXPECT_EQ(r.Step(7).at("objects"), 2);
  EXPECT_EQ(r.Step(9).at("nodes"), 3);
  EXPECT_EQ(r.Step(9).at("losses"), 0);
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("cannot merge"), std::string::npos) << r.err;
  Write("m.obj", "v 0 0 0\n");
  ExpectFault(R"({"do": "open", "file": "m.obj", "recover": true})", "is for scenes");
}

TEST_F(Files, AModelBecomesAScene) {
  Write("model.obj", "o leaf\nv 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 3\n");
  ASSERT_EQ(Command({"import", "@model.obj", "@model.glb", "--join", "leaf"}).status, 0);
  const auto info = nlohmann::json::parse(Command({"info", "@model.glb", "--json"}).out);
  EXPECT_EQ(info.at("nodes"), 1);
  EXPECT_EQ(Command({"import", "@model.glb", "@x.glb"}).status, 1);
  Write("own.gltf", "{}");
  EXPECT_EQ(Command({"import", "@own.gltf", "@own.gltf"}).status, 2);
  EXPECT_EQ(Read("own.gltf"), "{}");
  EXPECT_EQ(Command({"stats", "@model.glb"}).status, 1);
}

}  // namespace
}  // namespace studio
