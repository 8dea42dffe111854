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
  static constexpr size_t kLeastBytes = size_t(64) << 20;
  static constexpr double kMostSeconds = 86400;
  /// Which axis of the file points up in the scene.
  enum class Up { FromFormat, Y, Z } up = Up::FromFormat;
  /// Scene units per file unit, after the format's own unit; finite and above 0.
  double scale = 1;
  /// What reading a file may take: bytes of address space, from kLeastBytes up, and seconds, above
  /// 0 to kMostSeconds.
  size_t mostBytes = size_t(4) << 30;
  double mostSeconds = 60;
};

struct ImportResult {
  /// All nodes that were added, parents before children.
  std::vector<INode*> nodes;
  /// One line each.
  std::vector<std::string> warnings;
};

/// Adds the nodes of a model file to the scene: glTF 2 (.gltf, .glb), and whatever assimp reads
/// (.fbx, .dae, .obj, .blend, .3ds, .ply, .stl and so on). The file is read in a child process
/// under the limits of the options.
///
/// Names, hierarchy, transforms, perspective cameras, the first animation, skins and morph targets
/// come along; materials with their diffuse colour, and its picture where one is found. Points and
/// lines don't; what is left out is warned of. Nodes that hold nothing, such as lights, and a root
/// that only holds the others together come from glTF alone.
///
/// Where file or format names a unit, it is brought to the master unit; else a file unit is a scene
/// unit. Up axis and scale go into the top nodes; vertices stay as in the file, where those of one
/// position are one vertex unless something moves them apart. Texture coordinates go to map channel
/// 1 and on, v from the bottom up. A face whose corner normals all follow its own is flat
/// (smoothing group 0), any other one has group 1; without normals all are flat. Diagonals of
/// polygons are hidden edges, but in glTF. A camera without an aspect ratio gets 4 to 3.
///
/// On failure nothing was added and `error` is one line that names the thing and the reason.
std::optional<ImportResult> ImportModel(Interface& ip, const std::string& path,
                                        const ImportOptions& options, std::string& error);

/// The same for a glTF in memory, GLB or JSON, read in this process. Files that it refers to are an
/// error.
std::optional<ImportResult> ImportGltfBytes(Interface& ip, std::span<const std::byte> bytes,
                                            const ImportOptions& options, std::string& error);

/// The same for an OBJ in memory, read in this process. Its material libraries are not read.
std::optional<ImportResult> ImportObjBytes(Interface& ip, std::span<const std::byte> bytes,
                                           const ImportOptions& options, std::string& error);

}  // namespace host
