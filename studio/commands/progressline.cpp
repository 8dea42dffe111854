#include "studio/commands/progressline.h"

#include <fmt/format.h>

#include <ostream>

namespace studio {
namespace {

constexpr std::chrono::milliseconds kEvery{200};

volatile std::sig_atomic_t interrupted = 0;
int depth = 0;  // of those that live, one in another

void Interrupt(int) { interrupted = 1; }

}  // namespace

Interruptible::Interruptible() {
  ++depth;
  struct sigaction action {};
  action.sa_handler = Interrupt;
  action.sa_flags = int(SA_RESETHAND) | SA_RESTART;
  sigaction(SIGINT, &action, &before_);
}

Interruptible::~Interruptible() {
  sigaction(SIGINT, &before_, nullptr);
  if (--depth == 0) interrupted = 0;
}

void ProgressLine::Put(const std::string& text) {
  const auto now = std::chrono::steady_clock::now();
  if (shown_ > 0 && now - last_ < kEvery) return;
  Clear();
  err_ << text << std::flush;
  shown_ = text.size();
  last_ = now;
}

void ProgressLine::Clear() {
  if (shown_ > 0) err_ << '\r' << std::string(shown_, ' ') << '\r' << std::flush;
  shown_ = 0;
}

void ProgressLine::Report(double done) {
  if (on_) Put(fmt::format("{} {:.0f} %", what_, 100 * done));
}

bool ProgressLine::Asked() const { return interrupted != 0; }

}  // namespace studio
