#pragma once

#include <cstdint>

/// A colour as a screen shows it (sRGB), each channel usually 0 to 1: material and wire colours are
/// picked on a screen, and the two stand side by side in lists and views.
struct Color {
  float r = 0, g = 0, b = 0;
  constexpr bool operator==(const Color&) const = default;
};

/// A channel of linear light as a screen shows it (IEC 61966-2-1).
float ScreenChannel(float linear);

/// A colour packed 0x00BBGGRR, as wire colours are kept.
using ColorRef = std::uint32_t;

constexpr ColorRef PackColor(int r, int g, int b) {
  return ColorRef(r) | ColorRef(g) << 8 | ColorRef(b) << 16;
}

constexpr Color UnpackColor(ColorRef c) {
  return {float(c & 255) / 255.0f, float(c >> 8 & 255) / 255.0f, float(c >> 16 & 255) / 255.0f};
}
