#include "host/io/file.h"

#include <png.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>

#include "host/io/png.h"
#include "tests/host/filewatch.h"
#include "tests/host/tempfolder.h"

namespace {

namespace fs = std::filesystem;

class FileIo : public TempFolder {
 protected:
  bool Write(const std::string& path, const std::string& text) {
    return host::WriteFileSafely(path, std::as_bytes(std::span(text)), error_);
  }
};

TEST_F(FileIo, WhatWasWrittenIsReadAndPermissionsAndLinksStay) {
  const std::string path = Path("a.bin");
  const std::string text("one\0two\xFF", 8);
  ASSERT_TRUE(Write(path, text)) << error_;
  std::vector<std::byte> bytes;
  ASSERT_TRUE(host::ReadFile(path, bytes, error_)) << error_;
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(bytes.data()), bytes.size()), text);

  const std::string link = Path("link");
  fs::permissions(path, fs::perms(0640));
  fs::create_symlink("a.bin", link);
  ASSERT_TRUE(Write(link, "new")) << error_;
  EXPECT_TRUE(fs::is_symlink(link));
  EXPECT_EQ(Content(path), "new");
  EXPECT_EQ(fs::status(path).permissions(), fs::perms(0640));
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
  const auto status = [&] {
    struct stat info {};
    EXPECT_EQ(stat(Path("a").c_str(), &info), 0);
    return info;
  };
  const mode_t mask = umask(027);
  EXPECT_TRUE(Write(Path("a"), "x")) << error_;
  umask(mask);
  EXPECT_EQ(status().st_mode & 07777, 0640u);

  const bool root = geteuid() == 0;
  const uid_t owner = root ? 65534 : geteuid();
  const gid_t group = root ? 65533 : getegid();
  const auto replace = [&](mode_t mode) {
    EXPECT_EQ(chown(Path("a").c_str(), owner, group), 0);
    EXPECT_EQ(chmod(Path("a").c_str(), mode), 0);
    EXPECT_TRUE(Write(Path("a"), "y")) << error_;
    return status().st_mode & 07777;
  };
  EXPECT_EQ(replace(06751), 06751u);
  EXPECT_EQ(status().st_uid, owner);
  EXPECT_EQ(status().st_gid, group);
  FileWatch watch;  // sets the calls right again
  host::theFileCalls.chown = [](int fd, uid_t user, gid_t to) {
    return user != uid_t(-1) ? (errno = EPERM, -1) : fchown(fd, user, to);
  };
  EXPECT_EQ(replace(06660), 0660u);
  EXPECT_EQ(status().st_uid, geteuid());
  EXPECT_EQ(status().st_gid, group);
  host::theFileCalls.chown = [](int, uid_t, gid_t) { return errno = EPERM, -1; };
  EXPECT_EQ(replace(0664), 0644u);
  EXPECT_EQ(replace(0640), 0600u);
  EXPECT_EQ(replace(0607), 0600u);
}

// Where there is an access list, the bits that seem to be the group's are the most that anyone has.
TEST_F(FileIo, AnAccessListStaysAndNoneIsAdded) {
  // Tag, permissions and id of the owner, a user, the group, the most, and all others.
  using namespace std::string_literals;
  const std::string none = "\xFF\xFF\xFF\xFF";
  const std::string list = "\2\0\0\0\1\0\6\0"s + none + "\2\0\4\0\7\1\0\0\4\0\0\0"s + none +
                           "\x10\0\4\0"s + none + "\x20\0\0\0"s + none;
  const auto listOf = [&](const std::string& path) {
    char bytes[100];
    const ssize_t size = getxattr(path.c_str(), "system.posix_acl_access", bytes, sizeof bytes);
    return std::string(bytes, size_t(std::max(size, ssize_t(0))));
  };
  Put("a", "old");
  if (setxattr(Path("a").c_str(), "system.posix_acl_access", list.data(), list.size(), 0) != 0)
    GTEST_SKIP() << "the file system has no access lists";
  ASSERT_EQ(listOf(Path("a")), list);
  ASSERT_TRUE(Write(Path("a"), "new")) << error_;
  EXPECT_EQ(listOf(Path("a")), list);
  Put("b", "old");
  ASSERT_EQ(setxattr(folder_.c_str(), "system.posix_acl_default", list.data(), list.size(), 0), 0);
  ASSERT_TRUE(Write(Path("b"), "new")) << error_;
  EXPECT_EQ(listOf(Path("b")), "");
}

