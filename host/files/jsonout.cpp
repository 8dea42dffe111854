#include "host/files/jsonout.h"

#include <algorithm>
#include <charconv>
#include <cmath>

#include "host/math/wstr.h"

namespace host {
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

JsonOut& JsonOut::Texts(std::span<const std::string> texts) {
  BeginList();
  for (const std::string& text : texts) Line().Text(text);
  return End();
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

}  // namespace host
