#pragma once

#include <memory>

#include "host/scene/instancesource.h"
#include "sowfield/model/distribution.h"

namespace sowfield {

/// The placements of a distribution at t for viewers that know nothing of it: types as groups,
/// with their sources' whole meshes, placements as instances in world space, in the order of the
/// tables. Null without placements, without a node of its own, and while the tables disagree.
///
/// Animation offsets take no part: a type shows its source at t.
std::unique_ptr<InstanceSet> MakeViewerInstances(Distribution& d, TimeValue t);

}  // namespace sowfield
