#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace host {

/// What is lost or changed while a damaged scene is read, one line each. Behind a limit lines are
/// counted and not kept: a hostile file tells of no end of them.
class Losses {
 public:
  static constexpr size_t kMostLines = 10'000;

  explicit Losses(std::vector<std::string>& lines) : lines_(lines) {}
  Losses(const Losses&) = delete;
  Losses& operator=(const Losses&) = delete;
  ~Losses() {
    if (more_ > 0) lines_.push_back("and " + std::to_string(more_) + " more");
  }

  void Add(const std::string& text) {
    if (lines_.size() >= kMostLines) {
      ++more_;
    } else {
      lines_.push_back(who_ ? who_() + ": " + text : text);
    }
  }

  /// Puts a thing's name before the lines that are added while this lives.
  class Naming {
   public:
    Naming(Losses* losses, std::function<std::string()> who) : losses_(losses) {
      if (losses_) std::swap(losses_->who_, who), outer_ = std::move(who);
    }
    Naming(const Naming&) = delete;
    Naming& operator=(const Naming&) = delete;
    ~Naming() {
      if (losses_) losses_->who_ = std::move(outer_);
    }

   private:
    Losses* losses_;
    std::function<std::string()> outer_;
  };

 private:
  std::vector<std::string>& lines_;
  std::function<std::string()> who_;
  size_t more_ = 0;
};

}  // namespace host
