#include <sys/resource.h>
#include <sys/wait.h>

#include "studio/job/jsonout.h"
#include "tests/studio/jobfixture.h"

namespace studio {
namespace {

/// What is written, and what of the files that are there makes way for it.
class Outputs : public JobTest {
 protected:
  void SetUp() override {
    JobTest::SetUp();
    Done(kScene);
  }
  /// That a command or a job's steps are refused and a file stays.
  void ExpectKept(const std::string& what, const std::string& file, const std::string& said) {
    const std::string before = Read(file);
    const Result r = what[0] == '{' ? RunSteps(what) : Command(what);
    EXPECT_TRUE(r.status == 1 && Says(r.err, said)) << what << r.err;
    EXPECT_EQ(Read(file), before) << what;
  }
  const std::string kScene = kField + R"(, {"do": "convert", "type": 0, "file": "s.Vorn"},
{"do": "save", "file": "s.glb"}, {"do": "view", "file": "v.png", "size": [16, 16]},
{"do": "params", "file": "q.json"}, {"do": "placements", "file": "p.json"})";
  const std::string kOpen =
      R"({"do": "open", "file": "s.glb"}, {"do": "select", "object": "sow"}, )";
};

TEST_F(Outputs, OnlyTheirOwnKindMakesWay) {
  Write("m.obj", kTriangle);
  Write("note", "a note");
  const std::string none = ": it won't be replaced";
  // The endings of scenes, pictures and Mokset files are held; what is behind them is not.
  for (const auto& [from, to] : {std::pair("s.glb", "x.png"), std::pair("note", "x.Vorn"),
                                 std::pair("p.json", "x.glb"), std::pair("s.Vorn", "x.gltf")})
    std::filesystem::copy(Path(from), Path(to));
  for (const char* file : {"q.json", "s.glb", "v.png", "s.Vorn", "note"})
    ExpectKept(kField + R"(, {"do": "placements", "file": ")" + file + "\"}", file,
               "is no list of placements");
  Write("own.json", R"({"steps": [)" + kField + R"(, {"do": "params", "file": "own.json"}]})");
  ExpectKept("run @own.json", "own.json", "it is the job");
  ExpectKept(kOpen + R"({"do": "params", "file": "p.json"})", "p.json", "no list of parameters");
  ExpectKept(kOpen + R"({"do": "view", "file": "x.png"})", "x.png", "is no PNG picture" + none);
  ExpectKept(kOpen + R"({"do": "save", "file": "x.glb"})", "x.glb", "is no scene");
  ExpectKept(kField + R"(, {"do": "convert", "type": 0, "file": "x.Vorn", "replace": true})",
             "x.Vorn", "is no Mokset file" + none);
  std::filesystem::copy(Path("note"), Path("s.glb.bak"));
  ExpectKept(kOpen + R"({"do": "save", "file": "s.glb", "backup": true})", "s.glb.bak", "no scene");
  ExpectKept("mokset import @m.obj @x.Vorn --force", "x.Vorn", "is no Mokset file" + none);
  for (const std::string from : {"import @m.obj", "recover @s.glb"})
    ExpectKept(from + " @x.glb --force", "x.glb", "is no scene that this program saved" + none);
  ExpectKept("mokset export @s.Vorn @s.glb --force", "s.glb", "is no model of that format");
  ExpectKept("mokset export @s.Vorn @x.gltf --force", "x.gltf", "is no model");
  // What has no bytes is nobody's.
  Write("empty.json", "");
  Done(kOpen + R"({"do": "params", "file": "empty.json"}, {"do": "params", "file": "q.json"})");
}

TEST_F(Outputs, WhatOthersMayLiveOnNeedsAWord) {
  Write("m.obj", kTriangle);
  const std::string there = "is there already: ";
  ExpectKept(kScene, "s.Vorn", there + R"("replace": true, or the job run with --force, replaces)");
  std::string again = kScene;
  again.insert(again.find("\"s.Vorn\"") + 8, R"(, "replace": true)");
  Done(again);
  EXPECT_EQ(RunSteps(kScene, {.force = true}).status, 0);
  ExpectKept("mokset import @m.obj @s.Vorn", "s.Vorn", there + "--force replaces it");
  std::filesystem::copy(Path("s.glb"), Path("o.glb"));
  for (const std::string from : {"recover @s.glb", "import @m.obj"}) {
    ExpectKept(from + " @o.glb", "o.glb", "o.glb\" " + there + "--force replaces it\n");
    EXPECT_EQ(Command(from + " @o.glb --force").status, 0);
    EXPECT_EQ(Read("o.glb") == Read("s.glb"), from[0] == 'r');
  }
  EXPECT_EQ(Command("mokset export @s.Vorn @x.obj").status, 0);
  ExpectKept("mokset export @s.Vorn @x.obj", "x.obj", there + "--force replaces it");
  for (const std::string ending : {"obj", "obj", "gltf", "gltf", "glb", "glb"})
    EXPECT_EQ(Command("mokset export --force @s.Vorn @y." + ending).err, "");
  EXPECT_EQ(Command("mokset import --force @m.obj @s.Vorn").status, 0);
}

