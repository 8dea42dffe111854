#include "host/io/file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <new>
#include <utility>

namespace host {

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
  /// False with errno set if the file system reports a late failure.
  bool Close() { return ::close(std::exchange(fd_, -1)) == 0; }

 private:
  int fd_;
};

std::string Because(const std::string& what, const std::string& path, int code) {
  return what + " \"" + path + "\": " + std::strerror(code);
}

// Removes the neighbour unless it was renamed.
struct Neighbour {
  std::string path;
  bool there = false;
  ~Neighbour() {
    if (there) ::unlink(path.c_str());
  }
};

// The mask can only be read by setting it.
mode_t NewFileMode() {
  const mode_t mask = ::umask(022);
  ::umask(mask);
  return 0666 & ~mask;
}

// Some file systems can't sync a folder and say EINVAL; the rename is done all the same.
bool SyncFolder(const std::string& folder) {
  const Descriptor fd(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  return fd && (::fsync(fd.Get()) == 0 || errno == EINVAL);
}

}  // namespace

bool WriteAll(int fd, std::span<const std::byte> bytes) {
  while (!bytes.empty()) {
    const ssize_t n = ::write(fd, bytes.data(), bytes.size());
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return false;
    bytes = bytes.subspan(size_t(n));
  }
  return true;
}

bool WriteFileSafely(const std::string& path, std::span<const std::byte> bytes,
                     std::string& error) {
  std::error_code code;
  std::filesystem::path target(path);
  if (std::filesystem::is_symlink(target, code)) {
    target = std::filesystem::weakly_canonical(target, code);
    if (code) return error = Because("cannot write", path, code.value()), false;
  }
  mode_t mode = NewFileMode();
  struct stat old {};
  if (::stat(target.c_str(), &old) == 0) {
    if (!S_ISREG(old.st_mode))
      return error = "cannot write \"" + path + "\": it is not a regular file", false;
    mode = old.st_mode & 07777;
  }
  const std::string folder = target.has_parent_path() ? target.parent_path().string() : ".";
  Neighbour neighbour{folder + "/." + target.filename().string() + ".XXXXXX"};

  Descriptor fd(::mkostemp(neighbour.path.data(), O_CLOEXEC));
  if (!fd) return error = Because("cannot write", path, errno), false;
  neighbour.there = true;
  if (!WriteAll(fd.Get(), bytes) || ::fchmod(fd.Get(), mode) != 0 || ::fsync(fd.Get()) != 0 ||
      !fd.Close() || ::rename(neighbour.path.c_str(), target.c_str()) != 0)
    return error = Because("cannot write", path, errno), false;
  neighbour.there = false;
  if (!SyncFolder(folder))
    return error = Because("wrote, but cannot make permanent", path, errno), false;
  return true;
}

bool ReadFile(const std::string& path, std::vector<std::byte>& bytes, std::string& error) {
  // Without O_NONBLOCK opening a pipe would wait for its writer.
  const Descriptor fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  struct stat info {};
  if (!fd || ::fstat(fd.Get(), &info) != 0)
    return error = Because("cannot read", path, errno), false;
  if (!S_ISREG(info.st_mode))
    return error = "cannot read \"" + path + "\": it is " +
                   (S_ISDIR(info.st_mode) ? "a folder" : "not a regular file"),
           false;
  std::vector<std::byte> read;
  try {
    // One byte more than the file has: the read that meets the end needs room.
    read.resize(size_t(info.st_size) + 1);
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
                   std::to_string(info.st_size) + " bytes",
           false;
  }
  bytes = std::move(read);
  return true;
}

}  // namespace host
