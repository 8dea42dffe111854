#pragma once

namespace sowfield {

/// Values of Display_Mode. Up to kShowCloud placements are drawn at each redraw, above it they are
/// part of the display mesh.
enum DisplayMode : int {
  kShowNone = 0,
  kShowDot = 1,
  kShowBox = 2,
  kShowCloud = 3,
  kShowPyramid = 4,
  kShowSquirrel = 5,
  kShowOriginal = 6
};

constexpr bool IsLightMode(int mode) { return mode < kShowPyramid; }

}  // namespace sowfield
