#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

namespace host {

/// Tells most unequal runs of bytes apart; who finds two alike compares them. `before` is the hash
/// of what comes before. Not for files.
inline std::uint64_t HashBytes(std::span<const std::byte> bytes, std::uint64_t before = 0) {
  std::uint64_t h = before ^ bytes.size();
  const auto take = [&h](const std::byte* from, size_t size) {
    std::uint64_t word = 0;
    std::memcpy(&word, from, size);
    h = (h ^ word) * 0x9E3779B97F4A7C15u;
    h ^= h >> 29;
  };
  size_t at = 0;
  for (; at + 8 <= bytes.size(); at += 8) take(&bytes[at], 8);
  if (at < bytes.size()) take(&bytes[at], bytes.size() - at);
  return h;
}

}  // namespace host
