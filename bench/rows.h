#pragma once

#include <benchmark/benchmark.h>

#include <functional>
#include <string>

namespace bench {

using Body = std::function<void(benchmark::State&)>;

/// What a row is held to.
struct Goal {
  enum Kind { kAtMost, kAtLeast, kNone } kind = kNone;
  double value = 0;
};
inline Goal AtMost(double times) { return {Goal::kAtMost, times}; }
inline Goal AtLeast(double times) { return {Goal::kAtLeast, times}; }

/// A row beside its measure: both are timed in the same run, and the ratio of their medians (ours
/// over the measure's; the other way round for "at least", which asks how many times as fast we
/// are) is printed with the goal.
void AddRow(const std::string& name, const Body& ours, const std::string& measure, const Body& body,
            Goal goal = {});
/// A row held to a time for one of its items, in seconds.
void AddTimed(const std::string& name, const Body& ours, double mostSecondsAnItem);
/// A row that isn't timed: `value` is asked once.
void AddFigure(const std::string& name, const std::string& unit,
               const std::function<double()>& value, Goal goal = {});

// Called by main; each file of rows has one.
void AddPlacementRows();
void AddDisplayRows();
void AddLightRows();
void AddPictureRows();
void AddPaintRows();
void AddUndoRows();
void AddProxyRows();
void AddSceneRows();

}  // namespace bench
