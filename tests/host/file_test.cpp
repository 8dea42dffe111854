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
  void TearDown() override { fs::remove_all(folder_); }
  bool Write(const std::string& path, const std::string& text) {
    return host::WriteFileSafely(path, std::as_bytes(std::span(text.data(), text.size())), error_);
  }
  static std::string Text(const std::string& path) {
    std::ostringstream out;
    out << std::ifstream(path, std::ios::binary).rdbuf();
    return out.str();
  }
  std::string folder_, error_;
};

TEST_F(FileIo, WhatWasWrittenIsReadAndPermissionsAndLinksStay) {
  const std::string path = folder_ + "/a.bin";
  const std::string text("one\0two\xFF", 8);
  ASSERT_TRUE(Write(path, text)) << error_;
  std::vector<std::byte> bytes;
  ASSERT_TRUE(host::ReadFile(path, bytes, error_)) << error_;
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(bytes.data()), bytes.size()), text);

  const std::string link = folder_ + "/link";
  fs::permissions(path, fs::perms(0640));
  fs::create_symlink("a.bin", link);
  ASSERT_TRUE(Write(link, "new")) << error_;
  EXPECT_TRUE(fs::is_symlink(link));
  EXPECT_EQ(Text(path), "new");
  EXPECT_EQ(fs::status(path).permissions(), fs::perms(0640));
  fs::create_symlink("ring", folder_ + "/ring");
  EXPECT_FALSE(Write(folder_ + "/ring", "new"));
  EXPECT_TRUE(fs::is_symlink(folder_ + "/ring"));
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
  EXPECT_NE(error_.find("File too large"), std::string::npos) << error_;
  EXPECT_EQ(Text(path), "old");
  EXPECT_EQ(std::distance(fs::directory_iterator(folder_), fs::directory_iterator()), 1);
}

TEST_F(FileIo, OnlyRegularFilesAreTaken) {
  const std::string pipe = folder_ + "/pipe";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  std::vector<std::byte> bytes;
  for (const std::string& path : {folder_, pipe, std::string("/dev/null")}) {
    EXPECT_FALSE(host::ReadFile(path, bytes, error_)) << path;
    EXPECT_FALSE(Write(path, "x")) << path;
    EXPECT_NE(error_.find("regular"), std::string::npos) << error_;
  }
  EXPECT_FALSE(Write(folder_ + "/none/x", "x"));
}

TEST_F(FileIo, APngHoldsThePicture) {
  const std::vector<std::uint8_t> rgb = {255, 0,  0,  0, 255, 0, 0, 0, 255,
                                         10,  20, 30, 1, 2,   3, 9, 9, 9};
  std::vector<std::byte> png;
  ASSERT_TRUE(host::EncodePng(3, 2, rgb, png, error_)) << error_;
  int width = 0, height = 0, channels = 0;
  stbi_uc* pixels = stbi_load_from_memory(reinterpret_cast<const stbi_uc*>(png.data()),
                                          int(png.size()), &width, &height, &channels, 0);
  ASSERT_EQ(width * 100 + height * 10 + channels, 323);
  EXPECT_EQ(std::vector<std::uint8_t>(pixels, pixels + 18), rgb);
  stbi_image_free(pixels);
  EXPECT_FALSE(host::EncodePng(3, 3, rgb, png, error_));
}

}  // namespace
