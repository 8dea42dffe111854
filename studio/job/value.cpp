#include "studio/job/value.h"

#include <nlohmann/json.hpp>

namespace studio {
namespace {

constexpr size_t kMostDepth = 32;

// Walks the tokens of a text in step with the parser, which has checked each one that it reports,
// to tell where they begin.
class TokenWalk {
 public:
  explicit TokenWalk(std::string_view text) : text_(text) {}

  Place Next() {
    while (at_ < text_.size() && std::string_view(" \t\r\n,:").find(text_[at_]) != text_.npos)
      Step();
    const Place place = here_;
    SkipToken();
    return place;
  }

  /// The place of a byte, which lies at or behind the walk's position.
  Place At(size_t byte) {
    while (at_ < byte && at_ < text_.size()) Step();
    return here_;
  }

 private:
  void Step() {
    const auto c = static_cast<unsigned char>(text_[at_++]);
    if (c == '\n') {
      ++here_.line;
      here_.column = 1;
    } else if ((c & 0xC0) != 0x80) {
      // A character of several bytes counts once.
      ++here_.column;
    }
  }

  void SkipToken() {
    if (at_ >= text_.size()) return;
    const char first = text_[at_];
    Step();
    if (first == '"') {
      while (at_ < text_.size() && text_[at_] != '"') {
        if (text_[at_] == '\\') Step();
        Step();
      }
      if (at_ < text_.size()) Step();
    } else if (std::string_view("{}[]").find(first) == std::string_view::npos) {
      while (at_ < text_.size() && std::string_view(" \t\r\n,]}").find(text_[at_]) == text_.npos)
        Step();
    }
  }

  std::string_view text_;
  size_t at_ = 0;
  Place here_{1, 1};
};

class TreeBuilder : public nlohmann::json_sax<nlohmann::json> {
 public:
  TreeBuilder(std::string_view text, Fault& fault) : walk_(text), fault_(fault) {}

  Value&& Take() { return std::move(root_); }

  bool null() override { return Add(Value::Kind::Null); }
  bool boolean(bool on) override {
    if (!Add(Value::Kind::Bool)) return false;
    last_->flag = on;
    return true;
  }
  bool number_integer(number_integer_t n) override { return AddNumber(double(n)); }
  bool number_unsigned(number_unsigned_t n) override { return AddNumber(double(n)); }
  bool number_float(number_float_t n, const string_t&) override { return AddNumber(n); }
  bool string(string_t& text) override {
    if (!Add(Value::Kind::Text)) return false;
    last_->text = text;
    return true;
  }
  bool binary(binary_t&) override { return Fail({}, "binary data isn't JSON"); }

  bool start_object(size_t) override { return Open(Value::Kind::Object); }
  bool start_array(size_t) override { return Open(Value::Kind::List); }
  bool end_object() override { return Close(); }
  bool end_array() override { return Close(); }
  bool key(string_t& name) override {
    const Place place = walk_.Next();
    Value& object = *open_.back();
    for (const Member& m : object.members)
      if (m.key == name)
        return Fail(place, "the field \"" + name +
                               "\" stands here a second time; the first is in line " +
                               std::to_string(m.place.line));
    object.members.push_back({name, place, {}});
    return true;
  }

  bool parse_error(size_t byte, const std::string&, const nlohmann::detail::exception& e) override {
    std::string why = e.what();
    // The library tells its own number and position first; what is wrong comes behind.
    for (const char* start : {"while parsing ", "parse error: ", "] "})
      if (const size_t at = why.find(start); at != why.npos) {
        why = why.substr(at + std::string_view(start).size());
        break;
      }
    // "object - unexpected ...": what was being read says less than what is there.
    if (const size_t at = why.find(" - "); at < why.find(';')) why = why.substr(at + 3);
    for (char& c : why)
      if (static_cast<unsigned char>(c) < ' ') c = ' ';
    return Fail(walk_.At(byte > 0 ? byte - 1 : 0), "this isn't JSON: " + why);
  }

 private:
  bool Fail(Place place, std::string text) {
    fault_ = {place, std::move(text)};
    return false;
  }

  // The pointers stay good: a container's own lists grow only while no child of it is open.
  bool Add(Value::Kind kind) {
    const Place place = walk_.Next();
    if (open_.empty()) {
      last_ = &root_;
    } else if (Value& parent = *open_.back(); parent.IsList()) {
      last_ = &parent.items.emplace_back();
    } else {
      last_ = &parent.members.back().value;
    }
    last_->kind = kind;
    last_->place = place;
    return true;
  }
  bool AddNumber(double n) {
    if (!Add(Value::Kind::Number)) return false;
    last_->number = n;
    return true;
  }
  bool Open(Value::Kind kind) {
    if (!Add(kind)) return false;
    if (open_.size() == kMostDepth)
      return Fail(last_->place, "this is nested more than " + std::to_string(kMostDepth) + " deep");
    open_.push_back(last_);
    return true;
  }
  bool Close() {
    walk_.Next();
    open_.pop_back();
    return true;
  }

  TokenWalk walk_;
  Fault& fault_;
  Value root_;
  Value* last_ = nullptr;
  std::vector<Value*> open_;
};

}  // namespace

Value Value::Text(std::string text) {
  Value value;
  value.kind = Kind::Text;
  value.text = std::move(text);
  return value;
}

Value Value::Number(double number) {
  Value value;
  value.kind = Kind::Number;
  value.number = number;
  return value;
}

Value Value::Numbers(std::span<const double> numbers) {
  Value value;
  value.kind = Kind::List;
  for (const double n : numbers) value.items.push_back(Number(n));
  return value;
}

Value Value::Flag(bool flag) {
  Value value;
  value.kind = Kind::Bool;
  value.flag = flag;
  return value;
}

Value Value::With(std::string key, Value value) const {
  Value whole = *this;
  whole.kind = Kind::Object;
  whole.members.push_back({std::move(key), {}, std::move(value)});
  return whole;
}

const Value* Value::Find(std::string_view key) const {
  for (const Member& m : members)
    if (m.key == key) return &m.value;
  return nullptr;
}

const char* KindName(Value::Kind kind) {
  switch (kind) {
    case Value::Kind::Null:
      return "null";
    case Value::Kind::Bool:
      return "true or false";
    case Value::Kind::Number:
      return "a number";
    case Value::Kind::Text:
      return "a text";
    case Value::Kind::List:
      return "a list";
    case Value::Kind::Object:
      return "an object in braces";
  }
  return "";
}

std::optional<Value> ReadJson(std::string_view text, Fault& fault) {
  if (text.starts_with("\xEF\xBB\xBF")) text.remove_prefix(3);  // a byte order mark
  TreeBuilder builder(text, fault);
  if (!nlohmann::json::sax_parse(text.begin(), text.end(), &builder)) return std::nullopt;
  return builder.Take();
}

}  // namespace studio
