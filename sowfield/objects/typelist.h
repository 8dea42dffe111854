#pragma once

#include <span>

#include "sowfield/model/distribution.h"
#include "sowfield/sources/source.h"

namespace sowfield {

// The three changes of the type list. Each is one undo step in which Geo_Kind is the first table
// touched and Geo_Names the last; listReady is 0 from start to end, and the selection of both lists
// is reset. The layer of a node that joins the list is no part of the step.

/// Adds a node as a new type at the end of the list, "Adding Geo": its data, the pivot at the
/// bottom centre of its world box, its rows and random block. The first type sizes the brush. The
/// node must pass WhyNotASource; else nothing happens and false comes back.
bool AddType(Distribution& d, INode* node);

/// Adds several nodes in order, as choosing them by name does: then refreshes once. Nodes that
/// can't be sources are passed over; returns how many were added.
int AddTypesByName(Distribution& d, std::span<INode* const> nodes);

/// Gives the type of the selected row of the object list a new source, "Replace Geo". Its rows,
/// random values, share and placements stay. False, and nothing happens, unless one row of a type
/// is selected and the node passes WhyNotASource. Who picks the node refreshes afterwards.
bool ReplaceType(Distribution& d, INode* node);

/// Deletes the types of the selected rows of the object list with their placements, "Delete Geo",
/// and refreshes. Row 0 stands for no type. Returns how many went; without any nothing happens.
///
/// A source that leaves the list, here and in ReplaceType, stays in the scene on the default layer;
/// the mesh node made for a kind 3 type is deleted. One that a type still uses, of this object or
/// another, stays as it is.
int DeleteSelectedTypes(Distribution& d);

}  // namespace sowfield
