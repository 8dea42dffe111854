#include "sowfield/objects/proxyfiles.h"

#include <algorithm>
#include <filesystem>

#include "host/math/wstr.h"

namespace sowfield {

// Paths come with either separator.
bool MoksetFileExists(const WStr& path) {
  WStr slashed = path;
  std::replace(slashed.begin(), slashed.end(), L'\\', L'/');
  std::error_code error;
  return std::filesystem::is_regular_file(ToUtf8(slashed), error);
}

bool AllMoksetFilesExist(const Distribution& d) {
  const std::span<const WStr> paths = d.block->Strings(Proxy_Files);
  return std::all_of(paths.begin(), paths.end(), MoksetFileExists);
}

}  // namespace sowfield
