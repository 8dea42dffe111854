// What stands on the disk when a save is killed or finds no room, and when files are damaged.
#include <fcntl.h>
#include <sched.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/statvfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstring>
#include <functional>
#include <map>
#include <nlohmann/json.hpp>
#include <random>
#include <thread>

#include "host/host.h"
#include "host/io/file.h"
#include "host/io/glb.h"
#include "host/io/scenefile.h"
#include "host/scene/triobject.h"
#include "tests/host/filewatch.h"
#include "tests/host/tempfolder.h"

namespace {

namespace fs = std::filesystem;
using Files = std::map<std::string, std::string>;  // by name

class SceneSafety : public TempFolder {
 protected:
  SceneSafety() { host_.Services().CreateObjectNode(mesh_); }
  /// A scene of so many points.
  bool Save(int points, const std::string& name, host::SaveOptions options = {}) {
    mesh_->mesh.setNumVerts(points);
    std::fill(mesh_->mesh.verts.begin(), mesh_->mesh.verts.end(), Point3(float(points), 0, 0));
    return host::SaveScene(host_.Services(), Path(name), options, error_, &saved_);
  }
  /// How many points the scene in a file shows, or -1 if none is read or they aren't as they were.
  int PointsIn(const std::string& name, std::vector<std::string>* recover = nullptr) {
    host::Host other;
    if (!host::OpenScene(other.Services(), Path(name), {{}, recover}, error_)) return -1;
    Object* shown = other.GetScene().AllNodes()[0]->GetObjectRef();
    const auto& verts = static_cast<TriObject*>(shown)->mesh.verts;
    const float x = float(verts.size());
    return std::all_of(verts.begin(), verts.end(), [&](Point3 p) { return p == Point3(x, 0, 0); })
               ? int(verts.size())
               : -1;
  }
  Files All() const {
    Files files;
    for (const auto& entry : fs::directory_iterator(folder_)) {
      if (!fs::is_regular_file(entry.symlink_status())) continue;
      files[entry.path().filename().string()] = Content(entry.path());
    }
    return files;
  }
  std::string BinOf(const std::string& gltf) const {
    const std::string text = All().at(gltf);
    const size_t at = text.find("\"uri\":\"") + 7;
    return text.substr(at, text.find('"', at) - at);
  }
  void KillWhileSaving(const std::string& name, int rounds);
  /// Does the work in a child whose folder_ is a disk of its own; empty is success, a text that
  /// begins with "skip" tells why there is none.
  std::string OnOwnDisk(size_t bytes, const std::function<std::string()>& work);
  std::string FillUp(const std::string& name);

  host::Host host_;
  TriObject* mesh_ = new TriObject;
  host::SavedScene saved_;
};

void SceneSafety::KillWhileSaving(const std::string& name, int rounds) {
  using Clock = std::chrono::steady_clock;
  const int sizes[] = {30000, 20000};
  std::string main[2];
  const auto begin = Clock::now();
  for (int k = 0; k < 2; ++k) {
    ASSERT_TRUE(Save(sizes[k], name)) << error_;
    main[k] = All().at(name);
  }
  const double save = std::chrono::duration<double>(Clock::now() - begin).count() / 2;
  std::mt19937 random(11);
  size_t leftovers = 0;
  for (int i = 0; i < rounds; ++i) {
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      for (int k = i;; ++k)
        if (!Save(sizes[k % 2], name)) _exit(1);
    }
    std::uniform_real_distribution<double> moment(0, 2 * save);
    std::this_thread::sleep_for(std::chrono::duration<double>(moment(random)));
    kill(child, SIGKILL);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status)) << "a save failed";
    const Files files = All();
    for (const auto& file : files) leftovers += file.first.ends_with(".saving");
    const int k = files.at(name) == main[0] ? 0 : 1;
    ASSERT_TRUE(files.at(name) == main[k]) << i;
    ASSERT_EQ(PointsIn(name), sizes[k]) << i << error_;
  }
  EXPECT_GT(leftovers, 0u);  // the saves were hit in their midst
  ASSERT_TRUE(Save(10, name)) << error_;
  EXPECT_EQ(All().size(), name.ends_with(".glb") ? 1u : 2u);
}

