#include "host/math/elementary.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <numbers>
#include <random>
#include <vector>

namespace {

constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

// The furthest that a result is from the exact one, and where.
struct Worst {
  long double error = 0;
  double at = 0, at2 = 0;
  void Take(double ours, long double exact, double a, double b = 0) {
    const long double e = std::fabs((long double)(ours)-exact);
    if (!(e <= error)) error = e, at = a, at2 = b;
  }
};

TEST(Elementary, SineAndCosineAreWithinThreeTimesTenToTheMinus16) {
  std::vector<double> angles = {1048576.0};
  for (int i = 0; i <= 40000; ++i) angles.push_back(i * 0.001);
  std::mt19937_64 draw(101);
  std::uniform_real_distribution<double> wide(0, 1048576.0), narrow(0, 7.0);
  for (int i = 0; i < 100000; ++i)
    for (const double a : {wide(draw), narrow(draw), double(float(narrow(draw)))})
      angles.push_back(a);
  // Near multiples of a quarter turn the reduced argument is a small difference of large numbers;
  // halfway between, one kernel hands over to the other.
  for (const int k : {1, 2, 3, 4, 5, 7, 11, 1000, 4095, 65537, 333331, 667543}) {
    double up = double(k * (std::numbers::pi_v<long double> / 2)), down = up;
    for (int i = 0; i < 40; ++i) {
      for (const double a : {up, down, -up, up + std::numbers::pi / 4}) angles.push_back(a);
      up = std::nextafter(up, kInf), down = std::nextafter(down, -kInf);
    }
  }
  Worst sine, cosine;
  for (const double a : angles) {
    const host::SinCos sc = host::SinCosOf(a);
    sine.Take(sc.sin, std::sin((long double)(a)), a);
    cosine.Take(sc.cos, std::cos((long double)(a)), a);
  }
  EXPECT_LT(sine.error, 3e-16) << "sine of " << sine.at;
  EXPECT_LT(cosine.error, 3e-16) << "cosine of " << cosine.at;
}

TEST(Elementary, ArcTangentIsWithinFiveTimesTenToTheMinus16InAllQuadrants) {
  Worst worst;
  const auto take = [&](double y, double x) {
    worst.Take(host::Atan2(y, x), std::atan2((long double)(y), (long double)(x)), y, x);
  };
  std::mt19937_64 draw(105);
  std::uniform_real_distribution<double> side(-1.0, 1.0), exponent(-300.0, 300.0);
  for (int i = 0; i < 200000; ++i) {
    take(side(draw), side(draw));
    take(std::pow(10.0, exponent(draw)) * side(draw), std::pow(10.0, exponent(draw)) * side(draw));
  }
  // Both sides of every half eighth, where the nearest table entry changes, and of the diagonal.
  for (int i = 1; i <= 16; ++i)
    for (const double ratio :
         {i / 16.0, std::nextafter(i / 16.0, 0.0), std::nextafter(i / 16.0, 2.0)})
      for (const double x : {1.0, -1.0, 3.0})
        take(ratio * x, x), take(x, ratio * x), take(-ratio, x);
  EXPECT_LT(worst.error, 5e-16) << "arc tangent of " << worst.at << " / " << worst.at2;
  for (const double y : {0.0, -0.0, 1.0, -1.0, kInf, -kInf}) {
    for (const double x : {0.0, -0.0, 1.0, -1.0, kInf, -kInf}) {
      EXPECT_NEAR(host::Atan2(y, x), std::atan2(y, x), 5e-16) << y << " / " << x;
      EXPECT_EQ(std::signbit(host::Atan2(y, x)), std::signbit(std::atan2(y, x))) << y << " / " << x;
    }
    EXPECT_TRUE(std::isnan(host::Atan2(y, kNaN)));
    EXPECT_TRUE(std::isnan(host::Atan2(kNaN, y)));
  }
}

struct TwoRounded {
  double a, b;
};
[[gnu::noinline]] TwoRounded RoundTwo(double p, double q) {
  const float x = float(p), y = float(q);
  return {x, y};
}

// A compiler that packs the two roundings and loses them would change stored placements.
TEST(Elementary, TwoNeighboursThatAreRoundedToFloatStayRounded) {
  const TwoRounded r = RoundTwo(0.1, 16777217.0);
  EXPECT_EQ(r.a, 0x1.99999ap-4);  // the float next to a tenth
  EXPECT_EQ(r.b, 16777216.0);     // 2^24 + 1 lies between two floats
}

TEST(Elementary, TangentArcCosineAndHypotenuseAreRightToAFewLastPlaces) {
  Worst tangent, arc, length;
  std::mt19937_64 draw(106);
  std::uniform_real_distribution<double> side(-1.0, 1.0), exponent(-16.0, 0.0);
  for (int i = 0; i < 100000; ++i) {
    const double s = side(draw), near = 1.0 - std::pow(10.0, exponent(draw));
    for (const double c : {s, near, -near}) arc.Take(host::Acos(c), std::acos((long double)(c)), c);
    const long double exact = std::tan((long double)(1.5 * s));
    tangent.Take(double(host::Tan(1.5 * s) / exact), 1.0L, s);  // a field of view may be small
    const float x = float(std::pow(10.0, 37 * s)), y = float(std::pow(10.0, 37 * side(draw)));
    length.Take(double(host::Hypot(x, y) / std::hypot((long double)(x), (long double)(y))), 1, x,
                y);
  }
  EXPECT_LT(arc.error, 8e-16) << arc.at;
  EXPECT_LT(tangent.error, 1.5e-15) << tangent.at;
  EXPECT_LT(length.error, 2.3e-16L) << length.at << ' ' << length.at2;
  for (const double c : {1.0, 1.5, kInf}) EXPECT_EQ(host::Acos(c), 0.0);
  for (const double c : {-1.0, -1.5, -kInf}) EXPECT_EQ(host::Acos(c), host::kPi);
  for (const double bad : {kInf, kNaN}) EXPECT_TRUE(std::isnan(host::Sin(bad) + host::Tan(bad)));
  EXPECT_TRUE(std::isnan(host::Acos(kNaN)));
}

}  // namespace
