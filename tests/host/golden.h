#pragma once

#include <gtest/gtest.h>
#include <png.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "host/io/file.h"
#include "host/io/png.h"
#include "host/viewport/picture.h"

/// Compares a picture with tests/golden/NAME.png. Drivers differ at edges: up to 0.5 % of the
/// pixels may differ by more than 24 levels. A picture that differs is written beside the program's
/// output. With SOWFIELD_UPDATE_GOLDEN=1 in the environment the file is written instead; look at it
/// then.
inline void ExpectGolden(const host::Picture& picture, const std::string& name) {
  constexpr int kLevels = 24;
  constexpr double kShare = 0.005;

  std::string error;
  std::vector<std::byte> png;
  ASSERT_TRUE(host::EncodePng(picture.width, picture.height, picture.rgb, png, error)) << error;
  const std::string golden = std::string(SOWFIELD_GOLDEN_DIR) + "/" + name + ".png";
  if (const char* update = std::getenv("SOWFIELD_UPDATE_GOLDEN"); update && *update == '1') {
    ASSERT_TRUE(host::WriteFileSafely(golden, png, error)) << error;
    return;
  }
  const std::string found = std::filesystem::absolute(name + "_found.png").string();
  png_image image = {};
  image.version = PNG_IMAGE_VERSION;
  ASSERT_TRUE(png_image_begin_read_from_file(&image, golden.c_str())) << golden;
  image.format = PNG_FORMAT_RGB;
  std::vector<std::uint8_t> expected(PNG_IMAGE_SIZE(image));
  ASSERT_TRUE(png_image_finish_read(&image, nullptr, expected.data(), 0, nullptr)) << golden;
  ASSERT_EQ(int(image.width), picture.width);
  ASSERT_EQ(int(image.height), picture.height);

  int apart = 0;
  for (size_t p = 0; p < expected.size(); p += 3) {
    int most = 0;
    for (size_t c = 0; c < 3; ++c)
      most = std::max(most, std::abs(int(expected[p + c]) - int(picture.rgb[p + c])));
    apart += most > kLevels;
  }
  const double share = double(apart) / (double(picture.width) * picture.height);
  if (share <= kShare) return;
  ASSERT_TRUE(host::WriteFileSafely(found, png, error)) << error;
  ADD_FAILURE() << 100 * share << " % of the pixels differ from " << golden << "; found: " << found;
}
