#pragma once

#include <deque>
#include <functional>
#include <vector>

#include "host/math/wstr.h"

namespace host {

enum class BoxKind { Warning, YesNo };
enum class BoxAnswer { Ok, Yes, No };

struct ShownBox {
  WStr title, text;
  BoxKind kind;
  BoxAnswer answer;
};

/// Message boxes and questions. Without a window each is reported with its title and text and
/// answered by what was prepared for it, else by OK or No.
class MessageBoxes {
 public:
  BoxAnswer Show(const WStr& title, const WStr& text, BoxKind kind);
  void Prepare(BoxAnswer answer) { prepared_.push_back(answer); }
  /// All boxes so far, oldest first.
  const std::vector<ShownBox>& Shown() const { return shown_; }
  /// Where a box is reported; standard error until set.
  void SetReporter(std::function<void(const ShownBox&)> report) { report_ = std::move(report); }

 private:
  std::deque<BoxAnswer> prepared_;
  std::vector<ShownBox> shown_;
  std::function<void(const ShownBox&)> report_;
};

}  // namespace host
