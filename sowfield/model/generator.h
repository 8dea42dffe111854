#pragma once

#include <cstdint>

namespace sowfield {

/// The object's random source: a 96-bit xorshift generator (George Marsaglia, "Xorshift RNGs",
/// Journal of Statistical Software 8, 2003). It starts at its constants with every object, is never
/// stored and never seeded; each form takes exactly one step.
class Generator {
 public:
  /// The new word, all 32 bits.
  std::uint32_t Step() {
    std::uint32_t a = x_ ^ (x_ << 16);
    a ^= a >> 5;
    a ^= a << 1;
    x_ = y_;
    y_ = z_;
    z_ ^= a ^ x_;
    return z_;
  }

  /// 0 to scale, both ends included: the rounding of the word to float can reach 2^32.
  float Random(float scale) { return Unit() * scale; }
  /// lower to upper.
  float RandomRange(float upper, float lower) { return Unit() * (upper - lower) + lower; }
  /// lower to upper, both ends included.
  int RandomInt(int upper, int lower);

  bool operator==(const Generator&) const = default;

 private:
  float Unit() { return float(Step()) * 2.3283064e-10f; }

  std::uint32_t x_ = 123456789, y_ = 362436069, z_ = 521288629;
};

}  // namespace sowfield
