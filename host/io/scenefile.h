#pragma once

#include <cstddef>
#include <functional>
#include <span>
#include <string>
#include <vector>

class INode;
class Interface;
class Scene;

namespace host {

/// Scene files: binary glTF 2.0, in which any viewer shows the scene and which hold all of it.
/// docs/scene-format.md describes the form.

struct SaveOptions {
  bool backup = false;  // keep the old file, see SafeFile::Commit
};

/// Saves the whole scene: nodes, objects, materials, layers, time range, units. The bytes depend
/// on the scene alone, not on views or on what is drawn. On failure the old file is untouched and
/// `error` is one line with the path and the reason.
bool SaveScene(Interface& ip, const std::string& path, const SaveOptions& options,
               std::string& error);

/// The same into memory; `path` is where the bytes will lie.
bool SaveSceneBytes(Interface& ip, const std::string& path, std::vector<std::byte>& bytes,
                    std::string& error);

struct OpenOptions {
  /// Looks at the scene once it is in its place and complete. A text that isn't empty refuses it:
  /// the old one comes back.
  std::function<std::string(Scene&)> accept;
};

/// Opens a scene file in place of the scene, which goes with its undo steps. Everything is checked
/// while the new scene is built beside the old one: on failure the old one and its undo stay as
/// they were, and `error` is one line that names the damage. No step may be open.
bool OpenScene(Interface& ip, const std::string& path, const OpenOptions& options,
               std::string& error);
/// The same for a file in memory; `name` stands for the path in messages.
bool OpenSceneBytes(Interface& ip, std::span<const std::byte> bytes, const std::string& name,
                    const OpenOptions& options, std::string& error);

/// Whether a file is, or was before it was damaged, a scene that this program saved.
bool LooksLikeScene(const std::string& path);

}  // namespace host
