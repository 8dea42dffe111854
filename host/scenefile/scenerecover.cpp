#include "host/scenefile/scenerecover.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <nlohmann/json.hpp>
#include <utility>

#include "host/scenefile/scenevalues.h"

namespace host {

namespace {

constexpr size_t kPiece = size_t(1) << 18;
constexpr size_t kGlbText = 20;  // behind the headers of the file and of its first chunk
constexpr size_t kChunkHeader = 8;

// Follows braces and quotes through a text.
class TextEnd {
 public:
  /// True when the character closes the text.
  bool Closes(char c) {
    if (quoted_) {
      const bool escaped = std::exchange(escape_, false);
      if (!escaped && c == '\\') escape_ = true;
      if (!escaped && c == '"') quoted_ = false;
    } else if (c == '"') {
      quoted_ = true;
    } else if (c == '{' || c == '[') {
      ++depth_;
    } else if (c == '}' || c == ']') {
      return --depth_ == 0;
    }
    return false;
  }

 private:
  size_t depth_ = 0;
  bool quoted_ = false, escape_ = false;
};

// Where the text that begins at `start` ends; 0 if it doesn't.
size_t EndOfText(const ByteSource& source, size_t start) {
  TextEnd text;
  std::string piece;
  for (size_t at = start; at < source.Size(); at += piece.size()) {
    piece.resize(std::min(kPiece, source.Size() - at));
    if (!source.Read(at, std::as_writable_bytes(std::span(piece)))) return 0;
    for (size_t i = 0; i < piece.size(); ++i)
      if (text.Closes(piece[i])) return at + i + 1;
  }
  return 0;
}

// Where the bytes begin behind a text that ends there: behind the mark of their chunk, if that is
// near, else where it belongs.
size_t FindBytes(const ByteSource& source, size_t end) {
  constexpr std::string_view kMark("BIN\0", 4);
  std::string near(std::min(source.Size() - end, size_t(16)), '\0');
  if (!source.Read(end, std::as_writable_bytes(std::span(near)))) near.clear();
  if (const size_t mark = near.find(kMark); mark != std::string::npos)
    return end + mark + kMark.size();
  return std::min(source.Size(), end + kChunkHeader);
}

}  // namespace

size_t FindText(const ByteSource& source, size_t at) {
  constexpr std::string_view kOrderMark = "\xEF\xBB\xBF";
  std::string head(std::min(source.Size() - std::min(at, source.Size()), size_t(64)), '\0');
  if (!source.Read(at, std::as_writable_bytes(std::span(head)))) return std::string::npos;
  const size_t skipped = head.starts_with(kOrderMark) ? kOrderMark.size() : 0;
  const size_t brace = head.find_first_not_of(" \t\r\n", skipped);
  return brace != std::string::npos && head[brace] == '{' ? at + brace : std::string::npos;
}

std::string_view WholeText(std::string_view text) {
  TextEnd end;
  for (size_t i = 0; i < text.size(); ++i)
    if (end.Closes(text[i])) return text.substr(0, i + 1);
  return text;
}

bool LiesTooDeep(std::string_view text) {
  int depth = 0;
  bool quoted = false;
  for (size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (quoted) {
      if (c == '\\') ++i;
      if (c == '"') quoted = false;
    } else if (c == '"') {
      quoted = true;
    } else if (c == '{' || c == '[') {
      if (++depth > kDeepestText) return true;
    } else if (c == '}' || c == ']') {
      --depth;
    }
  }
  return false;
}

bool FindDamagedParts(const ByteSource& source, GlbContent& content, std::string& why) {
  size_t start = FindText(source, 0);
  const bool bare = start != std::string::npos;  // without headers, as in a pair of files
  if (!bare) start = FindText(source, kGlbText);
  size_t end = start != std::string::npos ? EndOfText(source, start) : 0;
  if (end == 0) {
    why += ", and its description isn't whole";
    return false;
  }
  // The spaces that fill the last word belong to the text and to its checksum.
  for (char next = ' '; (end - start) % 4 != 0 && end < source.Size(); ++end)
    if (!source.Read(end, std::as_writable_bytes(std::span(&next, 1))) || next != ' ') break;
  GlbContent found;
  found.json.resize(end - start);
  if (!source.Read(start, std::as_writable_bytes(std::span(found.json)))) {
    why = std::strerror(errno ? errno : EIO);
    return false;
  }
  found.binOffset = bare ? end : FindBytes(source, end);
  found.binSize = source.Size() - found.binOffset;
  content = std::move(found);
  return true;
}

}  // namespace host
