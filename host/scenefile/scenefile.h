#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

class INode;
class Interface;

namespace host {

/// Scene files: binary glTF 2.0, in which any viewer shows the scene and which hold all of it.
/// docs/scene-format.md describes the form.

struct SaveOptions {
  bool backup = false;  // keep the old file, see SafeFile::Commit
  /// A scene whose .glb would be larger than this, or than a .glb can be, becomes a pair of files.
  size_t mostGlbBytes = 0xFFFFFFFF;
};

/// What a save has written.
struct SavedScene {
  std::string path;  // the one that was asked for, or that of the .gltf of a pair
  size_t bytes = 0;  // of all files
  /// Pictures that other programs won't see, a line each.
  std::vector<std::string> warnings;
};

/// Saves the whole scene: nodes, objects, materials, layers, time range, units. The bytes depend
/// on the scene alone, not on views or on what is drawn. A path that ends in .gltf gets a pair of
/// files; so does one of a .glb that would be too large, and then `saved` tells the path. No step
/// may be open. On failure the old file is untouched and `error` is one line with the path and the
/// reason; one is an object that could not be opened again (ClassDesc2::FirstFault).
bool SaveScene(Interface& ip, const std::string& path, const SaveOptions& options,
               std::string& error, SavedScene* saved = nullptr);

/// The same into memory; `path` is where the bytes will lie.
bool SaveSceneBytes(Interface& ip, const std::string& path, std::vector<std::byte>& bytes,
                    std::string& error);

struct OpenOptions {
  /// Recovers what can be read of a damaged file, as long as its description is whole, and lists
  /// what was dropped or changed, one line each: empty for a sound file.
  std::vector<std::string>* recover = nullptr;
  /// Gets a line for each value that an object's class has changed (ClassDesc2::Settle).
  std::vector<std::string>* settled = nullptr;
};

/// Stands in the line of an object that its class couldn't repair (ClassDesc2::Repair): it is
/// dropped.
inline constexpr std::string_view kBeyondRepair = "it is beyond repair";

/// Opens a scene file in place of the scene, which goes with its undo steps. Everything is checked
/// while the new scene is built beside the old one: on failure the old one and its undo stay as
/// they were, and `error` is one line that names the damage. No step may be open.
bool OpenScene(Interface& ip, const std::string& path, const OpenOptions& options,
               std::string& error);
/// The same for a file in memory; `name` stands for the path in messages.
bool OpenSceneBytes(Interface& ip, std::span<const std::byte> bytes, const std::string& name,
                    const OpenOptions& options, std::string& error);

/// What a merge brought.
struct MergedScene {
  size_t nodes = 0;
  std::vector<std::pair<std::wstring, std::wstring>> renamed;  // names in the file and here
  std::string warning;  // one line, where the file has other units: numbers stay as they are
};

/// Adds the nodes of a scene file, and all that they refer to, to the scene, which keeps its time,
/// range, units, current layer and undo steps; the merge is none of them. A name that is taken gets
/// a number; layers of one name become one, as it is here. Reads and fails as OpenScene does.
bool MergeScene(Interface& ip, const std::string& path, const OpenOptions& options,
                MergedScene& merged, std::string& error);
bool MergeSceneBytes(Interface& ip, std::span<const std::byte> bytes, const std::string& name,
                     const OpenOptions& options, MergedScene& merged, std::string& error);

/// Whether a file is, or was before it was damaged, a scene that this program saved.
bool LooksLikeScene(const std::string& path);

}  // namespace host
