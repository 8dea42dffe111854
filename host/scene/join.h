#pragma once

#include <span>
#include <string>

#include "host/scene/scene.h"

namespace host {

/// Replaces nodes by one that holds all their meshes, as a model of many parts is made one object:
/// standing upright at the bottom centre of the parts' world box, with a multi material over their
/// materials. Map channel 1 and smoothing are kept, mirrored parts are turned the right way round.
/// Null, and nothing changes, if no node gives a mesh or the parts are too many for one mesh. The
/// parts leave the scene with their children's places kept.
INode* JoinNodes(Scene& scene, std::span<INode* const> parts, const WStr& name, TimeValue t);

}  // namespace host
