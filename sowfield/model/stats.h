#pragma once

#include "sowfield/model/distribution.h"

namespace sowfield {

struct Stats {
  long long placements = 0, vertices = 0, faces = 0;
};

/// Counts of all placements that no spline excludes, whatever type is shown, from the stored counts
/// of their types.
Stats ComputeStats(const Distribution& d);

}  // namespace sowfield
