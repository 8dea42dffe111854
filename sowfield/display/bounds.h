#pragma once

#include "host/math/box3.h"
#include "host/math/matrix3.h"
#include "sowfield/model/distribution.h"

class ViewExp;

namespace sowfield {

/// How much of a type's box the light modes leave round a placement: from the largest scales that
/// the rows can give, with a little to spare.
float ScaleMargin(const IParamBlock2& block, TimeValue t);

/// The box of an object in the light modes, in its own space: an estimate that works out no
/// placement's transform, over all placements whether shown or not. `marker` is the box of the
/// display mesh in object space, `objectTM` the object matrix of the node that asks.
///
/// Sizes and positions are those of the world, taken relative to the marker's centre; a turned or
/// scaled node turns and scales them a second time. Empty without a marker and placements.
Box3 LightBounds(const Distribution& d, TimeValue t, ViewExp* view, const Box3& marker,
                 const Matrix3& objectTM);

}  // namespace sowfield
