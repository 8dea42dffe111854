#include "host/files/file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <new>
#include <utility>

namespace host {

FileCalls theFileCalls{::write, ::fsync, ::rename, ::fchown, ::flock, ::usleep};

namespace {

class Descriptor {
 public:
  explicit Descriptor(int fd) : fd_(fd) {}
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() {
    if (fd_ >= 0) ::close(fd_);
  }
  int Get() const { return fd_; }
  explicit operator bool() const { return fd_ >= 0; }
  void Take(int fd) { fd_ = fd; }
  /// False with errno set if the file system reports a late failure.
  bool Close() { return ::close(std::exchange(fd_, -1)) == 0; }

 private:
  int fd_;
};

std::string Because(const std::string& what, const std::string& path, int code) {
  return what + " \"" + path + "\": " + std::strerror(code);
}

// The mask can only be read by setting it.
mode_t NewFileMode() {
  const mode_t mask = ::umask(022);
  ::umask(mask);
  return 0666 & ~mask;
}

// Some file systems can't sync a folder and say EINVAL; the rename is done all the same.
bool SyncFolder(const std::string& folder) {
  const Descriptor fd(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  return fd && (theFileCalls.fsync(fd.Get()) == 0 || errno == EINVAL);
}

// Of the names of files that are being written, and of second names made for their backups.
constexpr std::string_view kSaving = ".saving", kAside = ".bak";
constexpr size_t kRandom = 6;
constexpr const char* kAccessList = "system.posix_acl_access";

// The lock tells that the writer lives: it goes with the process. False if the file is gone, or is
// about to be removed as a leftover; where there are no locks nothing is removed.
bool Claim(int fd) {
  struct stat info {};
  if (theFileCalls.lock(fd, LOCK_EX | LOCK_NB) != 0) return errno != EWOULDBLOCK;
  return ::fstat(fd, &info) == 0 && info.st_nlink > 0;
}

std::string FolderOf(const std::string& file) {
  const std::filesystem::path folder = std::filesystem::path(file).parent_path();
  return folder.empty() ? "." : folder.string();
}

std::string NameOf(const std::string& file) {
  return std::filesystem::path(file).filename().string();
}

size_t LongestName(const std::string& folder) {
  const long most = ::pathconf(folder.c_str(), _PC_NAME_MAX);
  return most > 0 ? size_t(most) : 255;
}

// What comes before the six characters of a file's neighbours.
std::string NeighbourStart(const std::string& file) {
  constexpr size_t kMore = 2 + kRandom + kSaving.size() + kAside.size();
  return "." + WithRoomFor(kMore, NameOf(file), FolderOf(file)) + ".";
}

// Whether it could be a neighbour of the path that starts its name so, or of any.
bool IsNeighbourOf(std::string_view start, std::string_view name) {
  const size_t end = kRandom + kSaving.size();
  return name.size() > end && name.starts_with('.') && name.ends_with(kSaving) &&
         name[name.size() - end - 1] == '.' &&
         (start.empty() || (name.size() == start.size() + end && name.starts_with(start)));
}

// Removes the neighbours in a folder that `wanted` takes by name and that nobody writes any more.
void RemoveDead(const std::string& folder,
                const std::function<bool(const std::string& name)>& wanted,
                const std::function<void(const std::string& leftover)>& before) {
  std::error_code code;
  for (std::filesystem::directory_iterator it(folder, code), end; !code && it != end;
       it.increment(code)) {
    std::string name = it->path().filename().string();
    if (name.ends_with(kAside)) name.resize(name.size() - kAside.size());
    if (!wanted(name)) continue;
    const std::string neighbour = folder + "/" + name;
    const Descriptor fd(::open(neighbour.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    if (fd ? theFileCalls.lock(fd.Get(), LOCK_EX | LOCK_NB) != 0 : errno != ENOENT) continue;
    if (fd && before) before(neighbour);
    ::unlink(neighbour.c_str());
    ::unlink((neighbour + std::string(kAside)).c_str());
  }
}

// What killed processes left of any file in a folder. The leftovers of pairs tell which bytes go
// with them, so they stay until their pair is saved; those of a name that was cut may be of one.
void RemoveStrayLeftovers(const std::string& folder) {
  const size_t longest = LongestName(folder);
  RemoveDead(folder,
             [&](const std::string& name) {
               const size_t end = 1 + kRandom + kSaving.size();
               return IsNeighbourOf("", name) && name.size() + kAside.size() < longest - 3 &&
                      !name.substr(0, name.size() - end).ends_with(".gltf");
             },
             {});
}

// Gives -1 and the reason on failure.
int OpenRegular(const std::string& path, size_t& size, std::string& error) {
  // Without O_NONBLOCK opening a pipe would wait for its writer.
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  struct stat info {};
  if (fd < 0 || ::fstat(fd, &info) != 0) {
    error = Because("cannot read", path, errno);
  } else if (!S_ISREG(info.st_mode)) {
    error = "cannot read \"" + path + "\": it is " +
            (S_ISDIR(info.st_mode) ? "a folder" : "not a regular file");
  } else {
    size = size_t(info.st_size);
    return fd;
  }
  if (fd >= 0) ::close(fd);
  return -1;
}

}  // namespace

bool WriteAll(int fd, std::span<const std::byte> bytes) {
  while (!bytes.empty()) {
    const ssize_t n = theFileCalls.write(fd, bytes.data(), bytes.size());
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return false;
    bytes = bytes.subspan(size_t(n));
  }
  return true;
}

std::string FileBehind(const std::string& path) {
  constexpr int kMostLinks = 40;
  std::error_code code;
  std::filesystem::path file = path;
  for (int i = 0; i < kMostLinks && std::filesystem::is_symlink(file, code); ++i)
    file = file.parent_path() / std::filesystem::read_symlink(file, code);
  return file.string();
}

bool SameFile(const std::string& a, const std::string& b) {
  struct stat one {
  }, other{};
  const bool there = ::stat(a.c_str(), &one) == 0, otherThere = ::stat(b.c_str(), &other) == 0;
  if (there && otherThere) return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
  if (there || otherThere) return false;
  std::error_code code;
  const auto place = [&](const std::string& path) {
    const std::filesystem::path full =
        std::filesystem::weakly_canonical(std::filesystem::absolute(FileBehind(path), code), code);
    return code ? std::filesystem::path(path) : full;
  };
  return place(a) == place(b);
}

std::string BackupOf(const std::string& path) { return path + ".bak"; }

bool IsNeighbour(const std::string& name) {
  return name.starts_with('.') && name.ends_with(kSaving);
}

std::string WithRoomFor(size_t more, const std::string& name, const std::string& folder) {
  const size_t longest = LongestName(folder), most = longest - std::min(more, longest);
  if (name.size() <= most) return name;
  const auto inLetter = [&](size_t at) { return (name[at] & 0xC0) == 0x80; };  // in UTF-8
  size_t cut = most;
  while (cut > 0 && most - cut < 4 && inLetter(cut)) --cut;
  return name.substr(0, inLetter(cut) ? most : cut);
}

void RemoveLeftovers(const std::string& path,
                     const std::function<void(const std::string& leftover)>& before) {
  const std::string file = FileBehind(path), start = NeighbourStart(file);
  RemoveDead(
      FolderOf(file), [&](const std::string& name) { return IsNeighbourOf(start, name); }, before);
}

struct SafeFile::State {
  std::string target, folder, neighbour;
  mode_t mode = 0;
  uid_t owner = 0;  // of the file to replace, as are the group and the access list
  gid_t group = 0;
  std::vector<char> accessList;
  bool old = false;     // there is a file to replace
  bool there = false;   // the neighbour exists under its own name
  bool synced = false;  // and is complete
  bool done = false;
  off_t written = 0, sent = 0;  // bytes, and those of them that the disk was told to take
  Descriptor fd{-1}, lock{-1};
  ~State() {
    if (there) ::unlink(neighbour.c_str());
  }
};

SafeFile::SafeFile(std::string path) : path_(std::move(path)), state_(std::make_unique<State>()) {}

SafeFile::~SafeFile() = default;

bool SafeFile::Fail(int code, const char* what) {
  error_ = Because(what, path_, code);
  return false;
}

// What there is to know of the file that is replaced.
bool SafeFile::MeetOld() {
  State& s = *state_;
  struct stat old {};
  if (::stat(s.target.c_str(), &old) != 0) return errno == ENOENT || Fail(errno);
  const auto refuse = [&](const char* why) {
    error_ = "cannot write \"" + path_ + "\": " + why;
    return false;
  };
  if (!S_ISREG(old.st_mode)) return refuse("it is not a regular file");
  // A superuser may write any file: he too is told that this one is meant to stay.
  if ((old.st_mode & 0222) == 0) return refuse("it is write-protected");
  if (::faccessat(AT_FDCWD, s.target.c_str(), W_OK, AT_EACCESS) != 0) return Fail(errno);
  s.old = true;
  s.mode = old.st_mode & 07777;
  s.owner = old.st_uid, s.group = old.st_gid;
  const ssize_t size = ::getxattr(s.target.c_str(), kAccessList, nullptr, 0);
  s.accessList.resize(size_t(std::max(size, ssize_t(0))));
  if (size > 0 && ::getxattr(s.target.c_str(), kAccessList, s.accessList.data(), size_t(size)) < 0)
    return Fail(errno);
  return true;
}

bool SafeFile::Open() {
  State& s = *state_;
  s.target = FileBehind(path_);
  s.folder = FolderOf(s.target);
  s.mode = NewFileMode();
  if (!MeetOld()) return false;
  RemoveStrayLeftovers(s.folder);
  while (!s.there) {
    s.neighbour = s.folder + "/" + NeighbourStart(s.target) + std::string(kRandom, 'X') +
                  std::string(kSaving);
    s.fd.Take(::mkostemps(s.neighbour.data(), int(kSaving.size()), O_CLOEXEC));
    if (!s.fd) return Fail(errno);
    s.there = Claim(s.fd.Get());
    if (!s.there) s.fd.Close();
  }
  // Closing may tell of a late failure; the lock lasts until the file is in its place.
  s.lock.Take(::fcntl(s.fd.Get(), F_DUPFD_CLOEXEC, 0));
  return s.lock || Fail(errno);
}

// Until here the neighbour is its writer's alone.
bool SafeFile::TakeOverAccess() {
  const State& s = *state_;
  const int fd = s.fd.Get();
  mode_t mode = s.mode;
  bool groupKept = true;
  if (s.old && theFileCalls.chown(fd, s.owner, s.group) != 0) {
    mode &= 0777;
    groupKept = theFileCalls.chown(fd, uid_t(-1), s.group) == 0;
  }
  // With an access list the permission bits don't tell the group's own.
  bool listKept = true;
  if (s.old && s.accessList.empty()) {
    ::fremovexattr(fd, kAccessList);  // the folder may have given it one
  } else if (s.old) {
    listKept =
        groupKept && ::fsetxattr(fd, kAccessList, s.accessList.data(), s.accessList.size(), 0) == 0;
  }
  // Who was in the group may now count as one of all others, and the other way round.
  if (!groupKept || !listKept) {
    const mode_t both = listKept ? (mode >> 3) & mode & 07 : 0;
    mode = (mode & ~mode_t(077)) | both << 3 | both;
  }
  return ::fchmod(fd, mode) == 0;
}

bool SafeFile::Write(std::span<const std::byte> bytes) {
  State& s = *state_;
  if (!WriteAll(s.fd.Get(), bytes)) return Fail(errno);
  s.written += off_t(bytes.size());
  // The disk may begin while the next bytes are made. A failure shows when all is synced.
  constexpr off_t kAtOnce = off_t(8) << 20;
  if (s.written - s.sent >= kAtOnce) {
    ::sync_file_range(s.fd.Get(), s.sent, s.written - s.sent, SYNC_FILE_RANGE_WRITE);
    s.sent = s.written;
  }
  return true;
}

// A second name for the old file, made aside and renamed, so that there is always a whole backup.
bool SafeFile::KeepOld() {
  const State& s = *state_;
  const std::string aside = s.neighbour + std::string(kAside), backup = BackupOf(s.target);
  const size_t size = NameOf(backup).size(), most = LongestName(s.folder);
  if (size > most) {
    error_ = "cannot keep a backup of \"" + path_ + "\": its name would have " +
             std::to_string(size) + " bytes, and the most are " + std::to_string(most);
    return false;
  }
  const auto fail = [&] { return Fail(errno, "cannot keep a backup of"); };
  if (::link(s.target.c_str(), aside.c_str()) != 0) return fail();
  if (theFileCalls.rename(aside.c_str(), backup.c_str()) == 0) {
    ::unlink(aside.c_str());  // still there if the backup was this very file
    return true;
  }
  fail();
  ::unlink(aside.c_str());
  return false;
}

bool SafeFile::Sync() {
  State& s = *state_;
  if (!s.synced && (!TakeOverAccess() || theFileCalls.fsync(s.fd.Get()) != 0 || !s.fd.Close()))
    return Fail(errno);
  s.synced = true;
  return true;
}

bool SafeFile::Commit(bool backup) {
  State& s = *state_;
  if (!Sync()) return false;
  if (backup && s.old && !KeepOld()) return false;
  return CommitAs(NameOf(s.target));
}

bool SafeFile::CommitAs(const std::string& name) {
  State& s = *state_;
  if (!Sync()) return false;
  if (theFileCalls.rename(s.neighbour.c_str(), (s.folder + "/" + name).c_str()) != 0)
    return Fail(errno);
  s.there = false;
  s.done = true;
  return SyncFolder(s.folder) || Fail(errno, "wrote, but cannot make permanent");
}

bool SafeFile::Done() const { return state_->done; }

bool WriteFileSafely(const std::string& path, std::span<const std::byte> bytes,
                     std::string& error) {
  SafeFile file(path);
  const bool written = file.Open() && file.Write(bytes) && file.Commit();
  if (!written) error = file.Error();
  return written;
}

bool MemorySource::Read(size_t offset, std::span<std::byte> bytes) const {
  errno = 0;
  if (offset > bytes_.size() || bytes.size() > bytes_.size() - offset) return false;
  std::copy_n(bytes_.begin() + long(offset), bytes.size(), bytes.begin());
  return true;
}

FileSource::~FileSource() {
  if (fd_ >= 0) ::close(fd_);
}

bool FileSource::Open(const std::string& path, std::string& error) {
  fd_ = OpenRegular(path, size_, error);
  return fd_ >= 0;
}

bool FileSource::Read(size_t offset, std::span<std::byte> bytes) const {
  while (!bytes.empty()) {
    const ssize_t n = ::pread(fd_, bytes.data(), bytes.size(), off_t(offset));
    if (n < 0 && errno == EINTR) continue;
    if (n == 0) errno = 0;
    if (n <= 0) return false;
    bytes = bytes.subspan(size_t(n));
    offset += size_t(n);
  }
  return true;
}

bool ReadFile(const std::string& path, std::vector<std::byte>& bytes, std::string& error) {
  size_t stated = 0;
  const Descriptor fd(OpenRegular(path, stated, error));
  if (!fd) return false;
  std::vector<std::byte> read;
  try {
    // One byte more than the file has: the read that meets the end needs room.
    read.resize(stated + 1);
    size_t size = 0;
    while (true) {
      if (size == read.size()) read.resize(size * 2);
      const ssize_t n = ::read(fd.Get(), read.data() + size, read.size() - size);
      if (n < 0 && errno == EINTR) continue;
      if (n < 0) return error = Because("cannot read", path, errno), false;
      if (n == 0) break;
      size += size_t(n);
    }
    read.resize(size);
  } catch (const std::bad_alloc&) {
    return error = "cannot read \"" + path + "\": not enough memory for its " +
                   std::to_string(stated) + " bytes",
           false;
  }
  bytes = std::move(read);
  return true;
}

}  // namespace host
