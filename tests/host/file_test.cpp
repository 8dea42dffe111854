#include "host/files/file.h"

#include <fcntl.h>
#include <grp.h>
#include <sched.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <functional>
#include <nlohmann/json.hpp>

#include "host/host.h"
#include "host/scene/triobject.h"
#include "host/scenefile/scenefile.h"
#include "tests/host/sealed.h"
#include "tests/host/tempfolder.h"

namespace {

namespace fs = std::filesystem;

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

/// What `waitpid` tells of a child that does the work and exits with its result.
template <class F>
int StatusOfChild(F work) {
  const pid_t child = fork();
  if (child == 0) _exit(work());
  int status = 0;
  return waitpid(child, &status, 0) == child ? status : -1;
}

/// Whether the work succeeds in a child without a superuser's rights.
template <class F>
bool AsNobody(F work) {
  const int status = StatusOfChild([&] {
    constexpr id_t kNobody = 65534;
    if (geteuid() == 0 &&
        (setgroups(0, nullptr) != 0 || setegid(kNobody) != 0 || seteuid(kNobody) != 0))
      return 2;
    return work() ? 0 : 1;
  });
  return status == 0;
}

class FileIo : public TempFolder {
 protected:
  bool Write(const std::string& path, const std::string& text) {
    return host::WriteFileSafely(path, std::as_bytes(std::span(text)), error_);
  }
};

TEST_F(FileIo, WhatWasWrittenIsReadAndLinksStay) {
  const std::string link = Path("link"), text("one\0two\xFF", 8);
  Put("a", "old");
  fs::create_symlink("a", link);
  ASSERT_TRUE(Write(link, text)) << error_;
  std::vector<std::byte> bytes;
  ASSERT_TRUE(host::ReadFile(Path("a"), bytes, error_)) << error_;
  EXPECT_EQ(Raw(bytes), text);
  EXPECT_TRUE(fs::is_symlink(link));
  fs::create_symlink("ring", Path("ring"));
  EXPECT_FALSE(Write(Path("ring"), "new"));
  EXPECT_TRUE(fs::is_symlink(Path("ring")));
}

TEST_F(FileIo, AFileIsOnTheDiskBeforeItTakesItsPlace) {
  using Calls = std::vector<std::string>;
  FileWatch watch;
  ASSERT_TRUE(Write(Path("a"), "old")) << error_;
  EXPECT_EQ(watch.Calls(), (Calls{"write 0", "sync 0", "rename 0 a", "sync folder"}));
  host::SafeFile file(Path("a"));
  const std::string text = "new";
  ASSERT_TRUE(file.Open() && file.Write(std::as_bytes(std::span(text))) && file.Commit(true));
  EXPECT_EQ(watch.Calls(),
            (Calls{"write 1", "sync 1", "rename 1.bak a.bak", "rename 1 a", "sync folder"}));
  EXPECT_EQ(Content(Path("a.bak")), "old");
  host::theFileCalls.fsync = [](int) { return errno = EIO, -1; };
  EXPECT_FALSE(Write(Path("a"), "never"));
  EXPECT_EQ(error_, "cannot write \"" + Path("a") + "\": Input/output error");
  EXPECT_EQ(Content(Path("a")), "new");
}

TEST_F(FileIo, WhoMayReadAndWriteStaysAsItWas) {
  struct stat info {};
  const mode_t mask = umask(027);
  EXPECT_TRUE(Write(Path("a"), "x")) << error_;
  umask(mask);
  EXPECT_EQ(fs::status(Path("a")).permissions(), fs::perms(0640));
  const uid_t owner = geteuid() == 0 ? 65534 : geteuid();
  const gid_t group = geteuid() == 0 ? 65533 : getegid();
  const auto replace = [&](mode_t mode) {
    EXPECT_EQ(chown(Path("a").c_str(), owner, group), 0);
    EXPECT_EQ(chmod(Path("a").c_str(), mode), 0);
    EXPECT_TRUE(Write(Path("a"), "y")) << error_;
    EXPECT_EQ(stat(Path("a").c_str(), &info), 0);
    return info.st_mode & 07777;
  };
  EXPECT_EQ(replace(06751), 06751u);
  EXPECT_TRUE(info.st_uid == owner && info.st_gid == group);
  FileWatch watch;  // sets the calls right again
  host::theFileCalls.chown = [](int fd, uid_t user, gid_t to) {
    return user != uid_t(-1) ? (errno = EPERM, -1) : fchown(fd, user, to);
  };
  EXPECT_EQ(replace(06660), 0660u);
  EXPECT_TRUE(info.st_uid == geteuid() && info.st_gid == group);
  host::theFileCalls.chown = [](int, uid_t, gid_t) { return errno = EPERM, -1; };
  EXPECT_EQ(replace(0664), 0644u);
  EXPECT_EQ(replace(0640), 0600u);
  EXPECT_EQ(replace(0607), 0600u);
}

TEST_F(FileIo, AnAccessListStaysAndNoneIsAdded) {
  // Tag, permissions and id of the owner, a user, the group, the most, and all others.
  using namespace std::string_literals;
  const std::string none = "\xFF\xFF\xFF\xFF";
  const std::string list = "\2\0\0\0\1\0\6\0"s + none + "\2\0\4\0\7\1\0\0\4\0\0\0"s + none +
                           "\x10\0\4\0"s + none + "\x20\0\0\0"s + none;
  const auto add = [&](const std::string& path, const char* kind) {
    return setxattr(path.c_str(), kind, list.data(), list.size(), 0) == 0;
  };
  const auto listAfterWrite = [&](const std::string& path) {
    EXPECT_TRUE(Write(path, "new")) << error_;
    char bytes[100];
    const ssize_t size = getxattr(path.c_str(), "system.posix_acl_access", bytes, sizeof bytes);
    return std::string(bytes, size_t(std::max(size, ssize_t(0))));
  };
  if (!add(Put("a", "old"), "system.posix_acl_access"))
    GTEST_SKIP() << "the file system has no access lists";
  EXPECT_EQ(listAfterWrite(Path("a")), list);
  Put("b", "old");
  ASSERT_TRUE(add(folder_, "system.posix_acl_default"));
  EXPECT_EQ(listAfterWrite(Path("b")), "");
}

TEST_F(FileIo, AWriteProtectedFileIsRefused) {
  Put("a", "kept");
  for (const mode_t mode : {0444u, 0555u, 0u}) {
    ASSERT_EQ(chmod(Path("a").c_str(), mode), 0);
    EXPECT_FALSE(Write(Path("a"), "new"));
    EXPECT_EQ(error_, "cannot write \"" + Path("a") + "\": it is write-protected");
  }
  EXPECT_EQ(chmod(Path("a").c_str(), 0644) + chmod(folder_.c_str(), 0777), 0);
  EXPECT_EQ(Content(Path("a")), "kept");
  if (geteuid() != 0) return;  // it takes a superuser to become another
  EXPECT_TRUE(AsNobody([&] { return !Write(Path("a"), "new") && error_.ends_with("denied"); }));
  ASSERT_EQ(chmod(Path("a").c_str(), 0666), 0);
  EXPECT_TRUE(AsNobody([&] { return Write(Path("a"), "new"); }));
}

TEST_F(FileIo, WhatAKilledWriteLeftGoesWithTheNextOneBeside) {
  const int status = StatusOfChild([&] {
    host::theFileCalls.fsync = [](int) { return raise(SIGKILL); };
    return Write(Path("p.json"), "half") ? 0 : 1;
  });
  ASSERT_TRUE(WIFSIGNALED(status));
  ASSERT_EQ(All().size(), 1u);
  Put(".notes.saving", "mine"), Put(".a.gltf.AbC123.saving", "a pair's");
  host::SafeFile living(Path("b"));
  ASSERT_TRUE(living.Open() && Write(Path("c"), "c") && living.Commit());
  EXPECT_EQ(All(), (Files{{".notes.saving", "mine"},
                          {".a.gltf.AbC123.saving", "a pair's"},
                          {"b", ""},
                          {"c", "c"}}));
}

TEST_F(FileIo, OneFileHasManyPaths) {
  Put("a/x", "x"), Put("y", "x");
  fs::create_hard_link(Path("a/x"), Path("hard"));
  fs::create_symlink("a", Path("link"));
  fs::create_symlink("gone", Path("lost"));
  const struct {
    const char *a, *b;
    bool same;
  } cases[] = {{"a/x", "hard", true},  {"a/x", "link/x", true}, {"a/x", "link/../a/x", true},
               {"a/x", "y", false},    {"a/x", "a/z", false},   {"a/z", "link/z", true},
               {"lost", "gone", true}, {"a/z", "a/Z", false}};
  for (const auto& c : cases)
    EXPECT_EQ(host::SameFile(Path(c.a), Path(c.b)), c.same) << c.a << ' ' << c.b;
}

TEST_F(FileIo, NamesMayBeAsLongAsTheSystemHasThem) {
  for (const std::string letter : {"x", "\xC3\xA4", "\xE2\x82\xAC"})
    for (const size_t size : {236u, 237u, 251u, 252u, 255u}) {
      std::string name;
      while (name.size() + letter.size() <= size) name += letter;
      name.append(size - name.size(), 'y');
      ASSERT_TRUE(Write(Path(name), "x")) << error_;
      host::SafeFile living(Path(name));
      ASSERT_TRUE(living.Open()) << living.Error();
      // What a killed save leaves is known again.
      std::string left;
      for (const auto& entry : fs::directory_iterator(folder_))
        if (entry.path().extension() == ".saving") left = entry.path().filename().string();
      left.replace(left.size() - 13, 6, "AbC123");
      Put(left, "");
      host::RemoveLeftovers(Path(name));
      EXPECT_FALSE(fs::exists(Path(left)));
      const std::string stem = left.substr(1, left.size() - 15);
      EXPECT_TRUE(name.starts_with(stem));
      EXPECT_TRUE(stem == name || stem.size() % letter.size() == 0) << "a letter is cut";
      EXPECT_EQ(living.Commit(true), size <= 251) << living.Error();
      EXPECT_EQ(living.Error().find("its name would have 25") != std::string::npos, size > 251);
    }
  EXPECT_FALSE(Write(Path(std::string(256, 'x')), "y"));
  EXPECT_NE(error_.find("File name too long"), std::string::npos) << error_;
}

TEST_F(FileIo, OnlyRegularFilesAreTaken) {
  const std::string pipe = Path("pipe");
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  std::vector<std::byte> bytes;
  for (const std::string& path : {folder_, pipe, std::string("/dev/null")}) {
    EXPECT_FALSE(host::ReadFile(path, bytes, error_) || Write(path, "x")) << path;
    EXPECT_NE(error_.find("regular"), std::string::npos) << error_;
  }
  EXPECT_FALSE(Write(Path("none/x"), "x"));
  EXPECT_EQ(error_, "cannot write \"" + Path("none/x") + "\": No such file or directory");
}

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
    if (!host::OpenScene(other.Services(), Path(name), {recover}, error_)) return -1;
    Object* shown = other.GetScene().AllNodes()[0]->GetObjectRef();
    const auto& verts = static_cast<TriObject*>(shown)->mesh.verts;
    const Point3 all(float(verts.size()), 0, 0);
    return std::count(verts.begin(), verts.end(), all) == all.x ? int(verts.size()) : -1;
  }
  void ExpectRefused(const std::string& name, const std::string& why) {
    EXPECT_EQ(PointsIn(name), -1) << why;
    for (const std::string& part : {why, Path(name)})
      EXPECT_NE(error_.find(part), std::string::npos) << error_;
  }
  std::string BinOf(const std::string& gltf) const {
    return nlohmann::json::parse(All().at(gltf))["buffers"][0]["uri"];
  }
  /// Does the work in a child whose folder_ is a disk of its own; empty is success, a text that
  /// begins with "skip" tells why there is none.
  std::string OnOwnDisk(size_t bytes, const std::function<std::string()>& work);
  std::string FillUp(const std::string& name);

  host::Host host_;
  TriObject* mesh_ = new TriObject;
  host::SavedScene saved_;
};

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
  for (int status = 0, running = 2; running > 0;) {
    const int points = PointsIn("a.gltf");
    ASSERT_TRUE(points >= 1000 && points < 1003) << points << error_;
    if (waitpid(savers[running - 1], &status, WNOHANG) == 0) continue;
    EXPECT_EQ(status, 0);
    --running;
  }
  EXPECT_EQ(All().size(), 2u);
}

