#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <string>

/// Has a folder of its own, which goes with it.
class TempFolder : public testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = std::filesystem::temp_directory_path() / "host_test_XXXXXX";
    ASSERT_TRUE(mkdtemp(pattern.data()));
    folder_ = pattern;
  }
  void TearDown() override { std::filesystem::remove_all(folder_); }

  std::string Path(const std::string& name) const { return folder_ + "/" + name; }
  std::string Put(const std::string& name, const std::string& bytes) const {
    const std::filesystem::path path = Path(name);
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << bytes;
    return path.string();
  }
  static std::string Content(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }
  using Files = std::map<std::string, std::string>;  // by name
  Files All() const {
    Files files;
    for (const auto& entry : std::filesystem::directory_iterator(folder_))
      if (std::filesystem::is_regular_file(entry.symlink_status()))
        files[entry.path().filename().string()] = Content(entry.path());
    return files;
  }
  std::string folder_, error_;
};