TEST_F(SceneSafety, AKilledSaveLeavesTheOldFileOrTheNewOne) { KillWhileSaving("a.glb", 200); }
TEST_F(SceneSafety, AKilledSaveLeavesTheOldPairOrTheNewOne) { KillWhileSaving("a.gltf", 60); }

TEST_F(SceneSafety, SaversAndReadersOfAPairDontDisturbOneAnother) {
  ASSERT_TRUE(Save(1000, "a.gltf")) << error_;
  pid_t savers[2];
  for (int k = 0; k < 2; ++k) {
    savers[k] = fork();
    if (savers[k] != 0) continue;
    bool saved = true;
    for (int i = 0; i < 150 && saved; ++i) saved = Save(1000 + i % 3, "a.gltf");
    _exit(saved ? 0 : 1);
  }
  int status = 0, running = 2;
  while (running > 0) {
    const int points = PointsIn("a.gltf");
    ASSERT_TRUE(points >= 1000 && points < 1003) << points << error_;
    if (waitpid(savers[running - 1], &status, WNOHANG) == 0) continue;
    EXPECT_EQ(status, 0);
    --running;
  }
  EXPECT_EQ(All().size(), 2u);
}

TEST_F(SceneSafety, OnlyLeftoversAreRemoved) {
  const std::string others[] = {".a.glb.AbC123", ".b.glb.AbC123.saving", "a.glb.AbC123.saving",
                                ".a.glb.AbC1234.saving"};
  for (const std::string& name : others) Put(name, "another's");
  Put(".a.glb.AbC123.saving.bak", "");
  Put(".a.glb.xyz789.saving", "");
  host::SafeFile living(Path("a.glb"));
  ASSERT_TRUE(living.Open());
  host::RemoveLeftovers(Path("a.glb"));
  EXPECT_EQ(All().size(), std::size(others) + 1);
  EXPECT_TRUE(living.Commit()) << living.Error();
  for (const std::string& name : others) EXPECT_TRUE(fs::exists(Path(name))) << name;
}

TEST_F(SceneSafety, APairIsAsGoodAsOneFile) {
  const auto save = [&](const std::string& name, size_t most) {
    return Save(1000, name, {.mostGlbBytes = most});
  };
  const std::string stem = "b\u00e4um 1%";
  ASSERT_TRUE(save(stem + ".glb", SIZE_MAX)) << error_;
  const size_t size = fs::file_size(Path(stem + ".glb"));
  EXPECT_EQ(saved_.bytes, size);
  ASSERT_TRUE(save(stem + ".glb", size)) << error_;
  EXPECT_EQ(saved_.path, Path(stem + ".glb"));
  fs::remove(saved_.path);
  ASSERT_TRUE(save(stem + ".glb", size - 1)) << error_;
  EXPECT_EQ(saved_.path, Path(stem + ".gltf"));
  EXPECT_TRUE(host::LooksLikeScene(saved_.path));
  const Files first = All();
  size_t bytes = 0;
  for (const auto& [name, content] : first) bytes += content.size();
  EXPECT_EQ(saved_.bytes, bytes);
  for (const auto& file : first) fs::remove(Path(file.first));
  ASSERT_TRUE(save(stem + ".gltf", size)) << error_;
  EXPECT_EQ(All(), first);
  EXPECT_EQ(PointsIn(stem + ".gltf"), 1000) << error_;
  // Through a link the pair lies where the link leads.
  fs::create_directory(Path("sub"));
  fs::create_symlink("sub/x.gltf", Path("link.gltf"));
  ASSERT_TRUE(Save(1000, "link.gltf")) << error_;
  EXPECT_TRUE(fs::is_symlink(Path("link.gltf")));
  for (const char* name : {"link.gltf", "sub/x.gltf"}) EXPECT_EQ(PointsIn(name), 1000) << error_;
  Put("model.gltf", "{\"asset\":{\"version\":\"2.0\"}}");
  EXPECT_FALSE(host::LooksLikeScene(Path("model.gltf")));
  EXPECT_FALSE(save("model.glb", 1));
  EXPECT_NE(error_.find("model.gltf\", where it would lie, is no scene"), std::string::npos);
}

