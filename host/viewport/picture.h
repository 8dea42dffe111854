#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

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
};

/// Draws the scene as the view shows it at the host's time: the meshes of all nodes that are
/// neither hidden nor on a hidden layer, in the colour of each face's material, or the node's wire
/// colour without one. Pixel positions are those of ViewExp::ProjectToScreen. Edges are smoothed up
/// to 16 million pixels. Nodes whose matrix isn't finite or whose mesh has a fault are left out.
///
/// Needs no display and no window. Width and height of the view from 1 to 8192. On failure `error`
/// says why.
std::optional<Picture> DrawScene(Interface& ip, const ViewExp& view, const PictureOptions& options,
                                 std::string& error);

}  // namespace host
