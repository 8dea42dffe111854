#pragma once

#include <vector>

#include "host/exchange/exportplan.h"

class INode;
class Interface;

namespace host {

/// Gathers what other programs are shown of nodes of the scene, parents before their children.
///
/// A matrix that isn't a scale, a rotation and a translation stands as the nearest one, and what is
/// missing is worked into a mesh of the node's own. Meshes stand as they are at time 0 but for
/// morph targets and bones; hidden nodes show none. Meshes that aren't sound are left out.
/// Instances are worked out when they are written: until then neither the scene nor its files may
/// change.
ExportPlan PlanOfScene(Interface& ip, const std::vector<INode*>& nodes);

}  // namespace host
