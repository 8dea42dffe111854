#pragma once

#include <array>

#include "host/math/color.h"

namespace sowfield {

/// The type colours, 0x00BBGGRR: type t takes row t modulo 26.
inline constexpr std::array<ColorRef, 26> kTypePalette = {
    PackColor(0, 18, 255),   PackColor(59, 96, 255),   PackColor(162, 173, 255),
    PackColor(255, 114, 0),  PackColor(255, 157, 52),  PackColor(255, 204, 149),
    PackColor(0, 255, 18),   PackColor(105, 255, 98),  PackColor(171, 255, 171),
    PackColor(107, 8, 255),  PackColor(150, 56, 255),  PackColor(188, 151, 255),
    PackColor(8, 235, 255),  PackColor(83, 255, 241),  PackColor(160, 255, 243),
    PackColor(255, 246, 6),  PackColor(255, 209, 68),  PackColor(255, 245, 180),
    PackColor(0, 0, 0),      PackColor(115, 115, 115), PackColor(255, 6, 6),
    PackColor(255, 59, 59),  PackColor(255, 147, 147), PackColor(255, 0, 186),
    PackColor(255, 74, 198), PackColor(247, 156, 255)};

constexpr ColorRef TypeColor(int type) { return kTypePalette[size_t(type) % kTypePalette.size()]; }

/// The object's own colour, which the logo shows.
inline constexpr ColorRef kObjectColor = PackColor(120, 255, 207);

}  // namespace sowfield
