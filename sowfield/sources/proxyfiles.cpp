#include "sowfield/sources/proxyfiles.h"

#include <algorithm>
#include <filesystem>

#include "sowfield/proxy/moksetfile.h"

namespace sowfield {

bool MoksetFileExists(const WStr& path) {
  std::error_code error;
  return std::filesystem::is_regular_file(NativePathOf(path), error);
}

bool AllMoksetFilesExist(const Distribution& d) {
  const std::span<const WStr> paths = d.block->Strings(Proxy_Files);
  return std::all_of(paths.begin(), paths.end(), MoksetFileExists);
}

}  // namespace sowfield
