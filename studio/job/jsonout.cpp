#include "studio/job/jsonout.h"

#include "host/math/wstr.h"

#include <algorithm>
#include <charconv>
#include <cmath>

namespace studio {
namespace {

template <class T>
std::string Shortest(T value) {
  if (std::isnan(value)) return "\"nan\"";
  if (std::isinf(value)) return value > 0 ? "\"inf\"" : "\"-inf\"";
  char buffer[64];
  const auto end = std::to_chars(buffer, buffer + sizeof buffer, value).ptr;
  return {buffer, end};
}

}  // namespace

JsonOut& JsonOut::Open(char open, char close) {
  Part();
  text_ += open;
  levels_.push_back({close});
  return *this;
}

JsonOut& JsonOut::End() {
  const Level level = levels_.back();
  levels_.pop_back();
  if (line_) text_ += '\n';
  line_ = false;
  text_ += level.close;
  return *this;
}

// What stands before a value: the comma, the new line.
void JsonOut::Part() {
  if (!afterKey_ && !levels_.empty()) {
    if (!levels_.back().empty) text_ += ',';
    levels_.back().empty = false;
    if (line_) text_ += '\n';
    line_ = false;
  }
  afterKey_ = false;
}

JsonOut& JsonOut::Line() {
  line_ = true;
  return *this;
}

JsonOut& JsonOut::Key(std::string_view key) {
  Text(key);
  text_ += ':';
  afterKey_ = true;
  return *this;
}

JsonOut& JsonOut::Raw(std::string_view json) {
  Part();
  text_ += json;
  return *this;
}

JsonOut& JsonOut::Float(float value) { return Raw(Shortest(value)); }
JsonOut& JsonOut::Double(double value) { return Raw(Shortest(value)); }
JsonOut& JsonOut::Int(long long value) { return Raw(std::to_string(value)); }

JsonOut& JsonOut::Point(const Point3& p) {
  return BeginList().Float(p.x).Float(p.y).Float(p.z).End();
}

JsonOut& JsonOut::Text(std::string_view utf8) {
  static constexpr char kHex[] = "0123456789abcdef";
  std::string sound;
  if (std::any_of(utf8.begin(), utf8.end(), [](char c) { return (c & 0x80) != 0; }))
    utf8 = sound = ToUtf8(FromUtf8(utf8));
  Part();
  text_ += '"';
  for (const char c : utf8) {
    if (c == '"' || c == '\\') {
      text_ += '\\';
      text_ += c;
    } else if (const auto u = static_cast<unsigned char>(c); u < 0x20) {
      text_ += "\\u00";
      text_ += kHex[u >> 4];
      text_ += kHex[u & 15];
    } else {
      text_ += c;
    }
  }
  text_ += '"';
  return *this;
}

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