TEST_F(SceneSafety, BytesOfAPairStayAsLongAsAnyoneNamesThem) {
  ASSERT_TRUE(Save(1000, "a.gltf")) << error_;
  ASSERT_TRUE(Save(500, "a.gltf", {.backup = true})) << error_;
  EXPECT_EQ(PointsIn("a.gltf.bak"), 1000) << error_;
  fs::copy_file(Path("a.gltf"), Path("copy.gltf"));
  ASSERT_TRUE(Save(600, "a.gltf")) << error_;
  Put("a.0123456789abcdeg.bin", "");
  Put("b.0123456789abcdef.bin", "");
  for (int i = 0; i < 2; ++i) ASSERT_TRUE(Save(700, "a.gltf")) << error_;
  EXPECT_EQ(PointsIn("a.gltf"), 700) << error_;
  EXPECT_EQ(PointsIn("a.gltf.bak"), 1000) << error_;
  EXPECT_EQ(PointsIn("copy.gltf"), 500) << error_;
  EXPECT_EQ(All().size(), 8u);  // three pairs and two that are no business of ours
}

// Whatever a file is called and however it is written, it keeps the bytes that it names.
TEST_F(SceneSafety, BytesStayWhereAnyFileMayNameThem) {
  const std::pair<const char*, int> pairs[] = {
      {"A.GLTF.bak", 100}, {"A.GLTF", 200}, {"A.gltf", 300}, {"A.Gltf", 400}};
  for (int i = 0; i < 2; ++i) ASSERT_TRUE(Save(100 + 100 * i, "A.GLTF", {i == 1})) << error_;
  for (const auto& [name, points] : {pairs[2], pairs[3], pairs[2], pairs[1], pairs[3]})
    ASSERT_TRUE(Save(points, name)) << error_;
  for (const auto& [name, points] : pairs) EXPECT_EQ(PointsIn(name), points) << name << error_;
  // An older backup makes way for the next one, with its bytes.
  ASSERT_TRUE(Save(210, "A.GLTF", {.backup = true})) << error_;
  EXPECT_EQ(PointsIn("A.GLTF.bak"), 200) << error_;
  EXPECT_EQ(All().size(), 8u);

  const std::string text = nlohmann::json::parse(All().at("A.gltf")).dump(2);
  std::string wide("\xFF\xFE", 2);
  for (const char c : std::string(100000, ' ') + text) (wide += c) += '\0';
  const std::string blanks(3 << 20, ' ');
  const std::pair<std::string, std::string> copies[] = {
      {"notes", text},
      {"wide", wide},
      {"text", "\xEF\xBB\xBF\r\n{" + blanks + text},
      {"a.GLTF~", "?" + blanks + text}};
  const std::string bin = BinOf("A.gltf");
  for (const auto& [name, content] : copies) {
    ASSERT_TRUE(Save(300, "A.gltf")) << error_;
    Put(name, content);
    ASSERT_TRUE(Save(301, "A.gltf")) << error_;
    EXPECT_TRUE(fs::exists(Path(bin))) << name;
    ASSERT_TRUE(Save(300, "A.gltf")) << error_;
    fs::remove(Path(name));
    ASSERT_TRUE(Save(301, "A.gltf")) << error_;
    EXPECT_FALSE(fs::exists(Path(bin))) << name;
  }
  // One that was taken away may come back.
  const std::string away = All().at("A.gltf");
  fs::remove(Path("A.gltf"));
  for (const int points : {1, 2, 3}) ASSERT_TRUE(Save(points, "A.gltf")) << error_;
  Put("A.gltf", away);
  EXPECT_EQ(PointsIn("A.gltf"), 301) << error_;
}

