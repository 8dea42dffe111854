#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "host/gltf/glb.h"

class INode;
class Interface;

namespace host {

/// Adds what any glTF viewer shows: nodes, meshes, instances, materials with their pictures,
/// cameras and motion, +Y up and in metres. All of it is made from the scene and none of it is read
/// back.
///
/// A matrix that isn't a scale, a rotation and a translation stands as the nearest one, and what is
/// missing is worked into a mesh of the node's own. Meshes stand as they are at time 0 but for
/// morph targets and bones; hidden nodes show none. Meshes that aren't sound are left out. `path`
/// is where the file will lie.
void AddViewerScene(Interface& ip, const std::vector<INode*>& nodes, const std::string& path,
                    BinaryParts& parts, nlohmann::json& root);

}  // namespace host
