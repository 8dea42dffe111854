#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/math/wstr.h"

namespace host {

/// Width of a line of text and height of its capitals as a window shows it, pixels.
int TextWidth(const WStr& text);
inline constexpr int kTextHeight = 14;

/// A corner of a rectangle of a text: pixels right of its beginning and below its foot.
struct TextCorner {
  float x, y;
};
/// The rectangles that a line of text is made of, four corners each.
std::vector<TextCorner> TextRectangles(const WStr& text);

}  // namespace host
