#include "host/import/objcheck.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <string>
#include <string_view>

#include "host/exchange/importplan.h"

namespace host {

namespace {

// Finds faces that name what isn't there, line by line. The library only says that there is one,
// and doesn't free its mesh then.
class IndexCheck {
 public:
  void Line(std::string_view line, size_t number) {
    number_ = number;
    const std::string_view word = NextWord(line);
    for (size_t i = 0; i < 3; ++i)
      if (word == kKinds[i].keyword) ++counts_[i];
    if (word == "o" || word == "g") object_ = NextWord(line);
    if (word != "f") return;
    for (std::string_view corner = NextWord(line); !corner.empty(); corner = NextWord(line))
      Corner(corner);
  }

  /// After the last line: a face may come before its vertices.
  void End() const {
    for (size_t i = 0; i < 3; ++i)
      if (largest_[i].index > counts_[i]) Fail(largest_[i].where, i, largest_[i].index);
  }

 private:
  struct KindOfIndex {
    const char* keyword;
    const char* name;
  };
  static constexpr KindOfIndex kKinds[3] = {
      {"v", "vertex"}, {"vt", "texture vertex"}, {"vn", "normal"}};
  struct Largest {
    std::int64_t index = 0;
    std::string where;
  };

  static bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\r'; }
  static std::string_view NextWord(std::string_view& line) {
    while (!line.empty() && IsBlank(line.front())) line.remove_prefix(1);
    size_t size = 0;
    while (size < line.size() && !IsBlank(line[size])) ++size;
    const std::string_view word = line.substr(0, size);
    line.remove_prefix(size);
    return word;
  }

  std::string Where() const {
    return (object_.empty() ? "" : "object \"" + object_ + "\", ") + "line " +
           std::to_string(number_);
  }
  void Fail(const std::string& where, size_t kind, std::int64_t index) const {
    throw ImportFault(where + ": a face uses " + kKinds[kind].name + " " + std::to_string(index) +
                      ", but there are only " + std::to_string(counts_[kind]));
  }

  void Corner(std::string_view corner) {
    for (size_t i = 0; i < 3; ++i) {
      const size_t slash = std::min(corner.find('/'), corner.size());
      const std::string_view part = corner.substr(0, slash);
      std::int64_t index = 0;
      const auto read = std::from_chars(part.data(), part.data() + part.size(), index);
      if (read.ec == std::errc::result_out_of_range || index < -counts_[i]) Fail(Where(), i, index);
      if (index > largest_[i].index) largest_[i] = {index, index > counts_[i] ? Where() : ""};
      if (slash == corner.size()) return;
      corner.remove_prefix(slash + 1);
    }
  }

  std::int64_t counts_[3] = {};
  Largest largest_[3];
  std::string object_;
  size_t number_ = 0;
};

}  // namespace

void CheckObjIndices(std::span<const std::byte> bytes) {
  std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  if (text.substr(0, 2) == "\xFF\xFE" || text.substr(0, 2) == "\xFE\xFF")
    throw ImportFault("is UTF-16 text, only UTF-8 is read");
  IndexCheck check;
  std::string joined;
  for (size_t number = 1; !text.empty(); ++number) {
    const size_t end = std::min(text.find('\n'), text.size());
    std::string_view line = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    const bool goesOn = !line.empty() && line.back() == '\\';
    if (goesOn) line.remove_suffix(1);
    if (goesOn || !joined.empty()) joined.append(line).push_back(' ');
    if (goesOn) continue;
    check.Line(joined.empty() ? line : std::string_view(joined), number);
    joined.clear();
  }
  check.End();
}

}  // namespace host
