#include "studio/job/jsonout.h"

#include <algorithm>
#include <string_view>

namespace studio {

std::string Grouped(long long n) {
  std::string digits = std::to_string(n);
  const size_t first = n < 0 ? 1 : 0;
  for (size_t at = digits.size(); at > first + 3;) digits.insert(at -= 3, 1, ',');
  return digits;
}

std::string Bounded(const std::string& message) {
  constexpr size_t kMost = 2000, kHead = 1500, kTail = 400;
  const auto inLetter = [](char c) { return (c & 0xC0) == 0x80; };  // in UTF-8
  std::string bounded;
  for (size_t at = 0; at < message.size();) {
    const size_t end = std::min(message.find('\n', at), message.size());
    const std::string_view line(message.data() + at, end - at);
    if (line.size() <= kMost) {
      bounded += line;
    } else {
      size_t head = kHead, tail = line.size() - kTail;
      while (head > kHead - 4 && inLetter(line[head])) --head;
      while (tail < line.size() - kTail + 4 && inLetter(line[tail])) ++tail;
      bounded += line.substr(0, head);
      bounded += " [... " + Counted(tail - head, "byte") + " ...] ";
      bounded += line.substr(tail);
    }
    if (end < message.size()) bounded += '\n';
    at = end + 1;
  }
  return bounded;
}

std::string Counted(size_t n, const char* what) {
  return Grouped((long long)(n)) + " " + what + (n == 1 ? "" : "s");
}

}  // namespace studio
