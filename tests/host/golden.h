#pragma once

#include <gtest/gtest.h>
#include <png.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "host/io/file.h"
#include "host/io/png.h"
#include "host/viewport/picture.h"

/// Whether a channel of two RGB pixels differs by more than 24 levels.
inline bool PixelsDiffer(const std::uint8_t* a, const std::uint8_t* b) {
  return std::abs(a[0] - b[0]) > 24 || std::abs(a[1] - b[1]) > 24 || std::abs(a[2] - b[2]) > 24;
}

/// Compares a picture with tests/golden/NAME.png. Drivers differ at edges: up to 0.5 % of the
/// pixels may differ. A picture that differs is written beside the program's output; where it is
/// right, it takes the other's place.
inline void ExpectGolden(const host::Picture& picture, const std::string& name) {
  const std::string golden = std::string(SOWFIELD_GOLDEN_DIR) + "/" + name + ".png";
  png_image image = {};
  image.version = PNG_IMAGE_VERSION;
  std::vector<std::uint8_t> expected;
  if (png_image_begin_read_from_file(&image, golden.c_str())) {
    image.format = PNG_FORMAT_RGB;
    expected.resize(PNG_IMAGE_SIZE(image));
    EXPECT_TRUE(png_image_finish_read(&image, nullptr, expected.data(), 0, nullptr)) << golden;
  }
  const size_t size = picture.rgb.size();
  size_t apart = expected.size() == size ? 0 : size / 3;
  for (size_t p = 0; p < std::min(size, expected.size()); p += 3)
    apart += PixelsDiffer(&expected[p], &picture.rgb[p]);
  if (size > 0 && double(apart) <= 0.005 * double(size / 3)) return;
  std::string error;
  std::vector<std::byte> png;
  const std::string found = std::filesystem::absolute(name + "_found.png").string();
  if (host::EncodePng(picture.width, picture.height, picture.rgb, png, error))
    host::WriteFileSafely(found, png, error);
  ADD_FAILURE() << apart << " pixels differ from " << golden << "; found: " << found << error;
}
