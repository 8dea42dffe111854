#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "host/math/point3.h"

namespace host {

/// Writes JSON. Numbers are the shortest text that reads back as the same value; one that isn't
/// finite becomes a text.
class JsonOut {
 public:
  JsonOut& BeginObject() { return Open('{', '}'); }
  JsonOut& BeginList() { return Open('[', ']'); }
  JsonOut& End();
  JsonOut& Key(std::string_view key);

  JsonOut& Float(float value);
  JsonOut& Double(double value);
  JsonOut& Int(long long value);
  JsonOut& Flag(bool value) { return Raw(value ? "true" : "false"); }
  JsonOut& Null() { return Raw("null"); }
  /// Bytes that aren't UTF-8, as paths may have them, become U+FFFD.
  JsonOut& Text(std::string_view utf8);
  /// A list, each on a line of its own.
  JsonOut& Texts(std::span<const std::string> texts);
  JsonOut& Point(const Point3& p);
  /// A value that is JSON already.
  JsonOut& Raw(std::string_view json);
  /// Starts a new line within the list or object.
  JsonOut& Line();

  const std::string& Str() const { return text_; }

 private:
  JsonOut& Open(char open, char close);
  void Part();

  std::string text_;
  struct Level {
    char close;
    bool empty = true;
  };
  std::vector<Level> levels_;
  bool afterKey_ = false;
  bool line_ = false;
};

}  // namespace host
