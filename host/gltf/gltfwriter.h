#pragma once

#include <memory>
#include <string>
#include <vector>

#include "host/exchange/exportplan.h"
#include "host/gltf/glb.h"

namespace host {

/// The extension by which viewers show instances.
inline constexpr const char* kInstancingExtension = "EXT_mesh_gpu_instancing";

/// Where a document will lie.
struct GltfPlace {
  std::string path;            // pictures that stay files are named as seen from its folder
  bool holdsPictures = false;  // the files of pictures are taken into its bytes
};

/// What a document needs to show a plan.
struct GltfMembers {
  std::string text;  // members of the document as JSON, with no braces round them
  bool hasInstances = false;
  std::vector<std::string> warnings;  // pictures that aren't shown, a line each
};

/// +Y is up and units are metres. Arrays of equal bytes are one, and few buffer views hold all of
/// them. Textures show PNG and JPEG alone; where a picture can't be shown, its material has its
/// colour. The plan stays until `parts` were written.
GltfMembers GltfMembersOf(const std::shared_ptr<const ExportPlan>& plan, const GltfPlace& place,
                          BinaryParts& parts);

/// The members that tell where the bytes of a document lie, the buffer first, as text without
/// braces; empty where there are none. `uri` is that of the file that holds them, empty for those
/// of a .glb.
std::string GltfBuffersOf(const BinaryParts& parts, const std::string& uri);

enum class GltfForm { Json, Binary };

/// A document that is whole in one file, the .gltf with its bytes as base64. False, with `error`
/// told, for a plan without meshes and one that is too large for the format.
bool GltfFileOf(const std::shared_ptr<const ExportPlan>& plan, GltfForm form, std::string& bytes,
                std::string& error);

}  // namespace host
