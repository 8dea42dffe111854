#include "host/scenefile/scenepaths.h"

#include <algorithm>

#include "host/files/file.h"

namespace host {

namespace fs = std::filesystem;

namespace {

constexpr std::wstring_view kHere = L"./";

// Empty for what doesn't lie in the folder or below.
fs::path Below(const fs::path& path, const fs::path& folder) {
  const fs::path near = path.lexically_relative(folder);
  return near.empty() || *near.begin() == ".." || *near.begin() == "." ? fs::path() : near;
}

}  // namespace

ScenePaths::ScenePaths(const std::string& scene) {
  if (scene.empty()) return;
  std::error_code code;
  folder_ = fs::absolute(FileBehind(scene), code).parent_path();
  if (std::find(folder_.begin(), folder_.end(), "..") == folder_.end()) return;
  if (const fs::path real = fs::weakly_canonical(folder_, code); !code) folder_ = real;
}

const fs::path& ScenePaths::RealFolder(const fs::path& folder) {
  const auto [found, isNew] = real_.try_emplace(folder);
  std::error_code code;
  if (isNew) found->second = fs::weakly_canonical(folder, code);
  return found->second;
}

WStr ScenePaths::Stored(const WStr& path) {
  const fs::path full = ToUtf8(path);
  if (folder_.empty() || !full.is_absolute()) return path;
  fs::path near = Below(full, folder_);
  // A folder may have several names through links; the file itself may be one that stays one.
  if (near.empty())
    near = Below(RealFolder(full.parent_path()) / full.filename(), RealFolder(folder_));
  return near.empty() ? path : WStr(kHere) + FromUtf8(near.string());
}

WStr ScenePaths::InMemory(const WStr& stored) const {
  if (folder_.empty() || !stored.starts_with(kHere)) return stored;
  const WStr folder = FromUtf8(folder_.string());
  if (ToUtf8(folder) != folder_.string()) return stored;
  return folder + (folder.ends_with(L'/') ? L"" : L"/") + stored.substr(kHere.size());
}

}  // namespace host
