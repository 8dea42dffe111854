#include "host/scenefile/scenecontainer.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <optional>
#include <tuple>
#include <vector>

#include "host/files/modelfiles.h"
#include "host/scenefile/scenefile.h"
#include "host/scenefile/scenerecords.h"
#include "host/scenefile/scenerecover.h"
#include "host/scenefile/scenevalues.h"

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

std::string FolderOf(const std::string& path) {
  const fs::path folder = fs::path(FileBehind(path)).parent_path();
  return folder.empty() ? "." : folder.string();
}

// What the names of its bytes begin with.
std::string StemOf(const std::string& path) {
  return WithRoomFor(1 + kDigits + kBinEnding.size(), fs::path(FileBehind(path)).stem().string(),
                     FolderOf(path));
}

// What the text of this program says of its buffer.
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

struct Buffer {
  size_t bytes = 0;
  std::string name;  // of the file
};

// Nothing if the text has no buffer in a file. It may have been written by another program.
std::optional<Buffer> BufferOf(const std::string& text) {
  using nlohmann::json;
  if (BufferPlace place; FindBuffer(text, place))
    return Buffer{place.bytes, DecodePercent(text.substr(place.uriAt, place.uriSize))};
  static const json::json_pointer first("/buffers/0");
  const json root = json::parse(WholeText(text), nullptr, false);
  if (!root.is_object() || !root.contains(first) || !root[first].is_object()) return {};
  const json& buffer = root[first];
  const auto bytes = buffer.find("byteLength"), uri = buffer.find("uri");
  if (uri == buffer.end() || !uri->is_string()) return {};
  const bool counted = bytes != buffer.end() && bytes->is_number_unsigned();
  return Buffer{counted ? bytes->get<size_t>() : 0, DecodePercent(uri->get<std::string>())};
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
  // Without a byte order mark.
  bool ReadText(std::string& text) const {
    const size_t start = std::min(FindText(text_, 0), text_.Size());
    text.resize(text_.Size() - start);
    return text_.Read(start, std::as_writable_bytes(std::span(text)));
  }
  FileSource text_, bin_;
};

bool PairSource::Open(const std::string& path, std::string& error) {
  std::string text;
  if (!text_.Open(path, error)) return false;
  if (!ReadText(text)) {
    error = "cannot read \"" + path + "\": " + std::strerror(errno ? errno : EIO);
    return false;
  }
  const std::optional<Buffer> buffer = BufferOf(text);
  if (!buffer) return true;  // a scene without bytes, or none at all
  const std::string& name = buffer->name;
  if (name.empty() || name == "." || name == ".." || name.find('/') != std::string::npos ||
      name.find('\0') != std::string::npos) {
    error = "cannot open \"" + path + "\": its bytes lie in \"" + name.substr(0, 255) +
            "\", which is no file beside it";
    return false;
  }
  std::string why;
  if (bin_.Open(FolderOf(path) + "/" + name, why)) return true;
  error = "cannot open \"" + path + "\", whose bytes lie in another file: " + why;
  return false;
}

bool PairSource::Content(GlbContent& content, std::string& why) const {
  if (!ReadText(content.json)) {
    why = std::strerror(errno ? errno : EIO);
    content.json.clear();
    return false;
  }
  content.binOffset = text_.Size();
  content.binSize = bin_.Size();
  const Buffer buffer = BufferOf(content.json).value_or(Buffer{});
  if (content.binSize == buffer.bytes) return true;
  why = "\"" + buffer.name + "\" beside it has " + std::to_string(content.binSize) +
        " bytes, expected " + std::to_string(buffer.bytes);
  return false;
}

// Whether any of the texts, of up to 30 letters, stands in a part of the source, in UTF-8 or
// UTF-16. Nothing if it can't be read.
std::optional<bool> Holds(const ByteSource& source, size_t begin, size_t end,
                          std::initializer_list<std::string_view> texts) {
  constexpr size_t kPiece = size_t(1) << 20, kOverlap = 64;
  std::string piece;
  for (size_t at = begin; at < end; at += kPiece) {
    piece.resize(std::min(kPiece + kOverlap, end - at));
    if (!source.Read(at, std::as_writable_bytes(std::span(piece)))) return {};
    std::erase(piece, '\0');
    for (const std::string_view text : texts)
      if (piece.find(text) != std::string::npos) return true;
  }
  return false;
}

bool IsText(const ByteSource& source) { return FindText(source, 0) != std::string::npos; }

// The digits of a file of bytes that belongs to a pair of this stem; empty for any other file.
std::string DigitsOf(const std::string& name, const std::string& stem) {
  const size_t at = stem.size() + 1, size = at + kDigits + kBinEnding.size();
  if (name.size() != size || !name.starts_with(stem + ".") || !name.ends_with(kBinEnding))
    return "";
  const std::string digits = name.substr(at, kDigits);
  const bool all = digits.find_first_not_of("0123456789abcdef") == std::string::npos;
  return all ? digits : "";
}

