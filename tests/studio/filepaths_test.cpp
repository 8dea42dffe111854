#include "sowfield/proxy/moksetfile.h"
#include "studio/steps/fileuses.h"
#include "tests/studio/jobfixture.h"

namespace studio {
namespace {

using nlohmann::json;
namespace fs = std::filesystem;

/// A scene in a/ that names a Mokset file below, one outside by a type and by a proxy, and a
/// texture.
class FilePaths : public JobTest {
 protected:
  void SetUp() override {
    JobTest::SetUp();
    for (const char* folder : {"a", "lib"}) fs::create_directory(Path(folder));
    WriteTextured("lib/", "v.png");
    Done(kField + R"(, {"do": "view", "file": "lib/v.png", "size": [16, 16]},
{"do": "convert", "type": 0, "file": "a/in/s.Vorn"}, {"do": "add", "nodes": "field"},
{"do": "convert", "type": 1, "file": "lib/f.Vorn"}, {"do": "open", "file": "lib/m.obj"},
{"do": "proxy", "kind": "mokset", "from": "stone", "file": "lib/f.Vorn", "name": "kept"},
{"do": "save", "file": "a/s.glb"})");
  }
  using Paths = std::vector<std::string>;
  Paths Named(const std::string& scene) const {
    Paths paths;
    Change(scene, "unused.glb", [&](Stage& stage) {
      for (const FileUse& use : FilesOf(stage.Ip().GetScene())) {
        EXPECT_EQ(use.path.find(folder_.wstring()), 0u);
        paths.push_back(ToUtf8(use.path).substr(folder_.string().size() + 1));
      }
    });
    return paths;
  }
};

TEST_F(FilePaths, AFolderMovesWithItsScene) {
  const auto with = [](const std::string& first) {
    return Paths{first, "lib/f.Vorn", "lib/v.png", "lib/f.Vorn"};
  };
  EXPECT_EQ(Named("a/s.glb"), with("a/in/s.Vorn"));
  fs::rename(Path("a"), Path("b"));
  EXPECT_EQ(Named("b/s.glb"), with("b/in/s.Vorn"));
  // A link to the scene, and to its folder, lead to the same files.
  fs::create_symlink("b/s.glb", Path("link.glb"));
  fs::create_directory_symlink("b", Path("c"));
  EXPECT_EQ(Named("link.glb"), with("b/in/s.Vorn"));
  EXPECT_EQ(Named("c/s.glb"), with("c/in/s.Vorn"));
  // From elsewhere it is absolute again; from a folder above it is below.
  const std::string scene = Read("b/s.glb");
  Done(R"({"do": "open", "file": "c/s.glb"}, {"do": "save", "file": "b/s.glb"},
{"do": "save", "file": "lib/t.glb"}, {"do": "save", "file": "u.gltf"})");
  EXPECT_EQ(Read("b/s.glb"), scene);
  EXPECT_EQ(Named("lib/t.glb"), with("c/in/s.Vorn"));
  EXPECT_EQ(Named("u.gltf")[1], "lib/f.Vorn");
  fs::copy(Path("lib/t.glb"), Path("b/t.glb"));
  EXPECT_EQ(Named("b/t.glb")[0], "c/in/s.Vorn");
  EXPECT_EQ(Named("b/t.glb")[1], "b/f.Vorn");
  Done(R"({"do": "merge", "file": "b/s.glb"}, {"do": "check"})");
}

TEST_F(FilePaths, MissingFilesAreNamed) {
  fs::rename(Path("lib"), Path("gone"));
  const std::string first = "type 1 \"field\" of \"sow\": its file \"" +
                            Path("lib/f.Vorn").string() + "\" is missing",
                    second = "the proxy of \"kept\": its file";
  for (const std::string line : {"info", "stats", "params", "placements", "check"}) {
    const Result r = Command(line + " @a/s.glb");
    EXPECT_EQ(r.status, line == "check" ? 1 : 0);
    EXPECT_TRUE(Says(r.err, "warning: " + first + "\nwarning: " + second)) << line;
  }
  const json files = json::parse(Command("info --json @a/s.glb").out).at("files");
  EXPECT_TRUE(files.size() == 4 && files[0]["there"] == true && files[1]["there"] == false);
  EXPECT_TRUE(Says(Command("info @a/s.glb").out, Path("lib/f.Vorn").string() + "\" (missing)\n"));
  const Result told = Command("check --json @a/s.glb");
  EXPECT_TRUE(json::parse(told.out).at("sound") == false && Says(told.out, "type 1"));
  // Each is told once as long as it is missing, and behind each step that concerns them.
  const Result r = Done(R"({"do": "open", "file": "a/s.glb"}, {"do": "select", "object": "sow"},
{"do": "view", "file": "w.png", "size": [16, 16]}, {"do": "save", "file": "w.glb"})");
  EXPECT_EQ(r.err.find(first), r.err.rfind(first));
  for (const size_t step : {1, 3, 4}) EXPECT_EQ(r.Step(step).at("missing").size(), 2u);
  ExpectFault(R"({"do": "open", "file": "a/s.glb"}, {"do": "check"})",
              "lib/f.Vorn\": it is missing");
  fs::rename(Path("gone"), Path("lib"));
  Write("lib/f.Vorn", Read("lib/f.Vorn").substr(0, 100));
  ExpectFault(R"({"do": "open", "file": "a/s.glb"}, {"do": "check"})", "lib/f.Vorn\": at byte");
}

TEST_F(FilePaths, RelinkFindsFilesWhereTheyAreNow) {
  fs::rename(Path("lib"), Path("new"));
  const std::string scene = Read("a/s.glb");
  const Result dry = Command("relink --dry-run --json @a/s.glb @lib @new");
  EXPECT_EQ(dry.status, 0) << dry.err;
  EXPECT_EQ(json::parse(dry.out).at("changed").size(), 3u) << dry.out;
  EXPECT_EQ(Read("a/s.glb"), scene);
  EXPECT_TRUE(Says(Command("relink @a/s.glb @li @new").err, "nothing in the scene names"));
  // What isn't there, or no Mokset file, isn't taken; the rest is.
  Write("new/f.Vorn", Read("a/in/s.Vorn").substr(0, 100));
  const Result half = Command("relink @a/s.glb @lib @new");
  EXPECT_EQ(half.status, 1);
  EXPECT_TRUE(Says(half.out, "v.png\"\n1 path changed") && Says(half.err, "at byte")) << half.err;
  EXPECT_EQ(Named("a/s.glb"), (Paths{"a/in/s.Vorn", "lib/f.Vorn", "new/v.png", "lib/f.Vorn"}));
  // A type takes box, counts and samples along.
  EXPECT_EQ(Command("relink @a/s.glb @lib/f.Vorn @a/in/s.Vorn").status, 0);
  EXPECT_EQ(Named("a/s.glb"), (Paths{"a/in/s.Vorn", "a/in/s.Vorn", "new/v.png", "a/in/s.Vorn"}));
  EXPECT_TRUE(Says(Command("params @a/s.glb").out, R"("Geo_VertCount","count":2,"values":[8,8])"));
}

TEST_F(FilePaths, CollectBringsAllFilesBesideTheScene) {
  Write("a/v.png", "another picture");
  const Result dry = Command("collect --dry-run @a/s.glb");
  EXPECT_TRUE(Says(dry.out, "a/v_2.png\"\n") && Says(dry.out, "3 paths would change\n"));
  EXPECT_FALSE(fs::exists(Path("a/f.Vorn")));
  ASSERT_EQ(Command("collect @a/s.glb").status, 0);
  EXPECT_EQ(Read("a/f.Vorn"), Read("lib/f.Vorn"));
  EXPECT_EQ(Read("a/v_2.png"), Read("lib/v.png"));
  fs::remove_all(Path("lib"));
  fs::rename(Path("a"), Path("b"));
  EXPECT_EQ(Named("b/s.glb"), (Paths{"b/in/s.Vorn", "b/f.Vorn", "b/v_2.png", "b/f.Vorn"}));
  EXPECT_TRUE(Says(Command("collect @b/s.glb").out, "0 paths changed"));
  fs::remove(Path("b/f.Vorn"));
  const Result r = Command("collect --json @b/s.glb");
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(json::parse(r.out).at("unchanged").at(1).at("why"), "it is missing");
}

}  // namespace
}  // namespace studio