TEST_F(Outputs, WhatIsInUseStays) {
  // One file under many names; and one that isn't there, in which a type lives all the same.
  std::filesystem::create_directory(Path("sub"));
  std::filesystem::create_symlink("s.Vorn", Path("link.Vorn"));
  std::filesystem::create_hard_link(Path("s.Vorn"), Path("hard.Vorn"));
  std::filesystem::copy(Path("s.Vorn"), Path("gone.Vorn"));
  const std::string two = kOpen + R"({"do": "add", "nodes": "field"}, )";
  const auto convert = [](const std::string& file) {
    return R"({"do": "convert", "type": 1, "replace": true, "file": ")" + file + "\"}";
  };
  const std::string owner = "it is the file of type 0 \"stone\" of \"sow\"";
  for (const char* file :
       {"s.Vorn", "sub/../s.Vorn", "./link.Vorn", "hard.Vorn", "sub\\\\..\\\\s.Vorn"})
    ExpectKept(two + convert(file), "s.Vorn", owner);
  Done(two + R"({"do": "load", "type": 0, "file": "gone.Vorn"}, {"do": "save", "file": "g.glb"})");
  std::filesystem::remove(Path("gone.Vorn"));
  ExpectFault(R"({"do": "open", "file": "g.glb"}, {"do": "select", "object": "sow"}, )" +
                  convert("gone.Vorn"),
              owner);
  // Undo brings back what a step let go of; another scene forgets it.
  for (const char* step :
       {R"({"do": "restore", "type": 0}, )",
        R"({"do": "remove", "types": ["stone"]}, {"do": "add", "nodes": "stone"}, )",
        R"({"do": "replace", "type": 0, "node": "stone"}, )"})
    ExpectKept(two + step + convert("s.Vorn"), "s.Vorn", "undo brings back into use");
  Done(two + R"({"do": "restore", "type": 0}, {"do": "save", "file": "t.glb"},
{"do": "open", "file": "t.glb"}, {"do": "select", "object": "sow"}, )" +
       convert("s.Vorn"));
  const std::string merge = R"({"do": "merge", "file": "s.glb"}, {"do": "save", "file": ")";
  ExpectKept(merge + "s.glb\"}", "s.glb", "a scene that was merged into this one");
  Done(R"({"do": "open", "file": "s.glb"}, )" + merge + "other.glb\"}");
  // A texture of the scene is a picture as well.
  std::filesystem::copy(Path("v.png"), Path("bark.png"));
  WriteTextured("", "bark.png");
  ExpectKept(R"({"do": "open", "file": "m.obj"}, {"do": "view", "file": "bark.png"})", "bark.png",
             "it is a picture of a model");
}

TEST_F(Outputs, ALimitOnTheSizeOfFilesIsTold) {
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    const rlimit limit{100, 100};
    ::setrlimit(RLIMIT_FSIZE, &limit);
    const Result r = Command("recover @s.glb @x.glb");
    _exit(r.status == 1 && Says(r.err, "x.glb\": File too large\n") ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
}

TEST_F(Outputs, MessagesAreBounded) {
  const std::string name(100000, 'x');
  for (const std::string& line :
       {name, "info " + name, "view @s.glb @w.png --mode " + name, "steps " + name,
        "params @s.glb --object " + name, "mokset import " + name + " @n.Vorn"}) {
    const Result r = Command(line);
    EXPECT_TRUE(r.status != 0 && Says(r.err, " bytes ...] ")) << r.err.size();
    EXPECT_LT(r.err.size(), 3000u) << line.substr(0, 20);
  }
  const Result r = RunSteps(R"({"do": "delete", "nodes": ")" + name + "\"}");
  EXPECT_LT(r.err.size() + r.out.size(), 6000u);
  EXPECT_TRUE(Says(r.json["error"], "step 1 (delete)"));
  // Letters of several bytes stay whole, and lines are counted each.
  std::string letters = "abc";
  for (int i = 0; i < 2000; ++i) letters += "\u00e9";
  EXPECT_EQ(Bounded(letters), letters.substr(0, 1499) + " [... 2,104 bytes ...] " +
                                  letters.substr(letters.size() - 400));
  EXPECT_EQ(Bounded("a\n\nb\n"), "a\n\nb\n");
}

}  // namespace
}  // namespace studio
