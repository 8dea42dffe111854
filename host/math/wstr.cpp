#include "host/math/wstr.h"

#include <cstdint>

namespace {

void AppendUtf8(std::string& out, std::uint32_t c) {
  if (c < 0x80) {
    out += char(c);
  } else if (c < 0x800) {
    out += char(0xC0 | c >> 6);
    out += char(0x80 | (c & 63));
  } else if (c < 0x10000) {
    out += char(0xE0 | c >> 12);
    out += char(0x80 | (c >> 6 & 63));
    out += char(0x80 | (c & 63));
  } else {
    out += char(0xF0 | c >> 18);
    out += char(0x80 | (c >> 12 & 63));
    out += char(0x80 | (c >> 6 & 63));
    out += char(0x80 | (c & 63));
  }
}

// Reads one code point at `i` and steps over it; 0xFFFD and one byte for anything malformed.
std::uint32_t ReadUtf8(std::string_view text, size_t& i) {
  const auto byte = [&](size_t k) { return std::uint32_t(static_cast<unsigned char>(text[k])); };
  const std::uint32_t lead = byte(i++);
  if (lead < 0x80) return lead;
  const int more = lead >= 0xF0 && lead < 0xF5 ? 3 : lead >= 0xE0 ? 2 : lead >= 0xC2 ? 1 : 0;
  if (more == 0 || lead >= 0xF5 || i + size_t(more) > text.size()) return 0xFFFD;

  std::uint32_t c = lead & (0x3Fu >> more);
  for (int k = 0; k < more; ++k) {
    if ((byte(i + size_t(k)) & 0xC0) != 0x80) return 0xFFFD;
    c = c << 6 | (byte(i + size_t(k)) & 63);
  }
  const bool overlong = (more == 2 && c < 0x800) || (more == 3 && c < 0x10000);
  if (overlong || c > 0x10FFFF || (c >= 0xD800 && c < 0xE000)) return 0xFFFD;
  i += size_t(more);
  return c;
}

}  // namespace

std::string ToUtf8(std::wstring_view text) {
  std::string out;
  out.reserve(text.size());
  for (const wchar_t w : text) {
    const auto c = std::uint32_t(w);
    AppendUtf8(out, c > 0x10FFFF || (c >= 0xD800 && c < 0xE000) ? 0xFFFDu : c);
  }
  return out;
}

WStr FromUtf8(std::string_view text) {
  WStr out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size();) out += wchar_t(ReadUtf8(text, i));
  return out;
}
