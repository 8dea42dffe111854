#pragma once

#include <chrono>
#include <csignal>
#include <iosfwd>
#include <string>

#include "host/core/progress.h"

namespace studio {

/// Exit status of a program that was interrupted, as shells tell it.
inline constexpr int kInterrupted = 130;

/// While it lives, Ctrl-C asks the work that runs to end at its next safe place, and the second one
/// ends the program at once. One may live in another.
class Interruptible {
 public:
  Interruptible();
  ~Interruptible();
  Interruptible(const Interruptible&) = delete;
  Interruptible& operator=(const Interruptible&) = delete;

 private:
  struct sigaction before_;
};

/// The line on a terminal that tells how far long work is; and Ctrl-C for that work.
class ProgressLine : public host::Progress {
 public:
  /// Whether standard error is a terminal of this program's own; its main says.
  static inline bool allowed = false;

  /// Nothing is shown unless `on`.
  ProgressLine(bool on, std::ostream& err, std::string what)
      : on_(on), err_(err), what_(std::move(what)) {}
  ~ProgressLine() override { Clear(); }
  /// The line without a share.
  void Show() {
    if (on_) Put(what_);
  }
  void Clear();

  void Report(double done) override;
  bool Asked() const override;

 private:
  void Put(const std::string& text);

  bool on_;
  std::ostream& err_;
  std::string what_;
  size_t shown_ = 0;
  std::chrono::steady_clock::time_point last_;
};

}  // namespace studio