TEST_F(SceneSafety, BytesStayWhereNobodyCanTellWhetherTheyAreNamed) {
  ASSERT_EQ(chmod(folder_.c_str(), 0777), 0);
  ASSERT_TRUE(AsNobody([&] { return Save(100, "a.gltf"); }));
  const std::string bin = BinOf("a.gltf");
  Put("secret", "");
  ASSERT_EQ(chmod(Path("secret").c_str(), 0), 0);
  EXPECT_TRUE(AsNobody([&] { return Save(200, "a.gltf"); }));
  EXPECT_TRUE(fs::exists(Path(bin)));
  ASSERT_EQ(chmod(Path("secret").c_str(), 0444), 0);
  ASSERT_TRUE(AsNobody([&] { return Save(100, "a.gltf"); }));
  EXPECT_TRUE(AsNobody([&] { return Save(200, "a.gltf"); }));
  EXPECT_FALSE(fs::exists(Path(bin)));
  const FileWatch watch;
  host::theFileCalls.lock = [](int, int) { return errno = ENOLCK, -1; };
  const std::string last = BinOf("a.gltf");
  EXPECT_TRUE(Save(300, "a.gltf")) << error_;
  EXPECT_TRUE(fs::exists(Path(last)));
}

TEST_F(SceneSafety, AFolderThatIsLockedForLongIsNamed) {
  ASSERT_TRUE(Save(10, "a.gltf")) << error_;
  const Files old = All();
  const int fd = open(folder_.c_str(), O_RDONLY | O_DIRECTORY);
  ASSERT_EQ(flock(fd, LOCK_EX), 0);
  static int waited, locked;
  waited = 0, locked = fd;
  const FileWatch watch;
  host::theFileCalls.pause = [](useconds_t time) { return waited += int(time), 0; };
  EXPECT_FALSE(Save(20, "a.gltf"));
  EXPECT_EQ(error_, "cannot save \"" + Path("a.gltf") +
                        "\": another program holds a lock on the folder \"" + folder_ + "\"");
  EXPECT_EQ(waited, 5000000);  // microseconds
  EXPECT_EQ(All(), old);
  EXPECT_TRUE(Save(20, "a.glb")) << error_;
  host::theFileCalls.pause = [](useconds_t) { return flock(locked, LOCK_UN); };
  EXPECT_TRUE(Save(20, "a.gltf")) << error_;
  close(fd);
}

TEST_F(SceneSafety, OldBytesGoWhenTheNewPairIsOnTheDisk) {
  const mode_t mask = umask(027);
  ASSERT_TRUE(Save(10, "a.gltf")) << error_;
  umask(mask);
  const std::string old = BinOf("a.gltf");
  for (const std::string& name : {old, std::string("a.gltf")})
    EXPECT_EQ(fs::status(Path(name)).permissions(), fs::perms(0640));
  static std::string oldPath;
  static int lasting;
  oldPath = Path(old), lasting = 0;
  FileWatch watch;
  static int (*watched)(int);
  watched = host::theFileCalls.fsync;
  host::theFileCalls.fsync = [](int fd) {
    lasting += fs::exists(oldPath);
    return watched(fd);
  };
  ASSERT_TRUE(Save(20, "a.gltf")) << error_;
  EXPECT_EQ(watch.Calls(),
            (std::vector<std::string>{"write 0", "sync 0", "write 1", "sync 1", "write 2",
                                      "rename 0 " + BinOf("a.gltf"), "sync folder",
                                      "rename 1 a.gltf", "sync folder"}));
  EXPECT_EQ(lasting, 4);
  EXPECT_EQ(All().size(), 2u);
}

