#include "host/io/file.h"

#include <png.h>
#include <sys/stat.h>

#include "host/io/png.h"
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
