#pragma once

#include <vector>

#include "host/exchange/importplan.h"

class INode;
class Interface;
class Mtl;

namespace host {

/// Checks what moves in a plan: tracks, skins, morph targets and frames. Throws ImportFault, which
/// names the node or the mesh, for times that don't rise, values that aren't finite, lists whose
/// lengths don't fit, and bones out of range.
void CheckMotion(const ImportPlan& plan);

/// Brings a top node's matrix and tracks to the scene's axes and unit: a quarter turn about X (+Y
/// to +Z) if asked for, then `scale` about the origin.
void TurnTopNode(PlannedNode& node, bool quarter, float scale);

/// Makes the nodes of a checked plan, in its order. `materials` has one for each of the plan's,
/// null for those that no mesh shows. The animation range grows to hold the motion.
std::vector<INode*> AddToScene(Interface& ip, ImportPlan& plan, const std::vector<Mtl*>& materials);

}  // namespace host
