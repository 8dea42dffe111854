#include "host/io/file.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "host/io/png.h"

#define STB_IMAGE_STATIC
#define STB_IMAGE_IMPLEMENTATION
#define STBI_ONLY_PNG
#include <stb/stb_image.h>

namespace {

namespace fs = std::filesystem;

class FileIo : public testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = fs::temp_directory_path() / "file_test_XXXXXX";
    ASSERT_TRUE(mkdtemp(pattern.data()));
    folder_ = pattern;
  }
  void TearDown() override {
    fs::permissions(folder_, fs::perms::owner_all);
    fs::remove_all(folder_);
  }
  bool Write(const std::string& path, const std::string& text) {
    return host::WriteFileSafely(path, std::as_bytes(std::span(text.data(), text.size())), error_);
  }
  static std::string Text(const std::string& path) {
    std::ostringstream out;
    out << std::ifstream(path, std::ios::binary).rdbuf();
    return out.str();
  }
  int Entries() const {
    return int(std::distance(fs::directory_iterator(folder_), fs::directory_iterator()));
  }

  std::string folder_, error_;
};

TEST_F(FileIo, WhatWasWrittenIsRead) {
  const std::string path = folder_ + "/a.bin";
  const std::string text("one\0two\xFF", 8);
  ASSERT_TRUE(Write(path, text)) << error_;
  std::vector<std::byte> bytes;
  ASSERT_TRUE(host::ReadFile(path, bytes, error_)) << error_;
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(bytes.data()), bytes.size()), text);
  ASSERT_TRUE(Write(path, ""));
  ASSERT_TRUE(host::ReadFile(path, bytes, error_));
  EXPECT_TRUE(bytes.empty());
  EXPECT_EQ(Entries(), 1);
}

TEST_F(FileIo, PermissionsAndLinksStay) {
  const std::string path = folder_ + "/real", link = folder_ + "/link";
  ASSERT_TRUE(Write(path, "old"));
  ASSERT_EQ(chmod(path.c_str(), 0640), 0);
  fs::create_symlink("real", link);
  ASSERT_TRUE(Write(link, "new")) << error_;
  EXPECT_TRUE(fs::is_symlink(link));
  EXPECT_EQ(Text(path), "new");
  struct stat info{};
  ASSERT_EQ(stat(path.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 07777, 0640u);
}

TEST_F(FileIo, AWriteThatFailsHalfwayLeavesTheOldFile) {
  const std::string path = folder_ + "/scene";
  ASSERT_TRUE(Write(path, "old"));
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
  const auto handler = std::signal(SIGXFSZ, SIG_IGN);
  rlimit small = before;
  small.rlim_cur = 1000;
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
  const bool written = Write(path, std::string(5000, 'x'));
  setrlimit(RLIMIT_FSIZE, &before);
  std::signal(SIGXFSZ, handler);
  EXPECT_FALSE(written);
  EXPECT_NE(error_.find(path), std::string::npos);
  EXPECT_NE(error_.find("File too large"), std::string::npos) << error_;
  EXPECT_EQ(Text(path), "old");
  EXPECT_EQ(Entries(), 1);
}

TEST_F(FileIo, AReadOnlyFolderIsReported) {
  const std::string path = folder_ + "/scene";
  ASSERT_TRUE(Write(path, "old"));
  // Permissions don't bind the superuser.
  const bool super = geteuid() == 0;
  if (super) {
    ASSERT_EQ(chown(folder_.c_str(), 65534, 65534), 0);
    ASSERT_EQ(seteuid(65534), 0);
  }
  chmod(folder_.c_str(), 0555);
  const bool written = Write(path, "new");
  if (super) {
    ASSERT_EQ(seteuid(0), 0);
  }
  EXPECT_FALSE(written);
  EXPECT_NE(error_.find("Permission denied"), std::string::npos) << error_;
  EXPECT_EQ(Text(path), "old");
  EXPECT_EQ(Entries(), 1);
}

TEST_F(FileIo, OnlyRegularFilesAreTaken) {
  const std::string pipe = folder_ + "/pipe";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  std::vector<std::byte> bytes(3);
  for (const std::string& path : {folder_, pipe, std::string("/dev/null")}) {
    EXPECT_FALSE(host::ReadFile(path, bytes, error_)) << path;
    EXPECT_NE(error_.find(path), std::string::npos);
    EXPECT_FALSE(Write(path, "x")) << path;
    EXPECT_NE(error_.find("regular"), std::string::npos) << error_;
  }
  EXPECT_FALSE(host::ReadFile(folder_ + "/none", bytes, error_));
  EXPECT_NE(error_.find("No such file"), std::string::npos);
  EXPECT_FALSE(Write(folder_ + "/none/x", "x"));
  EXPECT_EQ(bytes.size(), 3u);
}

TEST_F(FileIo, APngHoldsThePicture) {
  const std::vector<std::uint8_t> rgb = {255, 0, 0, 0, 255, 0, 0, 0, 255, 10, 20, 30, 1, 2, 3, 9, 9, 9};
  std::vector<std::byte> png;
  ASSERT_TRUE(host::EncodePng(3, 2, rgb, png, error_)) << error_;
  int width = 0, height = 0, channels = 0;
  stbi_uc* pixels =
      stbi_load_from_memory(reinterpret_cast<const stbi_uc*>(png.data()), int(png.size()), &width,
                            &height, &channels, 0);
  ASSERT_TRUE(pixels);
  EXPECT_EQ(width, 3);
  EXPECT_EQ(height, 2);
  ASSERT_EQ(channels, 3);
  const std::vector<std::uint8_t> back(pixels, pixels + 18);
  stbi_image_free(pixels);
  EXPECT_EQ(back, rgb);

  EXPECT_FALSE(host::EncodePng(3, 3, rgb, png, error_));
  EXPECT_NE(error_.find("27 bytes, not 18"), std::string::npos) << error_;
  EXPECT_FALSE(host::EncodePng(0, 2, rgb, png, error_));
}

}  // namespace
