#pragma once

#include "host/math/point3.h"

/// What a search for snap points looks for, and the best that it has found so far. Objects are
/// asked one after the other with the same one.
struct SnapInfo {
  int strength = 10;  // how far from the mouse a point may lie, pixels
  /// What has more goes before what is nearer to the mouse; with 0 it isn't looked for.
  int vertPriority = 2, edgePriority = 1;

  int bestPriority = 0;  // 0: nothing found yet
  double bestDist = 0;   // from the mouse, pixels
  double bestDepth = 0;  // from the eye along the view; nearer wins at the same place
  Point3 bestWorld{0, 0, 0};
};
