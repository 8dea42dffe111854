#include "tests/studio/jobfixture.h"

#include <gtest/gtest.h>

#include "studio/cli.h"
#include "studio/job/steptable.h"
#include "studio/steps/steps.h"
#include "studio/steps/views.h"

namespace studio {
namespace {

using Program = JobTest;

TEST_F(Program, AStepThatFailsEndsTheJobAndTellsWhatWasDone) {
  const Result result = RunText(
      "{\"steps\": [\n{\"do\": \"primitive\", \"kind\": \"box\", \"name\": \"a\"},\n"
      "  {\"do\": \"delete\", \"nodes\": \"b\"},\n{\"do\": \"params\", \"file\": \"p.json\"}]}");
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err.find("job.json:3:29: step 2 (delete): no node is named \"b\""), 0u)
      << result.err;
  EXPECT_EQ(std::count(result.out.begin(), result.out.end(), '\n'), 1) << result.out;
  EXPECT_EQ(result.out.find("  1 primitive  a, "), 0u) << result.out;
  EXPECT_FALSE(std::filesystem::exists(Path("p.json")));
}

TEST_F(Program, QuietTellsOnlyWhatWasAskedFor) {
  const Result result =
      RunText("{\"steps\": [\n" + kField +
                  ", {\"do\": \"get\", \"param\": \"Brush_Amount\"}, {\"do\": \"stats\"}]}",
              {.quiet = true});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(result.out, "Brush_Amount = 10\ntypes 1, placements 0, vertices 0, faces 0\n");
  EXPECT_EQ(result.err, "");
}

int CommandLine(std::vector<const char*> args, std::string& out, std::string& err) {
  args.insert(args.begin(), "sowfield");
  std::ostringstream o, e;
  const int status = RunCommandLine(int(args.size()), args.data(), o, e);
  out = o.str();
  err = e.str();
  return status;
}

TEST_F(Program, TheExitStatusTellsUsageFromFailure) {
  std::string out, err;
  EXPECT_EQ(CommandLine({}, out, err), 2);
  EXPECT_EQ(CommandLine({"walk"}, out, err), 2);
  EXPECT_EQ(CommandLine({"run"}, out, err), 2);
  EXPECT_NE(err, "");
  EXPECT_EQ(out, "");
  const std::string missing = Path("none.json").string();
  EXPECT_EQ(CommandLine({"run", missing.c_str()}, out, err), 1);
  EXPECT_NE(err.find("none.json"), std::string::npos);
  EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 1);
  EXPECT_EQ(CommandLine({"steps", "strok"}, out, err), 2);
  EXPECT_EQ(CommandLine({"--help"}, out, err), 0);
  EXPECT_EQ(CommandLine({"run", "--help"}, out, err), 0);
  EXPECT_EQ(CommandLine({"--version"}, out, err), 0);
  EXPECT_EQ(err, "");
}

TEST(Steps, EachIsListedAndCanBeDone) {
  for (const StepDecl& step : AllSteps()) {
    EXPECT_NE(FunctionOf(step.name), nullptr) << step.name;
    EXPECT_NE(StepList().find(std::string(step.name) + " "), std::string::npos);
    for (const FieldDecl& field : step.fields) {
      EXPECT_NE(StepHelp(step).find(field.name), std::string::npos);
      EXPECT_EQ(step.Find(field.name), &field) << "named twice: " << field.name;
      Fault fault;
      if (*field.initial) {
        EXPECT_TRUE(ReadJson(field.initial, fault)) << field.name;
      }
    }
  }
  EXPECT_EQ(FunctionOf("render"), nullptr);
}

// The hand-written steps of the document and its tables name what exists.
TEST(Steps, TheDocumentTellsThemAll) {
  const auto path = std::filesystem::path(__FILE__).parent_path() / "../../docs/jobs.md";
  std::ifstream in(path);
  ASSERT_TRUE(in) << path;
  const std::string text{std::istreambuf_iterator<char>(in), {}};
  const std::string tables = StepsAsMarkdown();
  const size_t start = text.find("## The job\n");
  ASSERT_NE(start, std::string::npos);
  EXPECT_EQ(text.substr(start), tables) << "refresh it: sowfield steps --markdown";
  for (const StepDecl& step : AllSteps()) {
    EXPECT_NE(tables.find(std::string("\n### ") + step.name + "\n"), std::string::npos);
    for (const FieldDecl& field : step.fields)
      EXPECT_NE(tables.find(std::string("\n| `") + field.name + "` | "), std::string::npos);
  }
}

// The example of the document's first half is a job that runs.
TEST_F(Program, TheDocumentsExampleRuns) {
  std::ifstream in(std::filesystem::path(__FILE__).parent_path() / "../../docs/jobs.md");
  const std::string text{std::istreambuf_iterator<char>(in), {}};
  const std::string open = "```json\n";
  const size_t start = text.find(open), end = text.find("```", start + open.size());
  ASSERT_NE(end, std::string::npos);
  const Result result = RunText(text.substr(start + open.size(), end - start - open.size()));
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_TRUE(std::filesystem::exists(Path("out/stones.png")));
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
