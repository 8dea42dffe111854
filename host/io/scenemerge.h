#pragma once

#include "host/io/scenebuild.h"
#include "host/io/scenefile.h"

namespace host {

/// Moves the nodes of a scene that was read into the one in force.
MergedScene Adopt(Interface& ip, OpenedScene& opened);

}  // namespace host
