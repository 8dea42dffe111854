#include "studio/commands/cli.h"

#include "tests/studio/jobfixture.h"

namespace studio {
namespace {

using CommandLine = JobTest;

TEST_F(CommandLine, OutputThatCantBeWrittenIsTold) {
  Done(kField + R"(, {"do": "save", "file": "scene.glb"},
{"do": "convert", "type": 0, "file": "a.Vorn"}, {"do": "save", "file": "other.glb"})");
  Write("sound.json", "{\"steps\": [" + kField + R"(, {"do": "stats"}, {"do": "params"}]})");
  const std::string told = "standard output can't be written: No space left on device\n";
  for (const char* line :
       {"info @scene.glb", "placements @scene.glb --csv", "check @scene.glb", "run @sound.json",
        "mokset verify @a.Vorn --json", "mokset export --force @a.Vorn @a.obj",
        "run @sound.json --json", "run @sound.json --quiet", "steps", "steps --markdown", "--help",
        "diff @scene.glb @scene.glb", "diff @scene.glb @other.glb"}) {
    ASSERT_EQ(Command(line).err, "") << line;
    std::ofstream full("/dev/full");
    const Result r = Command(line, &full);
    // A 1 of diff tells of a difference.
    EXPECT_EQ(r.status, line[0] == 'd' ? 2 : 1) << line;
    EXPECT_EQ(r.err, told) << line;
  }
  // A failure whose document is lost as well, and one that leaves nothing to write.
  std::ofstream full("/dev/full"), unused("/dev/full");
  Result r = Command("mokset export @none.Vorn @none.fbx --json", &full);
  EXPECT_EQ(r.status, 2);
  EXPECT_TRUE(Says(r.err, "none.fbx: its ending") && Says(r.err, told)) << r.err;
  r = Command("steps nonsense", &unused);
  EXPECT_TRUE(r.status == 2 && !Says(r.err, told)) << r.err;
}

}  // namespace
}  // namespace studio
