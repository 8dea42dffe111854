#pragma once

#include <span>

#include "host/math/point3.h"

namespace sowfield {

/// A line of the brush cursor.
struct CursorLine {
  std::span<const Point3> points;
  bool closed = true;
};

/// The longest of the lines.
inline constexpr size_t kMostCursorPoints = 35;

/// What the cursor of a stroke tool is drawn of: the normal's line, the brush's rim, the tool's
/// letter, and for the line tool the arrow. In brush radii, in the brush's own frame: XY lies on
/// the surface, +Y is the direction of the line brush, +Z the surface's normal. Empty for no tool.
std::span<const CursorLine> CursorLines(int tool);

}  // namespace sowfield
