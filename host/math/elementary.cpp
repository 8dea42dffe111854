#include "host/math/elementary.h"

#include <array>
#include <cmath>
#include <limits>

#include "host/math/sincos_kernel.h"

namespace host {
namespace {

// Arc tangents of 0, 1/8, ... 1.
constexpr std::array<double, 9> kAtanOfEighths = {0.0,
                                                  0.12435499454676144,
                                                  0.24497866312686414,
                                                  0.35877067027057225,
                                                  0.46364760900080615,
                                                  0.5585993153435624,
                                                  0.6435011087932844,
                                                  0.7188299996216245,
                                                  0.7853981633974483};

// Arc tangent on 0 to 1: atan x = atan c + atan((x - c) / (1 + x c)) with the nearest eighth c
// leaves |t| <= 1/16, where the series cut after t^13 is off by less than 1e-19.
double AtanKernel(double x) {
  const int i = int(x * 8.0 + 0.5);
  const double c = i * 0.125;
  const double t = (x - c) / (1.0 + x * c);
  const double s = t * t;
  double p = 1.0 / 13.0;
  p = p * s - 1.0 / 11.0;
  p = p * s + 1.0 / 9.0;
  p = p * s - 1.0 / 7.0;
  p = p * s + 1.0 / 5.0;
  p = p * s - 1.0 / 3.0;
  return kAtanOfEighths[size_t(i)] + (t + t * (s * p));
}

}  // namespace

SinCos SinCosOf(double a) {
  if (!std::isfinite(a)) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    return {nan, nan};
  }
  if (std::fabs(a) > kernel::kLargestDirect)
    a = std::fmod(a, 2.0 * kPi);  // exact for its two arguments

  const double turns = std::floor(a * kernel::kTwoOverPi + 0.5);
  const double r = kernel::Reduced(a, turns);
  const double s = kernel::SinPolynomial(r);
  const double c = kernel::CosPolynomial(r);
  switch ((long long)(turns)&3) {
    case 0:
      return {s, c};
    case 1:
      return {c, -s};
    case 2:
      return {-s, -c};
    default:
      return {-c, s};
  }
}

double Sin(double a) { return SinCosOf(a).sin; }
double Cos(double a) { return SinCosOf(a).cos; }

double Tan(double a) {
  const SinCos sc = SinCosOf(a);
  return sc.sin / sc.cos;
}

double Atan2(double y, double x) {
  if (std::isnan(x) || std::isnan(y)) return std::numeric_limits<double>::quiet_NaN();
  double ax = std::fabs(x);
  double ay = std::fabs(y);
  if (std::isinf(ax) && std::isinf(ay)) ax = ay = 1.0;

  double angle = 0.0;
  if (ax != 0.0 || ay != 0.0) {
    angle = ay <= ax ? AtanKernel(ay / ax) : 0.5 * kPi - AtanKernel(ax / ay);
  }
  if (std::signbit(x)) angle = kPi - angle;
  return std::copysign(angle, y);
}

double Acos(double c) {
  if (c >= 1.0) return 0.0;
  if (c <= -1.0) return kPi;
  return Atan2(std::sqrt((1.0 - c) * (1.0 + c)), c);
}

double Hypot(double x, double y) { return std::sqrt(x * x + y * y); }

}  // namespace host
