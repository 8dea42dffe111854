#include "host/io/scenerecover.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

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

}  // namespace

bool FindDamagedParts(const ByteSource& source, GlbContent& content, std::string& why) {
  std::string head(std::min(source.Size(), kGlbText + 1), '\0');
  if (!source.Read(0, std::as_writable_bytes(std::span(head)))) {
    why = std::strerror(errno ? errno : EIO);
    return false;
  }
  const bool bare = head.starts_with('{');  // without headers, as in a pair of files
  const size_t start = bare ? 0 : kGlbText;
  size_t end = head.size() > start && head[start] == '{' ? EndOfText(source, start) : 0;
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
  found.binOffset = std::min(source.Size(), end + (bare ? 0 : kChunkHeader));
  found.binSize = source.Size() - found.binOffset;
  content = std::move(found);
  return true;
}

}  // namespace host
