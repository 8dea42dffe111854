#pragma once

#include <cstdint>

/// Linear colour, each channel usually 0 to 1.
struct Color {
  float r = 0, g = 0, b = 0;
  constexpr bool operator==(const Color&) const = default;
};

/// A colour packed 0x00BBGGRR, as wire colours are kept.
using ColorRef = std::uint32_t;

constexpr ColorRef PackColor(int r, int g, int b) {
  return ColorRef(r) | ColorRef(g) << 8 | ColorRef(b) << 16;
}

constexpr Color UnpackColor(ColorRef c) {
  return {float(c & 255) / 255.0f, float(c >> 8 & 255) / 255.0f, float(c >> 16 & 255) / 255.0f};
}