// Ended before each of the calls that make the change, one after the other.
TEST_F(SceneSafety, APairThatIsCutShortAnywhereIsWholeAndClearedAway) {
  static int left;
  static const auto end = [] {
    if (left-- == 0) _exit(7);
  };
  for (int last = 0, status = 7 << 8; WEXITSTATUS(status) == 7; ++last) {
    for (const int points : {10, 20})
      ASSERT_TRUE(Save(points, "a.gltf", {.backup = true})) << error_;
    const pid_t child = fork();
    if (child == 0) {
      static const host::FileCalls calls = host::theFileCalls;
      left = last;
      host::theFileCalls.fsync = [](int fd) { return end(), calls.fsync(fd); };
      host::theFileCalls.rename = [](const char* a, const char* b) {
        return end(), calls.rename(a, b);
      };
      _exit(Save(30, "a.gltf", {.backup = true}) ? 0 : 1);
    }
    ASSERT_EQ(waitpid(child, &status, 0), child);
    const int points = PointsIn("a.gltf"), before = PointsIn("a.gltf.bak");
    EXPECT_TRUE(points == 30 || points == 20) << last << error_;
    EXPECT_TRUE(before == 20 || before == 10) << last << error_;
    ASSERT_TRUE(Save(40, "a.gltf")) << error_;
    EXPECT_EQ(PointsIn("a.gltf.bak"), before) << error_;
    EXPECT_EQ(All().size(), 4u) << last;
  }
}

// A text that another program has read and written back, in a pair and in a single file.
TEST_F(SceneSafety, AForeignTextHasAllItsTables) {
  const auto expect = [&](const std::string& name, const std::string& why) {
    EXPECT_EQ(PointsIn(name), -1) << why;
    EXPECT_NE(error_.find(why), std::string::npos) << error_;
    std::vector<std::string> lost;
    EXPECT_EQ(PointsIn(name, &lost), 50) << why << error_;
    ASSERT_GE(lost.size(), 1u);
    EXPECT_NE(lost[0].find(why), std::string::npos) << lost[0];
    EXPECT_TRUE(host::LooksLikeScene(Path(name)));
  };
  const char* foreign = "was changed by another program, or damaged";
  const std::string mark = "\xEF\xBB\xBF";
  ASSERT_TRUE(Save(50, "a.gltf")) << error_;
  const std::string text = All().at("a.gltf");
  const std::string pretty = nlohmann::json::parse(text).dump(2);
  std::string lines;
  for (const char c : pretty) lines += c == '\n' ? "\r\n" : std::string(1, c);
  for (const std::string& other : {pretty, lines, mark + lines + "\r\n", " \n" + pretty}) {
    Put("a.gltf", other);
    expect("a.gltf", foreign);
  }
  Put("a.gltf", text + "} more");
  expect("a.gltf", "unless another program has changed it");
  Put("a.gltf", mark + text);  // the text itself is as it was
  EXPECT_EQ(PointsIn("a.gltf"), 50) << error_;
  const std::string bin = BinOf("a.gltf");
  Put("a.gltf", pretty + "\n");
  fs::resize_file(Path(bin), fs::file_size(Path(bin)) + 1);
  expect("a.gltf", "beside it has");

  ASSERT_TRUE(Save(50, "a.glb")) << error_;
  const std::string whole = All().at("a.glb");
  const auto number = [](size_t n) {
    const auto word = std::uint32_t(n);
    return std::string(reinterpret_cast<const char*>(&word), 4);
  };
  std::uint32_t size;
  std::memcpy(&size, whole.data() + 12, 4);
  const std::string sealed = whole.substr(20, size), bytes = whole.substr(20 + size);
  const std::string other = nlohmann::json::parse(sealed).dump(1, '\t');
  for (std::string told : {other, mark + other}) {
    told.append((4 - told.size() % 4) % 4, ' ');
    Put("a.glb", whole.substr(0, 8) + number(20 + told.size() + bytes.size()) +
                     number(told.size()) + "JSON" + told + bytes);
    expect("a.glb", foreign);
  }
  // Lengths and padding forgotten.
  for (const std::string end : {"", "\n", "\r\n"}) {
    Put("a.glb", whole.substr(0, 20) + sealed.substr(0, sealed.rfind('}') + 1) + end + bytes);
    std::vector<std::string> lost;
    EXPECT_EQ(PointsIn("a.glb", &lost), 50) << error_;
  }
}

TEST_F(SceneSafety, APairThatCannotTakeItsPlaceLeavesNoBytes) {
  ASSERT_TRUE(Save(1000, "a.gltf")) << error_;
  const Files old = All();
  fs::create_directory(Path("a.gltf.bak"));
  EXPECT_FALSE(Save(30, "a.gltf", {.backup = true}));
  EXPECT_EQ(error_, "cannot keep a backup of \"" + Path("a.gltf") + "\": Is a directory");
  EXPECT_EQ(All(), old);
}

