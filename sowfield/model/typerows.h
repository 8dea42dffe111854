#pragma once

#include "sowfield/model/distribution.h"

namespace sowfield {

/// Appends slot 0 to the slot tables of an object that has none, and its random block; an object
/// that is set up stays as it is.
void AppendGlobalRow(Distribution& d);

/// Appends the rows of a new type, from Geo_Reserved_C to Tr_AnimMax, and its random block.
void AppendTypeRows(Distribution& d);

/// Removes a type with its rows, its placements and its random block: Geo_Kind is the first table
/// touched and Geo_Names the last. Placements of higher types go down by one. The two nodes of a
/// kind 3 type go together: its original is deleted from the scene. Opens no undo step.
void RemoveType(Distribution& d, const TypeRef& type);

/// Removes every type whose entry in Geo_Nodes is null, because the node went; then refreshes.
void RemoveNulledTypes(Distribution& d);

}  // namespace sowfield
