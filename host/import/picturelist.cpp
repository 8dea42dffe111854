#include "host/import/picturelist.h"

#define STB_IMAGE_IMPLEMENTATION
#define STB_IMAGE_STATIC
#define STBI_NO_STDIO
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"  // in the library's header
#endif
#include <stb_image.h>

#include <utility>

#include "host/files/file.h"

namespace host {

namespace {

constexpr size_t kLargestPicture = size_t(1) << 30;

}  // namespace

int PictureList::Refuse(const std::string& name, const std::string& reason) {
  plan_.warnings.push_back("the picture \"" + name + "\" is not shown: " + reason);
  return -1;
}

int PictureList::Add(const std::string& name, const std::string& path,
                     std::vector<std::byte> bytes) {
  int width = 0, height = 0, channels = 0;
  const auto* first = reinterpret_cast<const stbi_uc*>(bytes.data());
  if (bytes.size() > kLargestPicture ||
      !stbi_info_from_memory(first, int(bytes.size()), &width, &height, &channels) || width < 1 ||
      height < 1)
    return Refuse(name, "it is no PNG, JPEG, TGA, BMP, PSD, GIF, HDR, PIC or PNM");
  if (!path.empty()) bytes.clear();
  plan_.images.push_back({BaseNameOf(name), path, std::move(bytes)});
  return int(plan_.images.size()) - 1;
}

int PictureList::FromFile(const std::string& name) {
  const auto [known, isNew] = byName_.try_emplace(name, -1);
  if (!isNew) return known->second;
  const std::string path = folder_.Find(name, true);
  if (path.empty()) return Refuse(name, "there is no such file");
  std::vector<std::byte> bytes;
  std::string error;
  if (!ReadFile(path, bytes, error)) return Refuse(name, error);
  return known->second = Add(name, path, std::move(bytes));
}

int PictureList::FromBytes(const std::string& name, std::vector<std::byte> bytes) {
  const auto [known, isNew] = byName_.try_emplace(name, -1);
  return isNew ? known->second = Add(name, "", std::move(bytes)) : known->second;
}

}  // namespace host
