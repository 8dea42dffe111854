#pragma once

#include "sowfield/model/distribution.h"

namespace sowfield {

/// What the shown placements would cost, by the stored counts of their types: no source is touched.
struct DisplayCost {
  long long vertices = 0;    // of the sources, for "Original"
  long long placements = 0;  // shown
  long long cloudPoints = 0;
};
DisplayCost CostOfDisplay(const Distribution& d);

/// Lowers Display_Mode while it is too heavy, test by test; each write refreshes the object at
/// once, so a build runs inside this call. Says so in a box while the panels are open.
void ApplyBudgets(Distribution& d, TimeValue t);

}  // namespace sowfield
