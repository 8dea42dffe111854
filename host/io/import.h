#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <vector>

class INode;
class Interface;

namespace host {

struct ImportOptions {
  /// Which axis of the file points up in the scene; both formats have Y up.
  enum class Up { FromFormat, Y, Z } up = Up::FromFormat;
  /// Scene units per file unit, after the format's own unit; finite and above 0.
  double scale = 1;
};

struct ImportResult {
  /// All nodes that were added, parents before children.
  std::vector<INode*> nodes;
  /// One line each.
  std::vector<std::string> warnings;
};

/// Adds the nodes of a model file to the scene: glTF 2 (.gltf, .glb; metres, brought to the master
/// unit) or OBJ (.obj; a file unit is a scene unit). Names, hierarchy, transforms, base colours and
/// perspective cameras come along; textures, animations, skins and morphs don't, and are warned of.
///
/// The up axis and the scale go into the matrices of the nodes without a parent; vertices stay as
/// in the file, where those of one position are one vertex. Texture coordinates go to map channel
/// 1, v from the bottom up. A face whose corner normals all follow its own is flat (smoothing group
/// 0), any other one has group 1; without normals all are flat. The
/// diagonals of an OBJ's quads are hidden edges. A camera without an aspect ratio
/// gets 4 to 3.
///
/// On failure nothing was added and `error` is one line that names the thing and the reason.
std::optional<ImportResult> ImportModel(Interface& ip, const std::string& path,
                                        const ImportOptions& options, std::string& error);

/// The same for a glTF in memory, GLB or JSON. Files that it refers to are an error.
std::optional<ImportResult> ImportGltfBytes(Interface& ip, std::span<const std::byte> bytes,
                                            const ImportOptions& options, std::string& error);

/// The same for an OBJ in memory. Its material libraries are not read.
std::optional<ImportResult> ImportObjBytes(Interface& ip, std::span<const std::byte> bytes,
                                           const ImportOptions& options, std::string& error);

}  // namespace host
