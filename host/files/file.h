#pragma once

#include <sys/types.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace host {

/// The calls that decide what is on the disk after a crash. Tests watch them, or let them fail.
struct FileCalls {
  ssize_t (*write)(int, const void*, size_t);
  int (*fsync)(int);
  int (*rename)(const char*, const char*);
  int (*chown)(int, uid_t, gid_t);  // of an open file
  int (*lock)(int, int);            // flock
  int (*pause)(useconds_t);         // between two tries
};
extern FileCalls theFileCalls;

/// A file that is written piece by piece to a temporary neighbour and takes its place as a whole:
/// a reader or a crash sees the old file or the new one and never a part. A link stays a link: the
/// file that it points at is replaced. An old file that this process may not write, or that has no
/// write permission at all, is refused. Its permissions, access list, owner and group stay; where
/// the process can't keep the owner, or the group, nobody gains access by the new one: a foreign
/// group gets what both the old group and all others had. Destroyed before Commit, it leaves the
/// old file and no neighbour. A process that is killed leaves the neighbour,
/// `.NAME.XXXXXX.saving`; the next file that is opened for writing in the folder removes it, but
/// for those of pairs, whose bytes RemoveLeftovers finds through them. Of a name that is too long
/// the neighbour has the beginning alone.
class SafeFile {
 public:
  explicit SafeFile(std::string path);
  ~SafeFile();
  SafeFile(const SafeFile&) = delete;
  SafeFile& operator=(const SafeFile&) = delete;

  // Each is false on failure, and Error() then names the path and the reason.
  bool Open();
  bool Write(std::span<const std::byte> bytes);
  /// All is on the disk, under the neighbour's name. Commit does this first.
  bool Sync();
  /// Syncs, renames into place and syncs the folder. With a backup the old file, if there is one,
  /// stays beside the new one under its name with ".bak" behind it, in place of an older backup.
  bool Commit(bool backup = false);
  /// The same under another name in the folder.
  bool CommitAs(const std::string& name);
  /// It stands in its place; true as well where only the folder couldn't be synced.
  bool Done() const;
  const std::string& Error() const { return error_; }

 private:
  struct State;
  bool MeetOld();
  bool TakeOverAccess();
  bool Fail(int code, const char* what = "cannot write");
  bool KeepOld();
  std::string path_, error_;
  std::unique_ptr<State> state_;
};

/// The path itself, or where it leads if it is a link; nothing need be there.
std::string FileBehind(const std::string& path);

/// Whether two paths lead to one file, by whatever links, names or letters; where nothing is,
/// whether they lead to one place.
bool SameFile(const std::string& a, const std::string& b);

/// Where Commit keeps the old file.
std::string BackupOf(const std::string& path);

/// Removes what killed processes left of a file that they were writing to this path, and hands each
/// over to `before`, which may read it. A file that is still being written stays, and so does all
/// where the file system knows no locks.
void RemoveLeftovers(const std::string& path,
                     const std::function<void(const std::string& leftover)>& before = {});
/// A name of a temporary neighbour.
bool IsNeighbour(const std::string& name);

/// A name in a folder cut, between letters, so that `more` bytes have room behind it.
std::string WithRoomFor(size_t more, const std::string& name, const std::string& folder);

/// Bytes that are read at any place.
class ByteSource {
 public:
  virtual ~ByteSource() = default;
  virtual size_t Size() const = 0;
  /// False if there aren't as many bytes there (errno 0) or they can't be read (errno tells).
  virtual bool Read(size_t offset, std::span<std::byte> bytes) const = 0;
};

class MemorySource : public ByteSource {
 public:
  /// The bytes stay the caller's.
  explicit MemorySource(std::span<const std::byte> bytes) : bytes_(bytes) {}
  size_t Size() const override { return bytes_.size(); }
  bool Read(size_t offset, std::span<std::byte> bytes) const override;

 private:
  std::span<const std::byte> bytes_;
};

/// A regular file.
class FileSource : public ByteSource {
 public:
  FileSource() = default;
  ~FileSource() override;
  FileSource(const FileSource&) = delete;
  FileSource& operator=(const FileSource&) = delete;
  /// Folders, pipes and devices are refused. On failure `error` names the path and the reason.
  bool Open(const std::string& path, std::string& error);
  size_t Size() const override { return size_; }
  bool Read(size_t offset, std::span<std::byte> bytes) const override;

 private:
  int fd_ = -1;
  size_t size_ = 0;
};

/// Writes all bytes of a file as SafeFile does. On failure `error` names the path and the reason.
bool WriteFileSafely(const std::string& path, std::span<const std::byte> bytes, std::string& error);

/// Reads a whole regular file; folders, pipes and devices are refused. On failure `bytes` is
/// untouched and `error` names the path and the reason.
bool ReadFile(const std::string& path, std::vector<std::byte>& bytes, std::string& error);

/// Writes all of it, however many calls it takes; false with errno set.
bool WriteAll(int fd, std::span<const std::byte> bytes);

}  // namespace host
