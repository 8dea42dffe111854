#pragma once

#include <grp.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "host/io/file.h"

/// Notes the calls of theFileCalls in their order while it lives, and sets them right afterwards.
/// Temporary files are called 0, 1 and so on, in the order in which they are met.
class FileWatch {
 public:
  FileWatch() : before_(host::theFileCalls) {
    calls_.clear(), names_.clear();
    host::theFileCalls.write = [](int fd, const void* bytes, size_t size) {
      const std::string call = "write " + Name(Of(fd));
      if (calls_.empty() || calls_.back() != call) calls_.push_back(call);
      return ::write(fd, bytes, size);
    };
    host::theFileCalls.fsync = [](int fd) {
      calls_.push_back("sync " + Name(Of(fd)));
      return ::fsync(fd);
    };
    host::theFileCalls.rename = [](const char* from, const char* to) {
      calls_.push_back("rename " + Name(from) + " " + Name(to));
      return ::rename(from, to);
    };
  }
  ~FileWatch() { host::theFileCalls = before_; }
  FileWatch(const FileWatch&) = delete;
  FileWatch& operator=(const FileWatch&) = delete;
  /// Those since the last time.
  std::vector<std::string> Calls() { return std::exchange(calls_, {}); }

 private:
  static std::filesystem::path Of(int fd) {
    return std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(fd));
  }
  static std::string Name(const std::filesystem::path& path) {
    if (std::filesystem::is_directory(path)) return "folder";
    if (path.extension() == ".bak" && path.stem().extension() == ".saving")
      return Name(path.stem()) + ".bak";
    const std::string name = path.filename().string();
    if (path.extension() != ".saving") return name;
    return names_.try_emplace(name, std::to_string(names_.size())).first->second;
  }
  host::FileCalls before_;
  inline static std::vector<std::string> calls_;
  inline static std::map<std::string, std::string> names_;
};

/// Whether the work succeeds in a child without a superuser's rights.
template <class F>
bool AsNobody(F work) {
  const pid_t child = fork();
  if (child == 0) {
    constexpr id_t kNobody = 65534;
    if (geteuid() == 0 &&
        (setgroups(0, nullptr) != 0 || setegid(kNobody) != 0 || seteuid(kNobody) != 0))
      _exit(2);
    _exit(work() ? 0 : 1);
  }
  int status = 0;
  return waitpid(child, &status, 0) == child && status == 0;
}
