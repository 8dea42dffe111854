#pragma once

/// The arithmetic of sine and cosine, for a double or a vector of doubles (GCC's vector extension):
/// the same operations in the same order, so the same bits from both. No sources but those that
/// hold such a form include this.
namespace host::kernel {

// pi/2 in three parts. The first two hold 33 bits each, so that their products with a whole number
// of up to 20 bits are exact (Cody and Waite, "Software Manual for the Elementary Functions",
// 1980).
inline constexpr double kHalfPi1 = 0x1.921fb544p+0;
inline constexpr double kHalfPi2 = 0x1.0b4611a6p-34;
inline constexpr double kHalfPi3 = 0x1.3198a2e037073p-69;
inline constexpr double kTwoOverPi = 2.0 / 3.14159265358979323846;
/// Arguments up to this size are reduced directly.
inline constexpr double kLargestDirect = 1048576.0;

/// What is left of `a` after `turns` whole quarter turns.
template <class V>
[[gnu::always_inline]] inline V Reduced(V a, V turns) {
  return ((a - turns * kHalfPi1) - turns * kHalfPi2) - turns * kHalfPi3;
}

// Taylor polynomials on |x| <= pi/4: the first term left out is below 1e-19.
template <class V>
[[gnu::always_inline]] inline V SinPolynomial(V x) {
  const V s = x * x;
  V p = (1.0 / 355687428096000.0) * s - 1.0 / 1307674368000.0;
  p = p * s + 1.0 / 6227020800.0;
  p = p * s - 1.0 / 39916800.0;
  p = p * s + 1.0 / 362880.0;
  p = p * s - 1.0 / 5040.0;
  p = p * s + 1.0 / 120.0;
  p = p * s - 1.0 / 6.0;
  return x + x * (s * p);
}

template <class V>
[[gnu::always_inline]] inline V CosPolynomial(V x) {
  const V s = x * x;
  V p = (-1.0 / 6402373705728000.0) * s + 1.0 / 20922789888000.0;
  p = p * s - 1.0 / 87178291200.0;
  p = p * s + 1.0 / 479001600.0;
  p = p * s - 1.0 / 3628800.0;
  p = p * s + 1.0 / 40320.0;
  p = p * s - 1.0 / 720.0;
  p = p * s + 1.0 / 24.0;
  return 1.0 - 0.5 * s + s * s * p;
}

}  // namespace host::kernel
