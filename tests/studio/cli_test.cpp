#include "studio/cli.h"

#include "tests/studio/jobfixture.h"

namespace studio {
namespace {

using CommandLine = JobTest;

TEST_F(CommandLine, OutputThatCantBeWrittenIsTold) {
  Done(kField + R"(, {"do": "save", "file": "scene.glb"},
{"do": "convert", "type": 0, "file": "a.Vorn"}, {"do": "save", "file": "other.glb"})");
  Write("sound.json", "{\"steps\": [" + kField + R"(, {"do": "stats"}, {"do": "params"}]})");
  const std::vector<std::string> commands[] = {{"info", "@scene.glb"},
                                               {"params", "@scene.glb"},
                                               {"placements", "@scene.glb"},
                                               {"placements", "@scene.glb", "--csv"},
                                               {"stats", "@scene.glb"},
                                               {"check", "@scene.glb"},
                                               {"mokset", "info", "@a.Vorn"},
                                               {"mokset", "verify", "@a.Vorn", "--json"},
                                               {"mokset", "export", "@a.Vorn", "@a.obj"},
                                               {"run", "@sound.json"},
                                               {"run", "@sound.json", "--json"},
                                               {"run", "@sound.json", "--quiet"},
                                               {"steps"},
                                               {"steps", "--markdown"},
                                               {"--help"},
                                               {"diff", "@scene.glb", "@scene.glb"},
                                               {"diff", "@scene.glb", "@other.glb"}};
  for (const std::vector<std::string>& words : commands) {
    ASSERT_TRUE(Command(words).err.empty());
    std::ofstream full("/dev/full");
    const Result r = Command(words, full);
    // A 1 of diff tells of a difference.
    EXPECT_EQ(r.status, words[0] == "diff" ? 2 : 1) << words[0];
    EXPECT_EQ(r.err, "standard output can't be written: No space left on device\n") << words[0];
  }
}

TEST_F(CommandLine, AFailureKeepsItsStatus) {
  // A failure whose document is lost as well, and one that leaves nothing to write.
  std::ofstream full("/dev/full"), unused("/dev/full");
  Result r = Command({"mokset", "export", "@none.Vorn", "@none.fbx", "--json"}, full);
  EXPECT_TRUE(r.status == 2 && r.err.find("none.fbx: its ending") != r.err.npos &&
              r.err.find("standard output") != r.err.npos)
      << r.err;
  r = Command({"steps", "nonsense"}, unused);
  EXPECT_TRUE(r.status == 2 && r.err.find("standard output") == r.err.npos) << r.err;
}

}  // namespace
}  // namespace studio
