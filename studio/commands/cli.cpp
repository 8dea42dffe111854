#include "studio/commands/cli.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <iostream>
#include <ostream>
#include <streambuf>

#include "studio/commands/diff.h"
#include "studio/commands/files.h"
#include "studio/commands/mokset.h"
#include "studio/commands/relink.h"
#include "studio/commands/run.h"
#include "studio/job/jsonout.h"
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

/// Hands lines on as Bounded makes them, each when it ends or is flushed.
class BoundedOutput : public std::streambuf {
 public:
  explicit BoundedOutput(std::ostream& to) : to_(to) {}
  ~BoundedOutput() override { sync(); }
  BoundedOutput(const BoundedOutput&) = delete;
  BoundedOutput& operator=(const BoundedOutput&) = delete;

 protected:
  int_type overflow(int_type c) override {
    if (traits_type::eq_int_type(c, traits_type::eof())) return traits_type::not_eof(c);
    held_ += traits_type::to_char_type(c);
    if (held_.back() == '\n') sync();
    return c;
  }
  int sync() override {
    to_ << Bounded(held_) << std::flush;
    held_.clear();
    return 0;
  }

 private:
  std::ostream& to_;
  std::string held_;
};

// The first word names a command.
bool IsUnknownCommand(const CLI::App& app, int argc, const char* const* argv, std::string& why) {
  if (argc < 2 || argv[1][0] == '-' || argv[1][0] == 0) return false;
  std::vector<std::string> names;
  for (const CLI::App* command : app.get_subcommands({})) names.push_back(command->get_name());
  if (std::find(names.begin(), names.end(), argv[1]) != names.end()) return false;
  const std::string meant = DidYouMean(argv[1], names);
  why = "there is no command \"" + std::string(argv[1]) + "\"" + (meant.empty() ? ":" : meant) +
        " `sowfield --help` lists them";
  return true;
}

// One line that names the command and tells where to read more.
std::string UsageMessage(const CLI::App* app, const CLI::Error& e) {
  std::string command;
  for (const CLI::App* at = app; !at->get_subcommands().empty();) {
    at = at->get_subcommands().front();
    command += (command.empty() ? "" : " ") + at->get_name();
  }
  if (command.empty()) return std::string(e.what()) + ": `sowfield --help` tells more\n";
  return command + ": " + e.what() + ": `sowfield " + command + " --help` tells more\n";
}

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
int Dispatch(int argc, const char* const* argv, std::ostream& out, std::ostream& err, bool terminal,
             int& whenUnwritten) {
  CLI::App app("Paints very many copies of a few objects over the surfaces of a scene.",
               "sowfield");
  app.set_version_flag("--version", kVersion);
  app.require_subcommand(1);
  app.failure_message(UsageMessage);
  app.footer("Exit status: 0 done, 1 failed, 2 wrong usage.");

  std::string job, step;
  RunOptions options;
  bool markdown = false;
  CLI::App* run = app.add_subcommand("run", "Does the steps of a job file (JSON)");
  run->add_option("job", job, "the job file; paths in it start from its folder")->required();
  run->add_flag("--json", options.json, "print what came of the steps as one JSON document");
  run->add_flag("--force", options.force,
                "let `convert` replace Mokset files that are there already");
  run->add_flag("--quiet", options.quiet, "print only what steps were asked to print");
  CLI::App* steps = app.add_subcommand("steps", "Lists the steps that a job can hold");
  steps->add_option("name", step, "tell the fields of this step");
  steps->add_flag("--markdown", markdown, "all steps and fields as the tables of docs/jobs.md");
  const MoksetCommand mokset(app);
  const FileCommands files(app);
  const PathCommands paths(app);
  const DiffCommand diff(app);

  if (std::string why; IsUnknownCommand(app, argc, argv, why)) {
    err << why << '\n';
    return 2;
  }
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
  if (paths.Parsed()) return paths.Run(out, err);
  options.progress = !options.quiet && terminal;
  return RunJob(job, options, out, err);
}

}  // namespace

int RunCommandLine(int argc, const char* const* argv, std::ostream& out, std::ostream& err) {
  // A limit on the size of files is then told as any other failure of a write.
  std::signal(SIGXFSZ, SIG_IGN);
  WatchedOutput watched(out);
  BoundedOutput bounded(err);
  std::ostream to(&watched), messages(&bounded);
  int whenUnwritten = 1;
  const bool terminal = &err == &std::cerr && isatty(STDERR_FILENO) != 0;
  const int status = Dispatch(argc, argv, to, messages, terminal, whenUnwritten);
  if (to.flush()) return status;
  messages << "standard output can't be written: " << std::strerror(watched.Failure()) << '\n';
  return std::max(status, whenUnwritten);
}

}  // namespace studio
