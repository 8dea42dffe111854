#pragma once

#include <vector>

#include "sowfield/model/placementfilter.h"

class GraphicsWindow;

namespace sowfield {

/// What each placement of a type shows, ready for a placement's matrix: points from `first` on.
struct LightFigure {
  size_t first = 0, count = 0;
};

/// Draws the placements in the light modes, at each redraw straight from the tables: a dot, a wire
/// box or sample points of its source for each. No source's mesh is touched. What is kept from
/// redraw to redraw is memory, not values.
class LightDrawer {
 public:
  explicit LightDrawer(Distribution& d) : d_(d) {}

  /// Draws under the window's transform in force, which takes points from the object's own space;
  /// a window in pick state tests the same points instead. Placements of the type shown, or of all.
  /// A type whose source is gone shows nothing. Nothing is drawn in the heavy modes, without a node
  /// of the object's own, nor while the tables disagree.
  void Draw(TimeValue t, GraphicsWindow& gw);

 private:
  void MakeFigures(int mode, TimeValue t, PlacementFilter& filter);
  void AddBox(const TypeRef& type, TimeValue t);
  void AddCloud(const TypeRef& type, TimeValue t, int firstSample);

  Distribution& d_;
  std::vector<LightFigure> figures_;
  std::vector<Point3> points_;
};

/// How many of a type's samples the point cloud shows at each of its placements: all of up to 25,
/// else from 10 at 1 percent to all at 100.
int CloudPoints(int samples, int percent);

/// Whether the tables can be walked: they can while the list is ready; in the middle of a change
/// they are looked through.
bool TablesAgree(const Distribution& d);

}  // namespace sowfield
