#pragma once

#include <cstddef>

namespace host {

/// Is told of long work and may end it. This one says nothing and ends nothing.
class Progress {
 public:
  virtual ~Progress() = default;
  /// `done` of the work at hand, 0 to 1. It may come as often as the work likes.
  virtual void Report(double done);
  virtual bool Asked() const { return false; }

  /// For long work, where it can end and leave everything as before: reports, and throws Cancelled
  /// if it was asked for.
  void At(double done);
  void At(size_t done, size_t all) { At(all == 0 ? 1 : double(done) / double(all)); }
};

/// Who is told now: long work takes it from here, on the main thread.
Progress& TheProgress();

/// Another one is told, for the time of its life.
class ProgressScope {
 public:
  explicit ProgressScope(Progress& progress);
  ~ProgressScope();
  ProgressScope(const ProgressScope&) = delete;
  ProgressScope& operator=(const ProgressScope&) = delete;

 private:
  Progress* outer_;
};

}  // namespace host
