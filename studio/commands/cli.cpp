#include "studio/commands/cli.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iostream>
#include <ostream>
#include <streambuf>

#include "studio/commands/files.h"
#include "studio/commands/mokset.h"
#include "studio/commands/run.h"
#include "studio/diff/diff.h"
#include "studio/job/steptable.h"

namespace studio {
namespace {

constexpr const char* kVersion = "sowfield 1.0";

/// Hands all on to another stream and keeps the reason of the first failure, which streams don't.
class WatchedOutput : public std::streambuf {
 public:
  explicit WatchedOutput(std::ostream& to) : to_(*to.rdbuf()) {}
  /// The errno of the first failure, 0 for none.
  int Failure() const { return failure_; }

 protected:
  std::streamsize xsputn(const char* text, std::streamsize count) override {
    return Watch([&] { return to_.sputn(text, count); }, count);
  }
  int_type overflow(int_type c) override {
    if (traits_type::eq_int_type(c, traits_type::eof())) return traits_type::not_eof(c);
    const char one = traits_type::to_char_type(c);
    return xsputn(&one, 1) == 1 ? c : traits_type::eof();
  }
  int sync() override {
    return Watch([&] { return to_.pubsync(); }, 0);
  }

 private:
  template <class F, class T>
  T Watch(F write, T whole) {
    errno = 0;
    const T done = write();
    if (done != whole && failure_ == 0) failure_ = errno != 0 ? errno : EIO;
    return done;
  }

  std::streambuf& to_;
  int failure_ = 0;
};

int ShowSteps(const std::string& name, bool markdown, std::ostream& out, std::ostream& err) {
  if (markdown) {
    out << StepsAsMarkdown();
    return 0;
  }
  if (name.empty()) {
    out << StepList() << "\n`sowfield steps NAME` tells the fields of one.\n";
    return 0;
  }
  if (const StepDecl* step = FindStep(name)) {
    out << StepHelp(*step);
    if (step->Find("view")) out << "\nA view in braces:\n" << StepHelp(ViewFields());
    return 0;
  }
  err << "there is no step \"" << name << "\": `sowfield steps` lists them\n";
  return 2;
}

// `whenUnwritten` is the status of a command that did all but tell it.
int Dispatch(int argc, const char* const* argv, std::ostream& out, std::ostream& err,
             int& whenUnwritten) {
  CLI::App app("Paints very many copies of a few objects over the surfaces of a scene.",
               "sowfield");
  app.set_version_flag("--version", kVersion);
  app.require_subcommand(1);
  app.footer("Exit status: 0 done, 1 failed, 2 wrong usage.");

  std::string job, step;
  RunOptions options;
  bool markdown = false;
  CLI::App* run = app.add_subcommand("run", "Does the steps of a job file (JSON)");
  run->add_option("job", job, "the job file; paths in it start from its folder")->required();
  run->add_flag("--json", options.json, "print what came of the steps as one JSON document");
  run->add_flag("--quiet", options.quiet, "print only what steps were asked to print");
  CLI::App* steps = app.add_subcommand("steps", "Lists the steps that a job can hold");
  steps->add_option("name", step, "tell the fields of this step");
  steps->add_flag("--markdown", markdown, "all steps and fields as the tables of docs/jobs.md");
  const MoksetCommand mokset(app);
  const FileCommands files(app);
  const DiffCommand diff(app);

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    return app.exit(e, out, err) == 0 ? 0 : 2;
  }
  if (steps->parsed()) return ShowSteps(step, markdown, out, err);
  if (mokset.Parsed()) return mokset.Run(out, err);
  if (diff.Parsed()) {
    whenUnwritten = 2;  // its 1 tells of a difference
    return diff.Run(out, err);
  }
  if (files.Parsed()) return files.Run(out, err);
  options.progress = !options.quiet && &err == &std::cerr && isatty(STDERR_FILENO) != 0;
  return RunJob(job, options, out, err);
}

}  // namespace

int RunCommandLine(int argc, const char* const* argv, std::ostream& out, std::ostream& err) {
  WatchedOutput watched(out);
  std::ostream to(&watched);
  int whenUnwritten = 1;
  const int status = Dispatch(argc, argv, to, err, whenUnwritten);
  if (to.flush()) return status;
  err << "standard output can't be written: " << std::strerror(watched.Failure()) << '\n';
  return std::max(status, whenUnwritten);
}

}  // namespace studio
