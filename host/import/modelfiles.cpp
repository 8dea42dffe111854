#include "host/import/modelfiles.h"

#define STB_IMAGE_IMPLEMENTATION
#define STB_IMAGE_STATIC
#define STBI_NO_STDIO
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"  // in the library's header
#endif
#include <stb_image.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <filesystem>

#include "host/files/file.h"

namespace host {

namespace {

namespace fs = std::filesystem;

constexpr size_t kLargestPicture = size_t(1) << 30;

std::string Lower(std::string text) {
  for (char& c : text) c = c >= 'A' && c <= 'Z' ? char(c + 32) : c;
  return text;
}

bool HoldsPictures(const fs::path& folder) {
  const std::string name = Lower(folder.filename().string());
  for (const char* known : {"texture", "map", "image", "picture", "material"})
    if (name == known || name == std::string(known) + "s") return true;
  return name == "tex";
}

bool LeadsOut(const std::string& name) {
  return ("/" + name + "/").find("/../") != std::string::npos;
}

}  // namespace

std::string BaseNameOf(const std::string& path) {
  const size_t cut = path.find_last_of("/\\");
  return cut == std::string::npos ? path : path.substr(cut + 1);
}

std::string ExtensionOf(const std::string& path) {
  const std::string name = BaseNameOf(path);
  const size_t dot = name.rfind('.');
  return dot == std::string::npos ? "" : Lower(name.substr(dot));
}

std::string UriOf(const std::string& path) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string uri;
  for (const char c : path) {
    const auto u = static_cast<unsigned char>(c);
    if ((u < 128 && std::isalnum(u)) || std::strchr("-_.~/", c)) {
      uri += c;
    } else {
      uri += {'%', kHex[u >> 4], kHex[u & 15]};
    }
  }
  return uri;
}

void ModelFolder::List() {
  listed_ = true;
  std::error_code code;
  std::vector<fs::path> folders;
  const auto listFiles = [&](const fs::path& folder) {
    // In the order of names, so that the same file is found on any file system.
    std::vector<fs::path> entries;
    for (fs::directory_iterator it(folder, code), end; !code && it != end; it.increment(code))
      entries.push_back(it->path());
    std::sort(entries.begin(), entries.end());
    for (const fs::path& entry : entries) {
      if (fs::is_regular_file(entry, code))
        byName_.emplace(Lower(entry.filename().string()), entry.string());
      else if (HoldsPictures(entry) && fs::is_directory(entry, code))
        folders.push_back(entry);
    }
  };
  listFiles(folder_);
  const std::vector<fs::path> below = folders;  // listing these finds more, which stay
  for (const fs::path& folder : below) listFiles(folder);
}

std::string ModelFolder::Find(const std::string& name, bool mayLeave) {
  if (folder_.empty() || name.empty() || name.find('\0') != std::string::npos) return {};
  std::string slashed = name;
  std::replace(slashed.begin(), slashed.end(), '\\', '/');
  if (slashed.rfind("//", 0) == 0) slashed.erase(0, 2);  // how Blender says "from here"
  std::error_code code;
  if (slashed[0] != '/' && (mayLeave || !LeadsOut(slashed))) {
    const std::string path = folder_ + "/" + slashed;
    if (fs::is_regular_file(path, code)) return path;
  }
  if (!listed_) List();
  const auto found = byName_.find(Lower(BaseNameOf(name)));
  return found == byName_.end() ? "" : found->second;
}

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
