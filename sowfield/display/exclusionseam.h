#pragma once

#include "sowfield/model/distribution.h"

namespace sowfield {

/// Whether exclusion splines are to leave placements out.
inline bool ExclusionAsked(const Distribution& d) {
  return d.block->GetInt(Excl_On, d.curTime) && d.block->Count(Excl_Splines) > 0;
}

}  // namespace sowfield