// Nothing if the folder can't be read to its end.
std::optional<std::vector<std::string>> NamesIn(const std::string& folder) {
  std::vector<std::string> names;
  std::error_code code;
  for (fs::directory_iterator it(folder, code), end; !code && it != end; it.increment(code))
    names.push_back(it->path().filename().string());
  if (code) return {};
  return names;
}

bool IsFile(const std::string& path) {
  struct stat info {};
  return ::stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode);
}

/// The files of bytes of a path's pairs, and which of them may go: those that a .gltf named which
/// was replaced, or whose save was killed. No other file in the folder may name them, whatever its
/// own name is. What nobody is known to have given up stays.
class OldBytes {
 public:
  explicit OldBytes(const std::string& path) : folder_(FolderOf(path)), stem_(StemOf(path)) {}

  std::vector<std::string> All() const {
    std::vector<std::string> bins = NamesIn(folder_).value_or(std::vector<std::string>{});
    std::erase_if(bins, [&](const std::string& name) { return DigitsOf(name, stem_).empty(); });
    return bins;
  }
  /// The files that this one names.
  std::vector<std::string> NamedBy(const std::string& path) const {
    FileSource file;
    std::string why;
    std::vector<std::string> bins = All();
    if (bins.empty() || !IsFile(path) || !file.Open(path, why)) return {};
    std::erase_if(bins, [&](const std::string& bin) {
      return !Holds(file, 0, file.Size(), {DigitsOf(bin, stem_)}).value_or(false);
    });
    return bins;
  }
  /// Removes those of them that nothing names.
  void Remove(std::vector<std::string> bins) const {
    if (bins.empty()) return;
    const auto names = NamesIn(folder_);
    if (!names) return;
    size_t budget = kMostText;
    for (const std::string& name : *names) {
      const std::string path = folder_ + "/" + name;
      // A pair that is still to take its place brings bytes of its own.
      if (bins.empty() || IsNeighbour(name) || !DigitsOf(name, stem_).empty() || !IsFile(path))
        continue;
      FileSource file;
      std::string why;
      if (!file.Open(path, why)) return;  // it may name any
      const bool toTheEnd = MayNameLater(file, path);
      const size_t most = toTheEnd ? budget : kBeginning, size = std::min(file.Size(), most);
      std::erase_if(bins, [&](const std::string& bin) {
        return Holds(file, 0, size, {DigitsOf(bin, stem_)}).value_or(true);
      });
      if (!toTheEnd) continue;
      if (size < file.Size()) return;
      budget -= size;
    }
    for (const std::string& bin : bins) ::unlink((folder_ + "/" + bin).c_str());
  }

 private:
  static constexpr size_t kBeginning = size_t(1) << 20;
  // That a save reads of texts that others have written: what lies behind may name any.
  static constexpr size_t kMostText = size_t(1) << 26;

  // Of what is no text, a picture or a .glb, only the beginning is looked at, and of a text that
  // names its bytes there.
  static bool MayNameLater(const FileSource& file, const std::string& path) {
    std::uint16_t mark = 0;  // of UTF-16
    file.Read(0, std::as_writable_bytes(std::span(&mark, 1)));
    const bool text = IsText(file) || mark == 0xFEFF || mark == 0xFFFE ||
                      ::strcasestr(BaseNameOf(path).c_str(), ".gltf");
    return text && file.Size() > kBeginning &&
           !Holds(file, 0, kBeginning, {kBufferMark}).value_or(false);
  }
  std::string folder_, stem_;
};

// While it lasts no other save puts a pair into the folder, or takes bytes away.
class FolderLock {
 public:
  explicit FolderLock(const std::string& folder)
      : fd_(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
    constexpr useconds_t kPause = 20000;              // microseconds
    constexpr int kMostTries = 5 * 1000000 / kPause;  // five seconds
    if (fd_ < 0) return;
    for (int i = 0; i < kMostTries; ++i) {
      held_ = theFileCalls.lock(fd_, LOCK_EX | LOCK_NB) == 0;
      busy_ = !held_ && (errno == EWOULDBLOCK || errno == EINTR);
      if (!busy_) return;
      theFileCalls.pause(kPause);
    }
  }
  ~FolderLock() {
    if (fd_ >= 0) ::close(fd_);
  }
  FolderLock(const FolderLock&) = delete;
  FolderLock& operator=(const FolderLock&) = delete;
  /// Some file systems know no locks: then it is neither held nor busy.
  bool Held() const { return held_; }
  /// Another program holds it for long.
  bool Busy() const { return busy_; }

 private:
  int fd_;
  bool held_ = false, busy_ = false;
};

/// Saves one pair.
class PairWriter {
 public:
  PairWriter(const std::string& path, std::string& error)
      : path_(path),
        error_(error),
        folder_(FolderOf(path)),
        old_(path),
        bytes_(path),
        description_(path),
        note_(path) {}

  bool RemoveLeftovers();
  bool Prepare(std::string& text, const BinaryParts& parts,
               const std::function<void(std::string&)>& seal);
  /// Puts what was prepared in the place of the old pair.
  bool Commit(bool backup);

