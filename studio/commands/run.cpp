#include "studio/commands/run.h"

#include <fmt/format.h>

#include <chrono>
#include <filesystem>
#include <ostream>

#include "host/files/file.h"
#include "studio/commands/progressline.h"
#include "studio/steps/steps.h"

namespace studio {
namespace {

using Clock = std::chrono::steady_clock;

double MillisecondsSince(Clock::time_point start) {
  return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

constexpr size_t kMostFaultsShown = 20;

class Runner {
 public:
  Runner(std::string file, const RunOptions& options, std::ostream& out, std::ostream& err)
      : file_(std::move(file)), options_(options), out_(out), err_(err) {}

  int Run() {
    const Interruptible interruptible;
    const Clock::time_point start = Clock::now();
    json_.BeginObject().Line().Key("job").Text(file_).Line().Key("steps").BeginList();
    const bool done = ReadAndRun();
    json_.Line().End().Line().Key("ok").Flag(done);
    if (!done) json_.Key("error").Text(error_);
    json_.Key("ms").Double(MillisecondsSince(start)).Line().End();
    if (options_.json) out_ << json_.Str() << '\n';
    return done ? 0 : interrupted_ ? kInterrupted : 1;
  }

 private:
  void Error(Place place, const std::string& text) {
    std::string line = file_;
    if (place.line > 0) line += fmt::format(":{}:{}", place.line, place.column);
    line = Bounded(line + ": " + text);
    err_ << line << '\n';
    if (error_.empty()) error_ = line;
  }

  bool ReadAndRun() {
    std::vector<std::byte> bytes;
    std::string why;
    if (!host::ReadFile(file_, bytes, why)) {
      // Such a message names the file itself.
      err_ << why << '\n';
      error_ = why;
      return false;
    }
    std::vector<Fault> faults;
    const std::optional<Job> job =
        ReadJob({reinterpret_cast<const char*>(bytes.data()), bytes.size()}, faults);
    if (!job) {
      for (size_t i = 0; i < faults.size() && i < kMostFaultsShown; ++i)
        Error(faults[i].place, faults[i].text);
      if (faults.size() > kMostFaultsShown)
        err_ << fmt::format("{}: {} more faults\n", file_, faults.size() - kMostFaultsShown);
      return false;
    }
    try {
      return RunSteps(*job);
    } catch (const StepFailure& f) {
      Error(f.place, f.what());
    } catch (const std::exception& e) {
      Error({}, e.what());
    }
    return false;
  }

  bool RunSteps(const Job& job) {
    Stage stage(std::filesystem::path(file_).parent_path().string(), err_);
    stage.AddSource(file_, "the job");
    stage.force = options_.force;
    SetUp(stage, job.fields);
    for (const Call& call : job.calls)
      if (!RunStep(stage, call, job.calls.size())) return false;
    return true;
  }

  static void SetUp(Stage& stage, const Args& fields) {
    static constexpr std::pair<const char*, UnitType> kUnits[] = {
        {"inches", UNITS_INCHES},
        {"feet", UNITS_FEET},
        {"miles", UNITS_MILES},
        {"millimetres", UNITS_MILLIMETERS},
        {"centimetres", UNITS_CENTIMETERS},
        {"metres", UNITS_METERS},
        {"kilometres", UNITS_KILOMETERS}};
    for (const auto& [name, unit] : kUnits)
      if (fields.Text("unit") == name) stage.Ip().SetMasterUnit(unit, 1);
    stage.TheHost().Core().systemRandom.Seed(std::uint32_t(fields.Number("rand_seed")));
  }

  bool RunStep(Stage& stage, const Call& call, size_t steps) {
    const Clock::time_point start = Clock::now();
    ProgressLine progress(options_.progress, err_,
                          fmt::format("[{}/{}] {}", call.number, steps, call.decl->name));
    const host::ProgressScope told(progress);
    progress.Show();
    Outcome outcome;
    try {
      if (!call.decl->keepsPainting) stage.LeavePaintMode();
      DoStep(stage, call, outcome);
    } catch (const std::exception& e) {
      progress.Clear();
      const auto* failure = dynamic_cast<const StepFailure*>(&e);
      interrupted_ = dynamic_cast<const host::Cancelled*>(&e) != nullptr;
      Error(failure ? failure->place : call.place,
            StepPrefix(call.number, call.decl->name) + host::TextOf(e) +
                (interrupted_ ? "; no file was left half written" : ""));
      return false;
    }
    progress.Clear();
    Tell(call, outcome, MillisecondsSince(start));
    return true;
  }

  void Tell(const Call& call, const Outcome& outcome, double ms) {
    if (options_.json) {
      json_.Line().BeginObject().Key("step").Int(call.number).Key("do").Text(call.decl->name);
      for (const auto& [name, value] : outcome.fields) json_.Key(name).Raw(value);
      json_.Key("ms").Double(ms).End();
      return;
    }
    if (!options_.quiet) {
      out_ << fmt::format("{:>3} {:<10} {}{}, {:.0f} ms\n", call.number, call.decl->name,
                          Bounded(outcome.text), outcome.answer, ms);
    } else if (!outcome.answer.empty()) {
      out_ << outcome.answer << '\n';
    }
    out_ << outcome.document << std::flush;
  }

  std::string file_;
  RunOptions options_;
  std::ostream &out_, &err_;
  JsonOut json_;
  std::string error_;
  bool interrupted_ = false;
};

}  // namespace

int RunJob(const std::string& file, const RunOptions& options, std::ostream& out,
           std::ostream& err) {
  return Runner(file, options, out, err).Run();
}

}  // namespace studio
