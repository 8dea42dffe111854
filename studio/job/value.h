#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace studio {

/// A place in a text: lines and columns from 1, columns in characters. Line 0: the text as a whole.
struct Place {
  int line = 0, column = 0;
  bool operator==(const Place&) const = default;
};

struct Member;

/// A JSON value that knows where it stood.
struct Value {
  enum class Kind { Null, Bool, Number, Text, List, Object };

  Kind kind = Kind::Null;
  Place place;
  bool flag = false;
  double number = 0;
  std::string text;  // UTF-8
  std::vector<Value> items;
  std::vector<Member> members;  // in the order of the text

  // Values that stand in no text. Texts may be any bytes.
  static Value Text(std::string text);
  static Value Number(double number);
  static Value Numbers(std::span<const double> numbers);
  static Value Flag(bool flag);
  /// An object with one member more.
  Value With(std::string key, Value value) const;

  bool IsNumber() const { return kind == Kind::Number; }
  bool IsText() const { return kind == Kind::Text; }
  bool IsList() const { return kind == Kind::List; }
  bool IsObject() const { return kind == Kind::Object; }
  /// Null for a key that the object hasn't.
  const Value* Find(std::string_view key) const;
};

struct Member {
  std::string key;
  Place place;  // of the key
  Value value;
};

/// What a value is called in messages: "a number", "a text".
const char* KindName(Value::Kind kind);

/// Something wrong in a job, and where.
struct Fault {
  Place place;
  std::string text;
};

/// Reads a JSON text (RFC 8259, UTF-8), at most 32 lists and objects deep. An object that names a
/// key twice is refused. Nothing comes back on a fault, which is then in `fault`.
std::optional<Value> ReadJson(std::string_view text, Fault& fault);

}  // namespace studio
