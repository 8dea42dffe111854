#include "host/files/modelfiles.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <filesystem>
#include <vector>

namespace host {

namespace {

namespace fs = std::filesystem;

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

std::string DecodePercent(const std::string& text) {
  const auto digit = [](char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
  };
  std::string out;
  for (size_t i = 0; i < text.size(); ++i) {
    const bool coded =
        text[i] == '%' && i + 2 < text.size() && digit(text[i + 1]) >= 0 && digit(text[i + 2]) >= 0;
    out += coded ? char(digit(text[i + 1]) * 16 + digit(text[i + 2])) : text[i];
    if (coded) i += 2;
  }
  return out;
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

}  // namespace host
