#include "host/viewport/windowtext.h"

#include <stb_easy_font.h>

namespace host {

namespace {

constexpr float kScale = 2;  // of the font's own capitals, 7 pixels high

std::string Ascii(const WStr& text) {
  std::string ascii;
  for (const wchar_t c : text) ascii += c >= L' ' && c <= L'~' ? char(c) : '?';
  return ascii;
}

}  // namespace

int TextWidth(const WStr& text) {
  std::string ascii = Ascii(text);
  return int(kScale * float(stb_easy_font_width(ascii.data())));
}

std::vector<TextCorner> TextRectangles(const WStr& text) {
  struct FontVertex {
    float x, y, z;
    unsigned char rgba[4];
  };
  constexpr size_t kMostOfCharacter = 24 * 4;  // vertices; the font's busiest has 16 rectangles
  std::string ascii = Ascii(text);
  std::vector<FontVertex> vertices(ascii.size() * kMostOfCharacter);
  const int rectangles = stb_easy_font_print(0, 0, ascii.data(), nullptr, vertices.data(),
                                             int(vertices.size() * sizeof(FontVertex)));
  std::vector<TextCorner> corners;
  for (size_t i = 0; i < size_t(rectangles) * 4; ++i)
    corners.push_back({kScale * vertices[i].x, kScale * vertices[i].y - float(kTextHeight)});
  return corners;
}

}  // namespace host
