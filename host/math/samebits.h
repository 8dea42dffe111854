#pragma once

#include <array>
#include <bit>
#include <cstdint>

namespace host {

/// The bits of a value that is made of floats or ints alone.
template <class T>
std::array<std::uint32_t, sizeof(T) / 4> BitsOf(const T& value) {
  return std::bit_cast<std::array<std::uint32_t, sizeof(T) / 4>>(value);
}

/// -0 isn't 0, and a NaN is the same as one with the same bits.
template <class T>
bool SameBits(const T& a, const T& b) {
  return BitsOf(a) == BitsOf(b);
}

}  // namespace host
