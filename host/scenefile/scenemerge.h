#pragma once

#include "host/scenefile/scenebuild.h"
#include "host/scenefile/scenefile.h"

namespace host {

/// Moves the nodes of a scene that was read into the one in force.
MergedScene Adopt(Interface& ip, OpenedScene& opened);

}  // namespace host
