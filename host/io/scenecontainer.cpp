#include "host/io/scenecontainer.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <tuple>
#include <vector>

#include "host/io/gltfmodel.h"
#include "host/io/modelfiles.h"
#include "host/io/scenefile.h"
#include "host/io/scenevalues.h"

namespace host {

namespace fs = std::filesystem;

namespace {

constexpr std::string_view kBinEnding = ".bin";
constexpr size_t kDigits = 16;  // two checksums
// As the text is written, nothing in quotes can look like this, and it stands before any other.
constexpr std::string_view kBufferMark = "\"buffers\":[{\"byteLength\":", kUriMark = ",\"uri\":\"";

std::string BinEndingOf(const std::string& digits) {
  return "." + digits + std::string(kBinEnding);
}

std::string StemOf(const std::string& path) { return fs::path(FileBehind(path)).stem().string(); }

std::string FolderOf(const std::string& path) {
  const fs::path folder = fs::path(FileBehind(path)).parent_path();
  return folder.empty() ? "." : folder.string();
}

// What the text says of its buffer.
struct BufferPlace {
  size_t bytes = 0;
  size_t uriAt = 0, uriSize = 0;  // in the text
};

bool FindBuffer(const std::string& text, BufferPlace& place) {
  const size_t mark = text.find(kBufferMark);
  if (mark == std::string::npos) return false;
  size_t at = mark + kBufferMark.size();
  for (; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at)
    place.bytes = place.bytes * 10 + size_t(text[at] - '0');
  if (text.compare(at, kUriMark.size(), kUriMark) != 0) return false;
  place.uriAt = at + kUriMark.size();
  const size_t end = text.find('"', place.uriAt);
  place.uriSize = end - place.uriAt;
  return end != std::string::npos;
}

std::string NameOf(const std::string& text, const BufferPlace& place) {
  return DecodePercent(text.substr(place.uriAt, place.uriSize));
}

/// The text first, the bytes behind it.
class PairSource : public ByteSource {
 public:
  bool Open(const std::string& path, std::string& error);

  size_t Size() const override { return text_.Size() + bin_.Size(); }
  bool Read(size_t offset, std::span<std::byte> bytes) const override {
    const size_t first =
        offset < text_.Size() ? std::min(text_.Size() - offset, bytes.size()) : size_t(0);
    if (first > 0 && !text_.Read(offset, bytes.first(first))) return false;
    if (first == bytes.size()) return true;
    return bin_.Read(offset + first - text_.Size(), bytes.subspan(first));
  }
  bool Content(GlbContent& content, std::string& why) const;