TEST_F(FileIo, AWriteProtectedFileIsRefused) {
  Put("a", "kept");
  for (const mode_t mode : {0444u, 0555u, 0u}) {
    ASSERT_EQ(chmod(Path("a").c_str(), mode), 0);
    EXPECT_FALSE(Write(Path("a"), "new"));
    EXPECT_EQ(error_, "cannot write \"" + Path("a") + "\": it is write-protected");
  }
  ASSERT_EQ(chmod(Path("a").c_str(), 0644), 0);
  EXPECT_EQ(Content(Path("a")), "kept");
  ASSERT_EQ(chmod(folder_.c_str(), 0777), 0);
  if (geteuid() != 0) return;  // it takes a superuser to become another
  EXPECT_TRUE(AsNobody([&] { return !Write(Path("a"), "new") && error_.ends_with("denied"); }));
  ASSERT_EQ(chmod(Path("a").c_str(), 0666), 0);
  EXPECT_TRUE(AsNobody([&] { return Write(Path("a"), "new"); }));
  EXPECT_EQ(Content(Path("a")), "new");
}

TEST_F(FileIo, NamesMayBeAsLongAsTheSystemHasThem) {
  for (const std::string letter : {"x", "\xC3\xA4", "\xE2\x82\xAC"})
    for (const size_t size : {236u, 237u, 251u, 252u, 255u}) {
      std::string name;
      while (name.size() + letter.size() <= size) name += letter;
      name.append(size - name.size(), 'y');
      const auto write = [&] {
        host::SafeFile file(Path(name));
        const bool done = file.Open() && file.Commit(true);
        error_ = file.Error();
        return done;
      };
      EXPECT_TRUE(write()) << error_;
      EXPECT_EQ(write(), size <= 251) << error_;
      EXPECT_EQ(error_.empty(), error_.find("its name would have 25") == std::string::npos);
      // What a killed save leaves is known again.
      std::string left;
      host::SafeFile living(Path(name));
      ASSERT_TRUE(living.Open());
      for (const auto& entry : fs::directory_iterator(folder_))
        if (entry.path().extension() == ".saving") left = entry.path().filename().string();
      left.replace(left.size() - 13, 6, "AbC123");
      Put(left, "");
      host::RemoveLeftovers(Path(name));
      EXPECT_FALSE(fs::exists(Path(left)));
      const std::string stem = left.substr(1, left.size() - 15);
      EXPECT_TRUE(name.starts_with(stem));
      EXPECT_TRUE(stem == name || stem.size() % letter.size() == 0) << "a letter is cut";
      EXPECT_TRUE(living.Commit()) << living.Error();
    }
  EXPECT_FALSE(Write(Path(std::string(256, 'x')), "y"));
  EXPECT_NE(error_.find("File name too long"), std::string::npos) << error_;
}

TEST_F(FileIo, OnlyRegularFilesAreTaken) {
  const std::string pipe = Path("pipe");
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  std::vector<std::byte> bytes;
  for (const std::string& path : {folder_, pipe, std::string("/dev/null")}) {
    EXPECT_FALSE(host::ReadFile(path, bytes, error_)) << path;
    EXPECT_FALSE(Write(path, "x")) << path;
    EXPECT_NE(error_.find("regular"), std::string::npos) << error_;
  }
  EXPECT_FALSE(Write(Path("none/x"), "x"));
}

TEST_F(FileIo, APngHoldsThePicture) {
  const std::vector<std::uint8_t> rgb = {255, 0,  0,  0, 255, 0, 0, 0, 255,
                                         10,  20, 30, 1, 2,   3, 9, 9, 9};
  std::vector<std::byte> png;
  ASSERT_TRUE(host::EncodePng(3, 2, rgb, png, error_)) << error_;
  png_image image = {};
  image.version = PNG_IMAGE_VERSION;
  ASSERT_TRUE(png_image_begin_read_from_memory(&image, png.data(), png.size()));
  ASSERT_EQ(image.width * 100 + image.height * 10 + image.format, 320 + PNG_FORMAT_RGB);
  std::vector<std::uint8_t> read(rgb.size());
  ASSERT_TRUE(png_image_finish_read(&image, nullptr, read.data(), 0, nullptr));
  EXPECT_EQ(read, rgb);
  EXPECT_FALSE(host::EncodePng(3, 3, rgb, png, error_));
}

}  // namespace
