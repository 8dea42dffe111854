#pragma once

#include <filesystem>
#include <map>
#include <string>

#include "host/math/wstr.h"

namespace host {

/// Paths of files as a scene file holds them. In memory they are absolute. Those in the folder of
/// the scene file or below are stored from there, as "./trees/oak.Vorn" with slashes, so that a
/// folder moves with its scene; all others are stored as they are. A link to a scene file counts as
/// the file.
class ScenePaths {
 public:
  /// `scene` is the scene file; it need not be there. Without one all paths stay as they are.
  explicit ScenePaths(const std::string& scene);
  WStr Stored(const WStr& path);
  /// A stored path stays as it is where the folder's name isn't UTF-8.
  WStr InMemory(const WStr& stored) const;

 private:
  const std::filesystem::path& RealFolder(const std::filesystem::path& folder);

  std::filesystem::path folder_;
  std::map<std::filesystem::path, std::filesystem::path> real_;  // by folder
};

}  // namespace host
