#include "host/import/modelreader.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <thread>
#include <utility>

#include "host/exchange/planstream.h"
#include "host/files/file.h"
#include "host/files/modelfiles.h"
#include "host/import/assimpimport.h"
#include "host/import/gltfimport.h"

extern char** environ;

namespace host {

namespace {

#ifdef __has_feature
constexpr bool kClangSanitizes =
    __has_feature(address_sanitizer) || __has_feature(thread_sanitizer);
#else
constexpr bool kClangSanitizes = false;
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = kClangSanitizes;
#endif

using Clock = std::chrono::steady_clock;

// Where the child finds its ends of the two channels. The life line carries nothing: it is at its
// end when the child is.
constexpr int kResultFd = 3, kLifeLineFd = 4;
constexpr std::byte kIsPlan{'P'}, kIsFault{'F'};

class Descriptor {
 public:
  explicit Descriptor(int fd = -1) : fd_(fd) {}
  Descriptor(Descriptor&& o) noexcept : fd_(std::exchange(o.fd_, -1)) {}
  Descriptor& operator=(Descriptor&& o) noexcept {
    std::swap(fd_, o.fd_);
    return *this;
  }
  ~Descriptor() { Close(); }
  void Close() {
    if (fd_ >= 0) ::close(std::exchange(fd_, -1));
  }
  int Get() const { return fd_; }

 private:
  int fd_;
};

[[noreturn]] void FailToStart(const std::string& what, int code) {
  throw ImportFault("cannot be read: " + what + ": " + std::strerror(code));
}

// Above the numbers that the child gets, so that making one of them closes none of the others.
Descriptor Lifted(int fd) {
  const Descriptor low(fd);
  Descriptor high(fd < 0 ? -1 : ::fcntl(fd, F_DUPFD_CLOEXEC, 10));
  if (high.Get() < 0) FailToStart("no channel to the reader", errno);
  return high;
}

std::string ReaderProgram() {
  Dl_info info{};
  const bool known = ::dladdr(reinterpret_cast<const void*>(&RunModelReader), &info) != 0;
  std::error_code code;
  const std::filesystem::path folder =
      std::filesystem::canonical(known && info.dli_fname ? info.dli_fname : ".", code)
          .parent_path();
  for (const char* place : {"sowfield_reader", "../bin/sowfield_reader"})
    if (std::filesystem::is_regular_file(folder / place, code)) return (folder / place).string();
  throw ImportFault("cannot be read: the program sowfield_reader is neither in \"" +
                    folder.string() + "\" nor in the folder bin beside it");
}

class Child {
 public:
  Child(const std::string& path, const ReaderLimits& limits, const Descriptor& result) {
    const std::string program = ReaderProgram();
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) FailToStart("no channel to the reader", errno);
    lifeLine_ = Descriptor(ends[0]);
    const Descriptor childsEnd = Lifted(ends[1]);

    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    ::posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    ::posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    ::posix_spawn_file_actions_adddup2(&actions, result.Get(), kResultFd);
    ::posix_spawn_file_actions_adddup2(&actions, childsEnd.Get(), kLifeLineFd);
    ::posix_spawn_file_actions_addclosefrom_np(&actions, kLifeLineFd + 1);
    posix_spawnattr_t attributes;
    ::posix_spawnattr_init(&attributes);
    sigset_t none;
    ::sigemptyset(&none);
    ::posix_spawnattr_setsigmask(&attributes, &none);
    ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);

    std::string arguments[] = {program, std::to_string(limits.bytes),
                               std::to_string(limits.seconds), path};
    char* argv[] = {arguments[0].data(), arguments[1].data(), arguments[2].data(),
                    arguments[3].data(), nullptr};
    const int code = ::posix_spawn(&pid_, program.c_str(), &actions, &attributes, argv, environ);
    ::posix_spawnattr_destroy(&attributes);
    ::posix_spawn_file_actions_destroy(&actions);
    if (code != 0) FailToStart("the program \"" + program + "\" does not start", code);
  }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  /// Waits for the end, and makes one at the deadline. False if that was needed.
  bool Wait(Clock::time_point deadline, std::optional<int>& status) {
    bool inTime = WaitForLifeLine(deadline);
    while (inTime && !Reap(WNOHANG, status)) {
      inTime = Clock::now() < deadline;
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    if (!inTime) {
      ::kill(pid_, SIGKILL);
      Reap(0, status);
    }
    return inTime;
  }

 private:
  bool WaitForLifeLine(Clock::time_point deadline) const {
    while (true) {
      const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
      if (left.count() <= 0) return false;
      pollfd line{lifeLine_.Get(), POLLIN, 0};
      const int ready = ::poll(&line, 1, int(std::min<long long>(left.count(), 1'000'000)));
      if (ready > 0) return true;
    }
  }

  // True when there is nothing left to wait for. A process that ignores SIGCHLD is told no status.
  bool Reap(int flags, std::optional<int>& status) const {
    int word = 0;
    pid_t ended = 0;
    do ended = ::waitpid(pid_, &word, flags);
    while (ended < 0 && errno == EINTR);
    if (ended == pid_) status = word;
    return ended != 0;
  }

  pid_t pid_ = -1;
  Descriptor lifeLine_;
};

std::string MiB(size_t bytes) { return std::to_string(bytes >> 20) + " MiB"; }

std::string Seconds(double seconds) {
  std::string text = std::to_string(seconds);
  text.erase(text.find_last_not_of('0') + 1);
  if (text.back() == '.') text.pop_back();
  return text + " s";
}

std::vector<std::byte> Content(const Descriptor& file) {
  struct stat info {};
  if (::fstat(file.Get(), &info) != 0) FailToStart("no channel to the reader", errno);
  std::vector<std::byte> bytes(size_t(info.st_size));
  size_t size = 0;
  while (size < bytes.size()) {
    const ssize_t n = ::pread(file.Get(), bytes.data() + size, bytes.size() - size, off_t(size));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) FailToStart("no channel to the reader", n < 0 ? errno : EIO);
    size += size_t(n);
  }
  return bytes;
}