// A text with its checksum set right.
std::string Sealed(std::string text) {
  const std::string mark = "\"jsonCrc\":\"";
  const size_t at = text.find(mark) + mark.size();
  text.replace(at, 8, "00000000");
  return text.replace(at, 8, host::CrcText(host::Crc32c(std::as_bytes(std::span(text)))));
}

TEST_F(SceneSafety, DamageOfAPairIsNamed) {
  ASSERT_TRUE(Save(50, "a.gltf")) << error_;
  const std::string name = BinOf("a.gltf"), text = All().at("a.gltf"), bytes = All().at(name);
  const auto expect = [&](const std::string& why) {
    EXPECT_EQ(PointsIn("a.gltf"), -1) << why;
    EXPECT_NE(error_.find(why), std::string::npos) << error_;
    EXPECT_NE(error_.find(Path("a.gltf")), std::string::npos) << error_;
  };
  for (size_t n = 0; n < bytes.size(); n += 7) {
    Put(name, bytes.substr(0, n));
    expect(name + "\" beside it has " + std::to_string(n) + " bytes, expected " +
           std::to_string(bytes.size()));
  }
  std::string changed = bytes;
  changed[17] ^= 4;
  Put(name, changed);
  expect("is damaged: its checksum is");
  fs::remove(Path(name));
  expect(Path(name) + "\": No such file or directory");
  Put(name, bytes);
  for (size_t n = 0; n < text.size(); n += 11) {
    Put("a.gltf", text.substr(0, n));
    ASSERT_EQ(PointsIn("a.gltf"), -1) << n;
  }
  for (const char* uri : {"..", "sub%2F0.bin", "/etc/hostname", ""}) {
    std::string other = text;
    Put("a.gltf", Sealed(other.replace(text.find(name), name.size(), uri)));
    expect("no file beside it");
  }
  Put("a.gltf", text);
  EXPECT_EQ(PointsIn("a.gltf"), 50) << error_;
}

// The bytes moved behind 5 GiB of nothing.
TEST_F(SceneSafety, APairMayBeLargerThanFourGigabytes) {
  constexpr size_t kGap = size_t(5) << 30;
  ASSERT_TRUE(Save(1000, "a.gltf")) << error_;
  const std::string name = BinOf("a.gltf"), bytes = All().at(name);
  std::string text = All().at("a.gltf");
  const auto shift = [&](const std::string& mark) {
    for (size_t at = 0; (at = text.find(mark, at)) != std::string::npos;) {
      at += mark.size();
      const size_t end = text.find_first_not_of("0123456789", at);
      text.replace(at, end - at, std::to_string(std::stoull(text.substr(at, end - at)) + kGap));
    }
  };
  shift("\"byteOffset\":");
  shift("\"buffers\":[{\"byteLength\":");
  Put("a.gltf", Sealed(text));
  fs::resize_file(Path(name), 0);
  fs::resize_file(Path(name), kGap + bytes.size());
  std::fstream file(Path(name), std::ios::binary | std::ios::in | std::ios::out);
  file.seekp(std::streamoff(kGap));
  file << bytes;
  file.close();
  EXPECT_EQ(PointsIn("a.gltf"), 1000) << error_;
}