 private:
  bool ReadText(std::string& text) const {
    text.resize(text_.Size());
    return text_.Read(0, std::as_writable_bytes(std::span(text)));
  }
  FileSource text_, bin_;
};

bool PairSource::Open(const std::string& path, std::string& error) {
  std::string text;
  BufferPlace buffer;
  if (!text_.Open(path, error)) return false;
  if (!ReadText(text)) {
    error = "cannot read \"" + path + "\": " + std::strerror(errno ? errno : EIO);
    return false;
  }
  if (!FindBuffer(text, buffer)) return true;  // a scene without bytes, or none at all
  const std::string name = NameOf(text, buffer);
  if (name.empty() || name == "." || name == ".." || name.find('/') != std::string::npos ||
      name.find('\0') != std::string::npos) {
    error = "cannot open \"" + path + "\": its bytes lie in \"" + name +
            "\", which is no file beside it";
    return false;
  }
  std::string why;
  if (bin_.Open(FolderOf(path) + "/" + name, why)) return true;
  error = "cannot open \"" + path + "\", whose bytes lie in another file: " + why;
  return false;
}

bool PairSource::Content(GlbContent& content, std::string& why) const {
  GlbContent found;
  if (!ReadText(found.json)) {
    why = std::strerror(errno ? errno : EIO);
    return false;
  }
  BufferPlace buffer;
  if (!FindBuffer(found.json, buffer)) buffer = {};
  found.binOffset = text_.Size();
  found.binSize = bin_.Size();
  if (found.binSize != buffer.bytes) {
    why = "\"" + NameOf(found.json, buffer) + "\" beside it has " + std::to_string(found.binSize) +
          " bytes, expected " + std::to_string(buffer.bytes);
    return false;
  }
  content = std::move(found);
  return true;
}

// Whether any of the texts stands within the first bytes.
bool Holds(const ByteSource& source, size_t limit, std::initializer_list<std::string_view> texts) {
  constexpr size_t kPiece = size_t(1) << 20, kOverlap = 64;
  std::string piece;
  for (size_t at = 0; at < limit; at += kPiece) {
    piece.resize(std::min(kPiece + kOverlap, limit - at));
    if (!source.Read(at, std::as_writable_bytes(std::span(piece)))) return false;
    for (const std::string_view text : texts)
      if (piece.find(text) != std::string::npos) return true;
  }
  return false;
}

// The digits of a file of bytes that belongs to a pair of this stem; empty for any other file.
std::string DigitsOf(const std::string& name, const std::string& stem) {
  const size_t at = stem.size() + 1, size = at + kDigits + kBinEnding.size();
  if (name.size() != size || !name.starts_with(stem + ".") || !name.ends_with(kBinEnding))
    return "";
  const std::string digits = name.substr(at, kDigits);
  const bool all = digits.find_first_not_of("0123456789abcdef") == std::string::npos;
  return all ? digits : "";
}

std::vector<std::string> NamesIn(const std::string& folder) {
  std::vector<std::string> names;
  std::error_code code;
  for (fs::directory_iterator it(folder, code), end; !code && it != end; it.increment(code))
    names.push_back(it->path().filename().string());
  return names;
}

bool IsFile(const std::string& path) {
  struct stat info {};
  return ::stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode);
}

// Removes those of the files of bytes that no .gltf in the folder names; one that can't be read may
// name any.
void RemoveForgotten(const std::string& folder, std::vector<std::string> bins,
                     const std::string& stem) {
  for (const std::string& name : NamesIn(folder)) {
    if (name.find(".gltf") == std::string::npos || !IsFile(folder + "/" + name)) continue;
    FileSource file;
    std::string why;
    if (!file.Open(folder + "/" + name, why)) return;
    std::erase_if(bins, [&](const std::string& bin) {
      return Holds(file, file.Size(), {BinEndingOf(DigitsOf(bin, stem))});
    });
  }
  for (const std::string& bin : bins) ::unlink((folder + "/" + bin).c_str());
}

// The bytes of this stem's pairs, but for those of the new one.
std::vector<std::string> OtherBins(const std::string& folder, const std::string& stem,
                                   const std::string& newOne) {
  std::vector<std::string> bins = NamesIn(folder);
  std::erase_if(bins, [&](const std::string& name) {
    return DigitsOf(name, stem).empty() || name == newOne;
  });
  return bins;
}

// While it lasts no other save puts a pair into the folder: bytes that nothing names are left over.
class FolderLock {
 public:
  explicit FolderLock(const std::string& folder)
      : fd_(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
    if (fd_ < 0) return;
    int result;
    while ((result = ::flock(fd_, LOCK_EX)) != 0 && errno == EINTR) {
    }
    held_ = result == 0;
  }
  ~FolderLock() {
    if (fd_ >= 0) ::close(fd_);
  }
  FolderLock(const FolderLock&) = delete;
  FolderLock& operator=(const FolderLock&) = delete;
  /// Some file systems know no locks.
  bool Held() const { return held_; }

 private:
  int fd_;
  bool held_ = false;
};

bool WriteBytes(SafeFile& file, const BinaryParts& parts, std::uint32_t& sum) {
  return WriteParts(parts, [&](std::span<const std::byte> bytes) {
    sum = Crc32c(bytes, sum);
    return file.Write(bytes);
  });
}

}  // namespace

bool IsPairPath(const std::string& path) { return ExtensionOf(path) == ".gltf"; }

std::string PairPathFor(const std::string& path) {
  return ExtensionOf(path) == ".glb" ? path.substr(0, path.size() - 4) + ".gltf" : path + ".gltf";
}