bool HandOver(std::byte kind, std::span<const std::byte> bytes) {
  return WriteAll(kResultFd, std::span(&kind, 1)) && WriteAll(kResultFd, bytes);
}

bool HandOverFault(const std::string& text) {
  return HandOver(kIsFault, std::as_bytes(std::span(text)));
}

bool Limit(__rlimit_resource what, rlim_t most) {
  struct rlimit limit {};
  if (::getrlimit(what, &limit) != 0) return false;
  limit.rlim_max = std::min(limit.rlim_max, most);
  limit.rlim_cur = limit.rlim_max;
  return ::setrlimit(what, &limit) == 0;
}

bool SetLimits(const ReaderLimits& limits) {
  if (!kSanitized && !Limit(RLIMIT_AS, limits.bytes)) return false;
  // Should the parent die, nobody else ends this process.
  return Limit(RLIMIT_CPU, rlim_t(std::ceil(limits.seconds)) + 1) && Limit(RLIMIT_CORE, 0);
}

}  // namespace

bool IsModelExtension(const std::string& extension) {
  return extension.empty() || extension == ".gltf" || extension == ".glb" ||
         IsAssimpExtension(extension);
}

ImportPlan ReadModel(const std::string& path) {
  const std::string extension = ExtensionOf(path);
  const std::filesystem::path file(path);
  const std::string folder = file.has_parent_path() ? file.parent_path().string() : ".";
  std::vector<std::byte> bytes;
  std::string error;
  if (!ReadFile(path, bytes, error)) throw ImportFault(error);
  if (extension == ".gltf" || extension == ".glb") {
    ImportPlan plan = ReadGltf(bytes, folder);
    plan.metres = 1;
    return plan;
  }
  return ReadAssimp(bytes, folder, file.filename().string());
}

ImportPlan ReadModelApart(const std::string& path, const ReaderLimits& limits) {
  const auto deadline = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                           std::chrono::duration<double>(limits.seconds));
  const Descriptor result = Lifted(::memfd_create("sowfield model", MFD_CLOEXEC));
  std::optional<int> status;
  const bool inTime = Child(path, limits, result).Wait(deadline, status);
  if (!inTime || (status && WIFSIGNALED(*status) && WTERMSIG(*status) == SIGXCPU))
    throw ImportFault("cannot be read in " + Seconds(limits.seconds));
  if (status && WIFSIGNALED(*status))
    throw ImportFault("cannot be read: the reader was ended by signal " +
                      std::to_string(WTERMSIG(*status)) + " (" + ::strsignal(WTERMSIG(*status)) +
                      ")");
  if (status && WEXITSTATUS(*status) != 0)
    throw ImportFault("cannot be read: the reader ended with status " +
                      std::to_string(WEXITSTATUS(*status)));

  const std::vector<std::byte> bytes = Content(result);
  const std::span<const std::byte> content(bytes);
  if (bytes.empty()) throw ImportFault("cannot be read: the reader said nothing");
  if (bytes[0] == kIsPlan) return DecodePlan(content.subspan(1));
  throw ImportFault(std::string(reinterpret_cast<const char*>(bytes.data() + 1), bytes.size() - 1));
}

int RunModelReader(int argc, char** argv) {
  if (argc != 4) return 2;
  ReaderLimits limits;
  limits.bytes = size_t(std::strtoull(argv[1], nullptr, 10));
  limits.seconds = std::strtod(argv[2], nullptr);
  if (!SetLimits(limits)) return 3;
  bool told = false;
  try {
    const ImportPlan plan = ReadModel(argv[3]);
    told = HandOver(kIsPlan, EncodePlan(plan));
  } catch (const ImportFault& fault) {
    told = HandOverFault(fault.what());
  } catch (const std::bad_alloc&) {
    told = HandOverFault("cannot be read: it needs more memory than " + MiB(limits.bytes));
  } catch (const std::exception& e) {
    told = HandOverFault(std::string("cannot be read: ") + e.what());
  }
  // Libraries leave behind what they had made when they gave up; the system takes it all.
  ::_exit(told ? 0 : 4);
}

}  // namespace host