TEST_F(SceneSafety, OnlyLeftoversAreRemoved) {
  for (const char* name :
       {".a.glb.AbC123", ".b.gltf.AbC123.saving", "a.glb.AbC123.saving", ".a.glb.AbC1234.saving"})
    Put(name, "another's");
  Files left = All();
  left["a.glb"];
  Put(".a.glb.AbC123.saving.bak", ""), Put(".a.glb.xyz789.saving", "");
  host::SafeFile living(Path("a.glb"));
  ASSERT_TRUE(living.Open());
  host::RemoveLeftovers(Path("a.glb"));
  EXPECT_EQ(All().size(), left.size());
  EXPECT_TRUE(living.Commit()) << living.Error();
  EXPECT_EQ(All(), left);
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
  const Files first = All();
  size_t bytes = 0;
  for (const auto& [name, content] : first) {
    bytes += content.size();
    fs::remove(Path(name));
  }
  EXPECT_EQ(saved_.bytes, bytes);
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

// Whatever a file is called and however it is written, it keeps the bytes that it names.
TEST_F(SceneSafety, BytesStayWhereAnyFileMayNameThem) {
  const std::pair<const char*, int> pairs[] = {
      {"A.GLTF.bak", 100}, {"A.GLTF", 200}, {"A.gltf", 300}, {"A.Gltf", 400}};
  for (int i = 0; i < 2; ++i) ASSERT_TRUE(Save(100 + 100 * i, "A.GLTF", {i == 1})) << error_;
  for (const auto& [name, points] : {pairs[2], pairs[3], pairs[2], pairs[1], pairs[3]})
    ASSERT_TRUE(Save(points, name)) << error_;
  for (const auto& [name, points] : pairs) EXPECT_EQ(PointsIn(name), points) << name << error_;
  Put("A.0123456789abcdeg.bin", ""), Put("b.0123456789abcdef.bin", "");  // no business of ours
  // An older backup makes way for the next one, with its bytes.
  ASSERT_TRUE(Save(210, "A.GLTF", {.backup = true})) << error_;
  EXPECT_EQ(PointsIn("A.GLTF.bak"), 200) << error_;
  EXPECT_EQ(All().size(), 10u);

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

TEST_F(SceneSafety, APairThatCannotTakeItsPlaceLeavesNoBytes) {
  ASSERT_TRUE(Save(10, "a.gltf")) << error_;
  const Files old = All();
  fs::create_directory(Path("a.gltf.bak"));
  EXPECT_FALSE(Save(30, "a.gltf", {.backup = true}));
  EXPECT_EQ(error_, "cannot keep a backup of \"" + Path("a.gltf") + "\": Is a directory");
  EXPECT_EQ(All(), old);
  // A folder that another program holds is waited for, but not without end.
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
  ASSERT_TRUE(Save(10, "a.gltf")) << error_;
  static std::string oldPath;
  static int lasting;
  oldPath = Path(BinOf("a.gltf")), lasting = 0;
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
TEST_F(SceneSafety, ASaveThatIsCutShortAnywhereIsWholeAndClearedAway) {
  static int left;
  static const auto end = [] {
    if (left-- == 0) _exit(7);
  };
  for (const std::string name : {"a.glb", "a.gltf"})
    for (int last = 0, status = 7 << 8; WEXITSTATUS(status) == 7; ++last) {
      for (const int points : {10, 20}) ASSERT_TRUE(Save(points, name, {.backup = true})) << error_;
      const size_t files = All().size();
      status = StatusOfChild([&] {
        static const host::FileCalls calls = host::theFileCalls;
        left = last;
        host::theFileCalls.write = [](int fd, const void* bytes, size_t size) {
          return end(), calls.write(fd, bytes, size);
        };
        host::theFileCalls.fsync = [](int fd) { return end(), calls.fsync(fd); };
        host::theFileCalls.rename = [](const char* a, const char* b) {
          return end(), calls.rename(a, b);
        };
        return Save(30, name, {.backup = true}) ? 0 : 1;
      });
      const int points = PointsIn(name), before = PointsIn(name + ".bak");
      EXPECT_TRUE(points == 30 || points == 20) << last << error_;
      EXPECT_TRUE(before == 20 || before == 10) << last << error_;
      ASSERT_TRUE(Save(40, name)) << error_;
      EXPECT_EQ(PointsIn(name + ".bak"), before) << error_;
      EXPECT_EQ(All().size(), files) << last;
      ASSERT_TRUE(status == 0 || WEXITSTATUS(status) == 7) << status;
    }
}

// A text that another program has read and written back, in a pair and in a single file.
TEST_F(SceneSafety, AForeignTextHasAllItsTables) {
  std::vector<std::string> lost;
  const auto expect = [&](const std::string& name, const std::string& why) {
    ExpectRefused(name, why);
    lost.clear();
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
  const std::string whole = All().at("a.glb"), sealed = GlbText(whole);
  const std::string bytes = whole.substr(20 + sealed.size());
  const std::string other = nlohmann::json::parse(sealed).dump(1, '\t');
  for (const std::string& told : {other, mark + other}) {
    Put("a.glb", GlbOf(told, bytes));
    expect("a.glb", foreign);
  }
  // Lengths and padding forgotten.
  for (const std::string end : {"", "\n", "\r\n"}) {
    Put("a.glb", whole.substr(0, 20) + sealed.substr(0, sealed.rfind('}') + 1) + end + bytes);
    EXPECT_EQ(PointsIn("a.glb", &lost), 50) << error_;
  }
}

TEST_F(SceneSafety, DamageOfAPairIsNamed) {
  ASSERT_TRUE(Save(50, "a.gltf")) << error_;
  const std::string name = BinOf("a.gltf"), text = All().at("a.gltf"), bytes = All().at(name);
  const auto expect = [&](const std::string& why) { ExpectRefused("a.gltf", why); };
  for (size_t n = 0; n < bytes.size(); n += 7) {
    Put(name, bytes.substr(0, n));
    expect(name + "\" beside it has " + std::to_string(n) + " bytes, expected " +
           std::to_string(bytes.size()));
  }
  Put(name, std::string(bytes).replace(17, 1, 1, char(bytes[17] ^ 4)));
  expect("is damaged: its checksum is");
  fs::remove(Path(name));
  expect(Path(name) + "\": No such file or directory");
  Put(name, bytes);
  for (size_t n = 0; n < text.size(); n += 11) {
    Put("a.gltf", text.substr(0, n));
    ASSERT_EQ(PointsIn("a.gltf"), -1) << n;
  }
  for (const char* uri : {"..", "sub%2F0.bin", "/etc/hostname", ""}) {
    Put("a.gltf", Sealed(std::string(text).replace(text.find(name), name.size(), uri)));
    expect("no file beside it");
  }
  Put("a.gltf", text);
  EXPECT_EQ(PointsIn("a.gltf"), 50) << error_;
}

TEST_F(SceneSafety, DamageOfAPairsTextAloneLosesNothing) {
  ASSERT_TRUE(Save(20, "a.gltf")) << error_;
  ASSERT_TRUE(Save(50, "a.gltf", {.backup = true})) << error_;
  const auto hourAgo = fs::file_time_type::clock::now() - std::chrono::hours(1);
  fs::last_write_time(Path(BinOf("a.gltf.bak")), hourAgo);
  const std::string text = All().at("a.gltf");
  for (size_t at = 0; at < text.size(); at += 100) {
    const size_t size = std::min<size_t>(512, text.size() - at);
    Put("a.gltf", std::string(text).replace(at, size, size, '\0'));
    std::vector<std::string> lost;
    ASSERT_TRUE(PointsIn("a.gltf", &lost) == 50 && !lost.empty()) << at << error_;
    EXPECT_TRUE(host::LooksLikeScene(Path("a.gltf"))) << at;
  }
}

TEST_F(SceneSafety, ASaveReadsOnlySoMuchOfItsNeighbours) {
  const auto staysBeside = [&](const std::string& neighbour) {
    EXPECT_TRUE(Save(100, "a.gltf")) << error_;
    const std::string bin = BinOf("a.gltf");
    fs::resize_file(Put("neighbour", neighbour), size_t(3) << 29);  // the rest is never written
    EXPECT_TRUE(Save(101, "a.gltf")) << error_;
    fs::remove(Path("neighbour"));
    return fs::exists(Path(bin));
  };
  EXPECT_TRUE(staysBeside("{"));  // it may name them behind what was read
  ASSERT_TRUE(Save(7, "b.gltf")) << error_;
  EXPECT_FALSE(staysBeside(All().at("b.gltf")));  // it has named its own
  EXPECT_FALSE(staysBeside("no description"));
}

// The bytes moved behind 5 GiB of nothing.
TEST_F(SceneSafety, APairMayBeLargerThanFourGigabytes) {
  constexpr size_t kGap = size_t(5) << 30;
  ASSERT_TRUE(Save(1000, "a.gltf")) << error_;
  const std::string name = BinOf("a.gltf"), bytes = All().at(name);
  nlohmann::json root = nlohmann::json::parse(All().at("a.gltf"));
  root["buffers"][0]["byteLength"] = kGap + bytes.size();
  for (auto& view : root["bufferViews"]) view["byteOffset"] = kGap + size_t(view["byteOffset"]);
  Put("a.gltf", Sealed(root.dump()));
  fs::resize_file(Path(name), 0);
  fs::resize_file(Path(name), kGap);
  std::ofstream(Path(name), std::ios::binary | std::ios::app) << bytes;
  EXPECT_EQ(PointsIn("a.gltf"), 1000) << error_;
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
  const int status = StatusOfChild([&] {
    std::ofstream out(told);
    std::string text;
    const bool mounted = MountDisk(folder_, bytes, text);
    out << (mounted ? work() : "skip: " + text);
    out.close();
    return out ? 0 : 1;
  });
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
