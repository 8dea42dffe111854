#pragma once

#include <string>

#include "host/core/paramblock.h"
#include "sowfield/model/params.h"

class INode;

namespace sowfield {

/// Names the first thing in which the tables disagree or hold what would do harm, with the table,
/// what was found and what was expected; empty when all is well. Holds between operations, for an
/// object that was never set up (all tables empty) too. What nobody reads may hold anything.
std::string FirstBreach(const IParamBlock2& block);
/// The same of a block that was read and isn't in use yet, or is about to be stored: the N rows may
/// all be missing, since UpgradeNormalRows makes them, and the user's settings may hold anything,
/// since every opening mends them (RepairSettings).
std::string FirstBreachAsStored(const IParamBlock2& block);

/// The hard range of a number in this block: an index ends with the table that it points into.
Range HardRangeIn(const IParamBlock2& block, const ParamEntry& e);

/// Whether a node may stand for a type: not null, and no Sowfield object, which could be its own
/// source, round about, and would be built without end.
bool CanBeSource(const INode* node);

}  // namespace sowfield
