#include <csignal>

#include "studio/commands/progressline.h"
#include "studio/job/steptable.h"
#include "studio/steps/steps.h"
#include "studio/steps/views.h"
#include "tests/studio/jobfixture.h"

namespace studio {
namespace {

using Program = JobTest;

TEST_F(Program, AStepThatFailsEndsTheJobAndTellsWhatWasDone) {
  const Result result = RunSteps(R"({"do": "primitive", "kind": "box", "name": "a"},
  {"do": "delete", "nodes": "b"}, {"do": "params", "file": "p.json"})",
                                 {});
  EXPECT_EQ(result.status, 1);
  EXPECT_TRUE(result.err.starts_with("job.json:3:29: step 2 (delete): no node")) << result.err;
  EXPECT_TRUE(result.out.starts_with("  1 primitive  a, ")) << result.out;
  EXPECT_EQ(result.out.find('\n') + 1, result.out.size()) << result.out;
  EXPECT_FALSE(std::filesystem::exists(Path("p.json")));
}

TEST_F(Program, QuietTellsOnlyWhatWasAskedFor) {
  const Result result = RunSteps(
      kField + R"(, {"do": "get", "param": "Brush_Amount"}, {"do": "stats"})", {.quiet = true});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(result.out, "Brush_Amount = 10\ntypes 1, placements 0, vertices 0, faces 0\n");
  EXPECT_EQ(result.err, "");
}

TEST_F(Program, TheExitStatusTellsUsageFromFailure) {
  for (const char* words : {"", "walk", "run", "steps strok"}) {
    const Result r = Command(words);
    EXPECT_TRUE(r.status == 2 && !r.err.empty() && r.out.empty()) << r.out;
  }
  EXPECT_EQ(Command("walk").err, "there is no command \"walk\": `sowfield --help` lists them\n");
  EXPECT_TRUE(Says(Command("vew").err, "did you mean \"view\"?"));
  EXPECT_EQ(Command("mokset info").err,
            "mokset info: file is required: `sowfield mokset info --help` tells more\n");
  const Result r = Command("run @none.json");
  EXPECT_EQ(r.status, 1);
  EXPECT_TRUE(Says(r.err, "none.json"));
  EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1);
  for (const char* words : {"--help", "run --help", "--version"})
    EXPECT_TRUE(Command(words).status == 0 && Command(words).err.empty()) << words;
}

TEST_F(Program, AnInterruptedJobSaysSoAndLeavesNoFile) {
  const Interruptible here;
  std::raise(SIGINT);
  const Result r = RunSteps(kField + R"(, {"do": "save", "file": "s.glb"})", {});
  EXPECT_EQ(r.status, 130);
  EXPECT_TRUE(Says(r.err, "step 1 (primitive): interrupted"));
  EXPECT_FALSE(std::filesystem::exists(Path("s.glb")));
}

TEST_F(Program, ASaveThatIsEndedHalfWayLeavesTheOldFile) {
  // Asked to end once the first of two nodes is gathered.
  struct Ended : host::Progress {
    void Report(double) override { ++reports; }
    bool Asked() const override { return reports > 0; }
    int reports = 0;
  };
  Done(kField + R"(, {"do": "save", "file": "s.glb"})");
  const std::string before = Read("s.glb");
  std::ostringstream notices;
  Stage stage("", notices);
  stage.Ip().CreateObjectNode(nullptr), stage.Ip().CreateObjectNode(nullptr);
  Ended progress;
  const host::ProgressScope told(progress);
  std::string error;
  for (const char* name : {"s.glb", "new.glb"})
    EXPECT_THROW(host::SaveScene(stage.Ip(), Path(name).string(), {}, error), host::Cancelled);
  EXPECT_EQ(Read("s.glb"), before);
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder_), {}), 2) << "job and scene";
}

std::string Document(const std::string& name) {
  std::ifstream in(SOWFIELD_DOCS_DIR + name);
  return {std::istreambuf_iterator<char>(in), {}};
}

TEST_F(Program, DocumentsEndWithTheTablesThatItPrints) {
  for (const auto& [name, heading, command] :
       {std::tuple("/jobs.md", "## The job\n", "steps --markdown"),
        {"/parameters.md", "## What users set\n", "params --markdown"}}) {
    const std::string text = Document(name);
    const size_t start = text.find(heading);
    ASSERT_NE(start, std::string::npos) << name;
    EXPECT_EQ(text.substr(start), Command(command).out) << "refresh it: sowfield " << command;
  }
  EXPECT_EQ(Command("params").status, 2);
}

// Each can be done and is listed, and the document's example runs.
TEST_F(Program, StepsAreToldEverywhere) {
  const std::string text = Document("/jobs.md"), tables = StepsAsMarkdown();
  for (const StepDecl& step : AllSteps()) {
    const std::string name = step.name;
    EXPECT_TRUE(FunctionOf(name) && Says(StepList(), name + " ")) << name;
    EXPECT_TRUE(Says(tables, "\n### " + name + "\n"));
    for (const FieldDecl& field : step.fields) {
      SCOPED_TRACE(name + ", " + field.name);
      Fault fault;
      EXPECT_TRUE(Says(StepHelp(step), field.name));
      EXPECT_TRUE(Says(tables, std::string("\n| `") + field.name + "` | "));
      EXPECT_EQ(step.Find(field.name), &field) << "named twice";
      EXPECT_TRUE(!*field.initial || ReadJson(field.initial, fault));
    }
  }
  const size_t open = text.find("```json\n") + 8, end = text.find("```", open);
  const Result result = RunText(text.substr(open, end - open));
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_TRUE(std::filesystem::exists(Path("out/stones.png")));
}

TEST_F(Program, OutputThatCantBeWrittenIsTold) {
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

TEST(MouseWay, EventsLieAtEvenLengthsWithTheEndIncluded) {
  const std::vector<Pixel> corner = {{0, 0}, {10, 0}, {10, 5}};
  EXPECT_EQ(EventsBySpacing(corner, 4),
            (std::vector<IPoint2>{{0, 0}, {4, 0}, {8, 0}, {10, 2}, {10, 5}}));
  EXPECT_EQ(EventsBySpacing(corner, 5), (std::vector<IPoint2>{{0, 0}, {5, 0}, {10, 0}, {10, 5}}));
  EXPECT_EQ(EventsBySpacing({{3, 4}}, 8), (std::vector<IPoint2>{{3, 4}}));
  EXPECT_EQ(EventsByCount(corner, 4), (std::vector<IPoint2>{{0, 0}, {5, 0}, {10, 0}, {10, 5}}));
  EXPECT_EQ(EventsByCount(corner, 1), (std::vector<IPoint2>{{0, 0}}));
  EXPECT_EQ(EventsByCount({{3, 4}, {3, 4}}, 3), (std::vector<IPoint2>{{3, 4}, {3, 4}, {3, 4}}));
}

}  // namespace
}  // namespace studio
