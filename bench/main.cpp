// Times each row and its measure alternately and prints the ratio of their medians.

#include <algorithm>
#include <cstdio>
#include <map>
#include <vector>

#include "bench/painted.h"
#include "bench/rows.h"

namespace bench {
namespace {

struct Row {
  std::string name, ours, measure;  // benchmark names; no measure in a timed row
  Goal goal;
  std::function<double()> value;  // of a figure
  std::string unit;
};

std::vector<Row>& Rows() {
  static std::vector<Row> rows;
  return rows;
}

std::string Register(const std::string& name, const Body& body) {
  benchmark::RegisterBenchmark(name.c_str(), body)->Unit(benchmark::kMillisecond)->UseRealTime();
  return name;
}

// Keeps every repetition, in seconds an item.
class Medians : public benchmark::BenchmarkReporter {
 public:
  bool ReportContext(const Context&) override { return true; }
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.run_type != Run::RT_Iteration) continue;
      if (run.error_occurred) {
        std::fprintf(stderr, "%s: %s\n", run.benchmark_name().c_str(), run.error_message.c_str());
        failed = true;
        continue;
      }
      const auto rate = run.counters.find("items_per_second");
      const double perIteration = run.real_accumulated_time / double(run.iterations);
      Sample& sample = samples_[run.run_name.function_name];
      sample.seconds.push_back(perIteration);
      if (rate != run.counters.end()) sample.perItem.push_back(1 / rate->second.value);
    }
  }
  bool Has(const std::string& name) const { return samples_.count(name) > 0; }
  double Seconds(const std::string& name) { return Median(samples_[name].seconds); }
  double PerItem(const std::string& name) { return Median(samples_[name].perItem); }

  bool failed = false;

 private:
  struct Sample {
    std::vector<double> seconds, perItem;
  };
  static double Median(std::vector<double> v) {
    if (v.empty()) return 0;
    std::nth_element(v.begin(), v.begin() + std::ptrdiff_t(v.size() / 2), v.end());
    return v[v.size() / 2];
  }
  std::map<std::string, Sample> samples_;
};

std::string Verdict(double value, const Goal& goal) {
  if (goal.kind == Goal::kNone) return "";
  const bool most = goal.kind == Goal::kAtMost;
  char text[64];
  std::snprintf(text, sizeof text, "%s %g: %s", most ? "at most" : "at least", goal.value,
                (most ? value <= goal.value : value >= goal.value) ? "yes" : "NO");
  return text;
}

void Print(Medians& medians) {
  std::printf("%-66s %12s %12s %8s\n", "row", "ours", "measure", "ratio");
  for (const Row& row : Rows()) {
    if (row.value) {
      const double value = row.value();
      std::printf("%-66s %9.1f %s  %s\n", row.name.c_str(), value, row.unit.c_str(),
                  Verdict(value, row.goal).c_str());
      continue;
    }
    if (!medians.Has(row.ours)) continue;  // filtered out
    if (row.measure.empty()) {
      const double item = medians.PerItem(row.ours);
      std::printf("%-66s %9.3f us %21s  at most %g us: %s\n", row.name.c_str(), item * 1e6, "",
                  row.goal.value * 1e6, item <= row.goal.value ? "yes" : "NO");
      continue;
    }
    const double ours = medians.Seconds(row.ours), measure = medians.Seconds(row.measure);
    const double ratio = row.goal.kind == Goal::kAtLeast ? measure / ours : ours / measure;
    std::printf("%-66s %9.4f ms %9.4f ms %8.2f  %s\n", row.name.c_str(), ours * 1e3, measure * 1e3,
                ratio, Verdict(ratio, row.goal).c_str());
  }
}

}  // namespace

void AddRow(const std::string& name, const Body& ours, const std::string& measure, const Body& body,
            Goal goal) {
  const std::string first = Register(name, ours);
  Rows().push_back(
      {name + " : " + measure, first, Register(name + " : " + measure, body), goal, nullptr, ""});
}

void AddTimed(const std::string& name, const Body& ours, double mostSecondsAnItem) {
  Rows().push_back({name, Register(name, ours), "", AtMost(mostSecondsAnItem), nullptr, ""});
}

void AddFigure(const std::string& name, const std::string& unit,
               const std::function<double()>& value, Goal goal) {
  Rows().push_back({name, "", "", goal, value, unit});
}

}  // namespace bench

int main(int argc, char** argv) {
  std::vector<char*> args(argv, argv + argc);
  std::string usual[] = {"--benchmark_repetitions=5", "--benchmark_min_time=0.1",
                         "--benchmark_enable_random_interleaving=true"};
  // First, so that the caller's own options win.
  for (std::string& option : usual) args.insert(args.begin() + 1, option.data());
  int count = int(args.size());
  benchmark::Initialize(&count, args.data());
  if (benchmark::ReportUnrecognizedArguments(count, args.data())) return 2;
  bench::AddPlacementRows();
  bench::AddDisplayRows();
  bench::AddLightRows();
  bench::AddPictureRows();
  bench::AddPaintRows();
  bench::AddUndoRows();
  bench::AddProxyRows();
  bench::AddSceneRows();
  bench::Medians medians;
  benchmark::RunSpecifiedBenchmarks(&medians);
  bench::Print(medians);
  bench::DropScene();
  return medians.failed ? 1 : 0;
}
