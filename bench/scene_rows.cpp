#include <fcntl.h>
#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>

#include "bench/painted.h"
#include "bench/rows.h"
#include "host/files/file.h"
#include "host/scenefile/scenefile.h"

namespace bench {
namespace {

using namespace sowfield;

constexpr int kMillion = 1000000;

/// The scene and its measures, in a folder of their own that goes with the process.
struct Folder {
  Folder() {
    std::string pattern = std::filesystem::temp_directory_path() / "sowfield_bench_XXXXXX";
    if (!mkdtemp(pattern.data())) throw std::runtime_error("no folder for scenes");
    path = pattern;
  }
  ~Folder() { std::filesystem::remove_all(path); }
  std::string path;
};

std::string FileOf(const char* name) {
  static const Folder folder;
  return folder.path + "/" + name;
}

void Save(Painted& scene, const std::string& path) {
  std::string error;
  if (!host::SaveScene(scene.host.Services(), path, {}, error)) throw std::runtime_error(error);
}

/// The million, saved once.
const std::string& SavedMillion() {
  static const std::string path = [] {
    const std::string file = FileOf("million.glb");
    Save(SceneOf(kMillion), file);
    return file;
  }();
  return path;
}

size_t SavedBytes() { return std::filesystem::file_size(SavedMillion()); }

void SaveMillion(benchmark::State& state) {
  Painted& scene = SceneOf(kMillion);
  for (auto _ : state) Save(scene, FileOf("ours.glb"));
}

// As many bytes from memory, as a careful writer would.
void WriteAsMany(benchmark::State& state) {
  const std::vector<std::byte> bytes(SavedBytes(), std::byte{0x5A});
  const std::string path = FileOf("theirs"), aside = FileOf("theirs.new");
  for (auto _ : state) {
    const int fd = ::open(aside.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    const bool written = fd >= 0 && host::WriteAll(fd, bytes) && ::fsync(fd) == 0;
    ::close(fd);
    if (!written || std::rename(aside.c_str(), path.c_str()) != 0)
      return state.SkipWithError("can't write");
  }
}

struct Reader {
  Reader() {
    std::string why;
    if (!host.Classes().AddPlugin(Entries(), why)) throw std::runtime_error(why);
  }
  void Open(const std::string& path) {
    std::string error;
    if (!host::OpenScene(host.Services(), path, {}, error)) throw std::runtime_error(error);
  }
  host::Host host;
};

void OpenMillion(benchmark::State& state) {
  const std::string path = SavedMillion();
  for (auto _ : state) {
    state.PauseTiming();
    auto reader = std::make_unique<Reader>();
    state.ResumeTiming();
    reader->Open(path);
    state.PauseTiming();
    reader.reset();
    state.ResumeTiming();
  }
}

bool ReadAll(const std::string& path, std::byte* to, size_t size) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  size_t done = 0;
  for (ssize_t n = 1; fd >= 0 && n > 0 && done < size; done += size_t(n))
    if ((n = ::read(fd, to + done, size - done)) < 0) break;
  ::close(fd);
  return done == size;
}

void ReadFresh(benchmark::State& state) {
  const std::string path = SavedMillion();
  const size_t size = SavedBytes();
  for (auto _ : state) {
    const auto bytes = std::make_unique_for_overwrite<std::byte[]>(size);
    if (!ReadAll(path, bytes.get(), size)) return state.SkipWithError("can't read");
  }
}

void ReadWarm(benchmark::State& state) {
  const std::string path = SavedMillion();
  std::vector<std::byte> bytes(SavedBytes());
  for (auto _ : state)
    if (!ReadAll(path, bytes.data(), bytes.size())) return state.SkipWithError("can't read");
}

// A line of /proc/self/status, in bytes.
double StatusBytes(const std::string& key) {
  std::ifstream in("/proc/self/status");
  for (std::string line; std::getline(in, line);)
    if (line.starts_with(key)) return std::stod(line.substr(key.size())) * 1024;
  return 0;
}

/// By how many bytes the process's resident memory rose above its start at its peak, in a child
/// with an emptied heap: what malloc and the libraries hold counts, pages of files in the cache
/// don't.
double PeakOf(const std::function<void()>& work) {
  int ends[2];
  if (pipe(ends) != 0) throw std::runtime_error("no pipe");
  const pid_t child = fork();
  if (child == 0) {
    double rise = -1;
    malloc_trim(0);
    std::ofstream("/proc/self/clear_refs") << "5";  // the peak starts anew
    const double before = StatusBytes("VmRSS:");
    try {
      work();
      rise = StatusBytes("VmHWM:") - before;
    } catch (const std::exception& e) {
      std::fprintf(stderr, "%s\n", e.what());
    }
    _exit(::write(ends[1], &rise, sizeof rise) == sizeof rise ? 0 : 1);
  }
  double rise = -1;
  ::close(ends[1]);
  if (::read(ends[0], &rise, sizeof rise) != sizeof rise) rise = -1;
  ::close(ends[0]);
  waitpid(child, nullptr, 0);
  if (rise < 0) throw std::runtime_error("the memory can't be measured");
  return rise;
}

double TableBytes() {
  const IParamBlock2& b = SceneOf(kMillion).Block();
  double bytes = 0;
  for (const Param id : {Ins_Pos, Ins_Normal}) bytes += double(b.Points(id).size_bytes());
  for (const Param id : {Ins_Type, Ins_Rand, Ins_AnimRand})
    bytes += double(b.Ints(id).size_bytes());
  return bytes;
}

// The scene is there already.
double BesideSaving() {
  const double tables = TableBytes();
  return PeakOf([] { Save(SceneOf(kMillion), FileOf("peak.glb")); }) / tables;
}

// No scene was there before; the tables are made.
double BesideOpening() {
  const double tables = TableBytes();
  const std::string path = SavedMillion();
  return PeakOf([&] { Reader().Open(path); }) / tables - 1;
}

}  // namespace

void AddSceneRows() {
  AddRow("scene of 1,000,000 saved", SaveMillion, "as many bytes written and synced", WriteAsMany,
         AtMost(3));
  AddRow("scene of 1,000,000 opened", OpenMillion, "as many bytes read into fresh memory",
         ReadFresh, AtMost(3));
  AddRow("the same opened", OpenMillion, "as many bytes read into memory in use", ReadWarm);
  AddFigure("most memory beside the tables while saving", "x tables", BesideSaving, AtMost(1.5));
  AddFigure("most memory beside the tables while opening", "x tables", BesideOpening, AtMost(1.5));
}

}  // namespace bench