 private:
  bool Fail(const SafeFile& file) {
    error_ = file.Error().empty() ? "cannot save \"" + path_ + "\": a table changed its size"
                                  : file.Error();
    return false;
  }
  bool FailBusy() {
    error_ = "cannot save \"" + path_ + "\": another program holds a lock on the folder \"" +
             folder_ + "\"";
    return false;
  }
  // Without it nothing goes.
  bool NoteWhatGoes(bool backup);

  const std::string& path_;
  std::string& error_;
  std::string folder_, name_;  // of the new bytes; empty without
  OldBytes old_;
  std::vector<std::string> going_;
  // A save that is killed leaves the note, which tells what it would have removed.
  SafeFile bytes_, description_, note_;
};

bool PairWriter::RemoveLeftovers() {
  const FolderLock lock(folder_);
  if (lock.Busy()) return FailBusy();
  host::RemoveLeftovers(path_, [&](const std::string& leftover) {
    if (lock.Held()) old_.Remove(old_.NamedBy(leftover));
  });
  return true;
}

bool PairWriter::Prepare(std::string& text, const BinaryParts& parts,
                         const std::function<void(std::string&)>& seal) {
  if (BufferPlace buffer; FindBuffer(text, buffer)) {
    std::uint32_t sum = 0;
    const auto write = [&](std::span<const std::byte> bytes) {
      sum = Crc32c(bytes, sum);
      return bytes_.Write(bytes);
    };
    if (!bytes_.Open() || !WriteParts(parts, write) || !bytes_.Sync()) return Fail(bytes_);
    const std::string digits = CrcText(Crc32c(std::as_bytes(std::span(text)))) + CrcText(sum);
    text.replace(buffer.uriAt + buffer.uriSize - kBinEnding.size() - kDigits, kDigits, digits);
    name_ = StemOf(path_) + BinEndingOf(digits);
  }
  seal(text);
  return (description_.Open() && description_.Write(std::as_bytes(std::span(text))) &&
          description_.Sync()) ||
         Fail(description_);
}

bool PairWriter::NoteWhatGoes(bool backup) {
  const std::string file = FileBehind(path_);
  going_ = old_.NamedBy(file);
  if (backup)
    for (std::string& name : old_.NamedBy(BackupOf(file))) going_.push_back(std::move(name));
  std::erase(going_, name_);
  if (going_.empty()) return true;
  std::string text;
  for (const std::string& name : going_) text += name + "\n";
  return (note_.Open() && note_.Write(std::as_bytes(std::span(text)))) || Fail(note_);
}

bool PairWriter::Commit(bool backup) {
  const FolderLock lock(folder_);
  if (lock.Busy()) return FailBusy();
  if (lock.Held() && !NoteWhatGoes(backup)) return false;
  const std::string bin = folder_ + "/" + name_;
  struct stat info {};
  const bool fresh = !name_.empty() && ::lstat(bin.c_str(), &info) != 0;
  const auto takeBack = [&](const SafeFile& file) {
    if (fresh) ::unlink(bin.c_str());
    return Fail(file);
  };
  if (!name_.empty() && !bytes_.CommitAs(name_)) return takeBack(bytes_);
  if (!description_.Commit(backup))
    return description_.Done() ? Fail(description_) : takeBack(description_);
  old_.Remove(going_);
  return true;
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
  PairWriter pair(path, error);
  if (!pair.RemoveLeftovers() || !pair.Prepare(text, parts, seal) || !pair.Commit(backup))
    return false;
  written = text.size() + parts.Size();
  return true;
}

std::unique_ptr<ByteSource> OpenBytesBeside(const std::string& path, std::string& name) {
  const OldBytes old(path);
  std::vector<std::string> bins = old.NamedBy(FileBehind(path));
  if (bins.empty()) bins = old.All();
  const auto written = [&](const std::string& bin) {
    std::error_code code;
    return fs::last_write_time(FolderOf(path) + "/" + bin, code);
  };
  const auto last = std::max_element(bins.begin(), bins.end(),
                                     [&](auto& a, auto& b) { return written(a) < written(b); });
  auto file = std::make_unique<FileSource>();
  std::string why;
  if (last == bins.end() || !file->Open(FolderOf(path) + "/" + *last, why)) return nullptr;
  name = *last;
  return file;
}

std::unique_ptr<ByteSource> OpenContainer(const std::string& path, std::string& error) {
  auto file = std::make_unique<FileSource>();
  if (!file->Open(path, error)) return nullptr;
  if (!IsText(*file)) return file;
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
  const bool glb = std::memcmp(head, "glTF", 4) == 0 || std::memcmp(head + 16, "JSON", 4) == 0;
  if (glb) text = std::max(text, sizeof head + stated);
  if (IsText(file) || IsPairPath(path)) text = file.Size();
  text = std::min(file.Size(), text);
  if (Holds(file, 0, text, {"\"generator\":\"Sowfield\"", kSceneExtension}).value_or(false))
    return true;
  // Where all of the text is lost, the records are left.
  const size_t tail = std::min(file.Size(), size_t(1) << 20);
  return glb && Holds(file, file.Size() - tail, file.Size(), {kRecordMark}).value_or(false);
}

}  // namespace host