// A larger scene is saved over a small one with ever more room, until it fits.
TEST_F(SceneSafety, AWriteThatFailsHalfwayLeavesTheOldFile) {
  rlimit all{};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &all), 0);
  const auto handler = std::signal(SIGXFSZ, SIG_IGN);
  // Of a pair of 20 points the description is the larger file, of 4000 points the bytes are.
  for (const std::string name : {"a.glb", "a.gltf"})
    for (const int points : {20, 4000}) {
      ASSERT_TRUE(Save(5, name)) << error_;
      const Files old = All();
      rlimit most = all;
      for (most.rlim_cur = 0;; most.rlim_cur += size_t(points)) {
        ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &most), 0);
        const bool saved = Save(points, name, {.backup = true});
        setrlimit(RLIMIT_FSIZE, &all);
        if (saved) break;
        ASSERT_EQ(error_, "cannot write \"" + Path(name) + "\": File too large");
        ASSERT_TRUE(All() == old) << "with room for " << most.rlim_cur;
      }
      EXPECT_GE(most.rlim_cur, std::max(fs::file_size(Path(name)), points * sizeof(Point3)));
      EXPECT_EQ(PointsIn(name), points) << error_;
      EXPECT_EQ(PointsIn(name + ".bak"), 5) << error_;
      EXPECT_FALSE(Save(5, "none/" + name));
      EXPECT_EQ(error_, "cannot write \"" + Path("none/" + name) + "\": No such file or directory");
    }
  std::signal(SIGXFSZ, handler);
}

// False with the reason where the machine allows no disk of one's own.
bool MountDisk(const std::string& folder, size_t bytes, std::string& why) {
  const uid_t user = geteuid();
  const gid_t group = getegid();
  why = "no name space of one's own: ";
  if (unshare(CLONE_NEWNS) != 0) {
    if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) return why += std::strerror(errno), false;
    const auto put = [](const char* path, const std::string& text) { std::ofstream(path) << text; };
    put("/proc/self/setgroups", "deny");
    put("/proc/self/uid_map", "0 " + std::to_string(user) + " 1");
    put("/proc/self/gid_map", "0 " + std::to_string(group) + " 1");
  }
  why = "no disk can be mounted: ";
  const std::string options = "size=" + std::to_string(bytes);
  if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
      mount("tmpfs", folder.c_str(), "tmpfs", 0, options.c_str()) != 0)
    return why += std::strerror(errno), false;
  return true;
}

std::string SceneSafety::OnOwnDisk(size_t bytes, const std::function<std::string()>& work) {
  const std::string told = folder_ + ".told";
  const pid_t child = fork();
  if (child == 0) {
    std::ofstream out(told);
    std::string text;
    const bool mounted = MountDisk(folder_, bytes, text);
    out << (mounted ? work() : "skip: " + text);
    out.close();
    _exit(out ? 0 : 1);
  }
  int status = 0;
  waitpid(child, &status, 0);
  const std::string text = Content(told);
  fs::remove(told);
  return status == 0 ? text : "the child ended with " + std::to_string(status) + ": " + text;
}

// Saves a larger scene over a small one with ever more room, until it fits; then on the same disk,
// made read-only.
std::string SceneSafety::FillUp(const std::string& name) {
  const std::string refused = "cannot write \"" + Path(name) + "\": ";
  if (!Save(100, name)) return error_;
  Files old = All();
  constexpr size_t kPage = 4096;
  size_t pages = 0;
  for (;; ++pages) {
    struct statvfs disk {};
    if (statvfs(folder_.c_str(), &disk) != 0 || disk.f_bfree < pages) return "it never fitted";
    Put("filler", std::string((disk.f_bfree - pages) * kPage, 'x'));
    const bool saved = Save(4000, name, {.backup = true});
    fs::remove(Path("filler"));
    if (saved) break;
    if (error_ != refused + "No space left on device") return error_;
    if (All() != old) return "the old files changed, with room for " + std::to_string(pages);
  }
  if (pages * kPage < 4000 * sizeof(Point3)) return "it can't have fitted";
  if (PointsIn(name) != 4000 || PointsIn(name + ".bak") != 100) return "saved wrongly";
  old = All();
  if (mount(nullptr, folder_.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr) != 0)
    return "it can't be made read-only";
  if (Save(5, name) || error_ != refused + "Read-only file system") return error_;
  return All() == old ? "" : "the old files changed";
}

TEST_F(SceneSafety, AFullOrReadOnlyDiskLeavesTheOldFile) {
  for (const char* name : {"a.glb", "a.gltf"}) {
    const std::string result = OnOwnDisk(512 * 1024, [&] { return FillUp(name); });
    if (result.starts_with("skip")) GTEST_SKIP() << result;
    EXPECT_EQ(result, "") << name;
  }
}

}  // namespace
