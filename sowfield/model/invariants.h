#pragma once

#include <string>

#include "host/core/paramblock.h"

class INode;

namespace sowfield {

/// Names the first thing in which the tables disagree, with the table, what was found and what was
/// expected; empty when all is well. Holds between operations, for an object that was never set up
/// (all tables empty) too.
std::string FirstBreach(const IParamBlock2& block);
/// The same of a block that was read and isn't in use yet: the N rows may all be missing, since
/// UpgradeNormalRows makes them.
std::string FirstBreachAsStored(const IParamBlock2& block);

/// Whether a node may stand for a type: not null, and no Sowfield object, which could be its own
/// source, round about, and would be built without end.
bool CanBeSource(const INode* node);

}  // namespace sowfield
