#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/math/point3.h"

class Interface;
class ViewExp;

namespace host {

/// 8 bit sRGB, rows from the top, 3 * width bytes each.
struct Picture {
  int width = 0, height = 0;
  std::vector<std::uint8_t> rgb;
};

struct PictureOptions {
  /// The construction grid: lines a power of ten apart, each tenth stronger, the world's axes
  /// tinted.
  bool grid = true;
  /// Where the pointer is in the view, pixels. The view is the active one for this picture, so that
  /// it shows what the redraw callbacks draw at the pointer; then the active view and the pointer
  /// are put back. Without it callbacks draw only into a view that is the active one anyway.
  std::optional<IPoint2> pointer = std::nullopt;
};

/// Draws the scene as the view shows it at the host's time, as one redraw of Viewports: of all
/// nodes that are neither hidden nor on a hidden layer what the object draws itself, and the meshes
/// in the colour of each face's material, or the node's wire colour without one. Pixel positions
/// are those of ViewExp::ProjectToScreen. Edges are smoothed up to 16 million pixels. Nodes whose
/// matrix isn't finite or whose mesh has a fault are left out.
///
/// Needs no display and no window. Width and height of the view from 1 to 8192. On failure, also
/// inside a redraw, `error` says why.
std::optional<Picture> DrawScene(Interface& ip, ViewExp& view, const PictureOptions& options,
                                 std::string& error);

}  // namespace host
