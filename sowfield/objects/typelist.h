#pragma once

#include <span>
#include <string>

#include "sowfield/model/distribution.h"

namespace sowfield {

/// Why a node can't become an object type; empty if it can. A source is a geometry object other
/// than a Sowfield object whose mesh is sound and has a vertex, under a node matrix that can be
/// undone. Proxy classes are told as not available.
std::string WhyNotASource(INode* node, TimeValue t);

/// Adds a node as a new type at the end of the list, as one undo step "Adding Geo": its data, the
/// pivot at the bottom centre of its world box, its rows and random block. The first type sizes
/// the brush. The node must pass WhyNotASource; else nothing happens and false comes back.
bool AddType(Distribution& d, INode* node);

/// Adds several nodes in order, as choosing them by name does: then refreshes once. Nodes that
/// can't be sources are passed over; returns how many were added.
int AddTypesByName(Distribution& d, std::span<INode* const> nodes);

}  // namespace sowfield