std::string PairUriFor(const std::string& path) {
  return UriOf(StemOf(path) + BinEndingOf(std::string(kDigits, '0')));
}

bool WritePair(const std::string& path, std::string text, const BinaryParts& parts, bool backup,
               const std::function<void(std::string&)>& seal, size_t& written, std::string& error) {
  RemoveLeftovers(path);
  SafeFile bytes(path), description(path);
  const auto fail = [&](const SafeFile& file) {
    error = file.Error().empty() ? "cannot save \"" + path + "\": a table changed its size"
                                 : file.Error();
    return false;
  };
  std::string name;
  if (BufferPlace buffer; FindBuffer(text, buffer)) {
    std::uint32_t sum = 0;
    if (!bytes.Open() || !WriteBytes(bytes, parts, sum) || !bytes.Sync()) return fail(bytes);
    const std::string digits = CrcText(Crc32c(std::as_bytes(std::span(text)))) + CrcText(sum);
    text.replace(buffer.uriAt + buffer.uriSize - kBinEnding.size() - kDigits, kDigits, digits);
    name = StemOf(path) + BinEndingOf(digits);
  }
  seal(text);
  if (!description.Open() || !description.Write(std::as_bytes(std::span(text))) ||
      !description.Sync())
    return fail(description);

  const std::string folder = FolderOf(path), stem = StemOf(path), bin = folder + "/" + name;
  const FolderLock lock(folder);
  std::vector<std::string> others = OtherBins(folder, stem, name);
  struct stat info {};
  const bool fresh = !name.empty() && ::lstat(bin.c_str(), &info) != 0;
  const auto takeBack = [&](const SafeFile& file) {
    if (fresh) ::unlink(bin.c_str());
    return fail(file);
  };
  if (!name.empty() && !bytes.CommitAs(name)) return takeBack(bytes);
  if (!description.Commit(backup))
    return description.Done() ? fail(description) : takeBack(description);
  if (lock.Held() && !others.empty()) RemoveForgotten(folder, std::move(others), stem);
  written = text.size() + parts.Size();
  return true;
}

std::unique_ptr<ByteSource> OpenContainer(const std::string& path, std::string& error) {
  auto file = std::make_unique<FileSource>();
  if (!file->Open(path, error)) return nullptr;
  char first = 0;
  if (!file->Read(0, std::as_writable_bytes(std::span(&first, 1))) || first != '{') return file;
  const auto identity = [&] {
    struct stat info {};
    ::stat(path.c_str(), &info);
    return std::tuple(info.st_ino, info.st_mtim.tv_sec, info.st_mtim.tv_nsec);
  };
  // The bytes of a pair go when another takes its place; then its .gltf is a new one.
  constexpr int kMostTries = 100;
  for (int i = 0; i < kMostTries; ++i) {
    const auto before = identity();
    auto pair = std::make_unique<PairSource>();
    if (pair->Open(path, error)) return pair;
    if (before == identity()) break;
  }
  return nullptr;
}

bool ReadContainer(const ByteSource& source, GlbContent& content, std::string& why) {
  const auto* pair = dynamic_cast<const PairSource*>(&source);
  return pair ? pair->Content(content, why) : ReadGlb(source, content, why);
}

bool LooksLikeScene(const std::string& path) {
  FileSource file;
  std::string why;
  if (!file.Open(path, why)) return false;
  char head[20] = {};
  const size_t known = std::min(file.Size(), sizeof head);
  if (!file.Read(0, std::as_writable_bytes(std::span(head)).first(known))) return false;
  // The text comes first; a broken header is no reason not to look.
  size_t text = size_t(1) << 20;
  std::uint32_t stated;
  std::memcpy(&stated, head + 12, sizeof stated);
  if (std::memcmp(head, "glTF", 4) == 0 || std::memcmp(head + 16, "JSON", 4) == 0)
    text = std::max(text, sizeof head + stated);
  if (head[0] == '{') text = file.Size();
  return Holds(file, std::min(file.Size(), text), {"\"generator\":\"Sowfield\"", kSceneExtension});
}

}  // namespace host
