#pragma once

#include <string>
#include <vector>

#include "host/core/paramblock.h"

namespace sowfield {

/// Brings the tables of a block that a damaged scene has brought to agree, so that
/// FirstBreachAsStored finds nothing. Types without a source go, and with them their placements, as
/// do placements without a position or with a type that isn't there. Rows and entries that are
/// missing get their default or 0. Of values out of their hard range an amount takes the nearest
/// that is allowed, any other number its default, Display_Mode Dot. Tells each change in a line
/// with the table and the numbers; none for a block that is sound.
///
/// Messages are sent on the way, while the tables disagree: the owner must not be shown yet.
std::vector<std::string> RepairTables(IParamBlock2& block);

/// Mends the user's settings that would do harm, and tells them in the same way: no scene is
/// refused for one of them. Does nothing where the tables disagree.
std::vector<std::string> RepairSettings(IParamBlock2& block);

}  // namespace sowfield
