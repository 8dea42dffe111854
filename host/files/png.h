#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace host {

/// Encodes a picture as PNG: 8 bit sRGB, `rgb` holds rows from the top, 3 * width bytes each.
/// Width and height from 1 to 65,536. On failure `png` is untouched and `error` says why.
bool EncodePng(int width, int height, std::span<const std::uint8_t> rgb,
               std::vector<std::byte>& png, std::string& error);

}  // namespace host
