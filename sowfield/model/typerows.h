#pragma once

#include "sowfield/model/typedata.h"

namespace sowfield {

/// Appends slot 0 to the slot tables of an object that has none, and its random block; an object
/// that is set up stays as it is.
void AppendGlobalRow(Distribution& d);

/// Appends the rows of a new type, from Geo_Reserved_C to Tr_AnimMax, and its random block.
void AppendTypeRows(Distribution& d);

/// Puts new counts and samples of a type in the place of the old; the box stays.
void ReplaceSamples(Distribution& d, int type, const TypeData& data);

/// Puts new data of a type in the place of the old.
void ReplaceTypeData(Distribution& d, int type, const TypeData& data);

/// Removes an entry of Proxy_Files with its material, whose followers move down.
void RemoveProxyFile(Distribution& d, int file);

/// Removes a type with its source, its rows, its random block and its placements from all tables:
/// Geo_Kind is the first touched and Geo_Names the last. Placements of higher types go down by one.
/// Display_Type follows the type that it shows, and shows all when that goes. Nodes stay in the
/// scene. Opens no undo step. Those who hear of each table hear of the shares in
/// front of the boxes where the user asked for it, and behind the counts where its node went.
enum class RemovedBecause { Asked, NodeWent };
void RemoveType(Distribution& d, const TypeRef& type, RemovedBecause why);

/// Shows all types where Display_Type names one that isn't there: it may have been written outside
/// the step whose undo or redo takes the type away.
void FitShownType(Distribution& d);

/// Removes every type one of whose nodes went, which its tables show as null; of the two nodes of a
/// kind 3 type the other one is deleted from the scene. Then refreshes.
void RemoveNulledTypes(Distribution& d);

}  // namespace sowfield
