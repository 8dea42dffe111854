#include "host/ui/messageboxes.h"

#include <cstdio>

namespace host {

BoxAnswer MessageBoxes::Show(const WStr& title, const WStr& text, BoxKind kind) {
  BoxAnswer answer = kind == BoxKind::Warning ? BoxAnswer::Ok : BoxAnswer::No;
  if (kind == BoxKind::YesNo && !prepared_.empty()) {
    answer = prepared_.front();
    prepared_.pop_front();
  }
  shown_.push_back({title, text, kind, answer});
  if (report_) {
    report_(shown_.back());
  } else {
    std::fprintf(stderr, "[%s] %s\n", ToUtf8(title).c_str(), ToUtf8(text).c_str());
  }
  return answer;
}

}  // namespace host
