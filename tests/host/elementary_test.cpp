#include "host/math/elementary.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <functional>
#include <limits>
#include <numbers>
#include <random>
#include <vector>

namespace {

constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

// The furthest that `ours` is from `exact`, and where.
struct Worst {
  long double error = 0;
  double at = 0, at2 = 0;
  void Take(double ours, long double exact, double a, double b = 0) {
    const long double e = std::fabs((long double)(ours)-exact);
    if (!(e <= error)) error = e, at = a, at2 = b;
  }
};

void ExpectSineAndCosine(const std::vector<double>& angles, double limit) {
  Worst sine, cosine;
  for (const double a : angles) {
    const host::SinCos sc = host::SinCosOf(a);
    sine.Take(sc.sin, std::sin((long double)(a)), a);
    cosine.Take(sc.cos, std::cos((long double)(a)), a);
    ASSERT_EQ(sc.sin, host::Sin(a));
    ASSERT_EQ(sc.cos, host::Cos(a));
  }
  EXPECT_LT(sine.error, limit) << "sine of " << sine.at;
  EXPECT_LT(cosine.error, limit) << "cosine of " << cosine.at;
}

TEST(Elementary, SineAndCosineAreWithinThreeTimesTenToTheMinus16) {
  std::vector<double> dense, random, quarters;
  for (int i = -40000; i <= 40000; ++i) dense.push_back(i * 0.001);
  std::mt19937_64 draw(101);
  std::uniform_real_distribution<double> wide(-1048576.0, 1048576.0), narrow(-7.0, 7.0);
  for (int i = 0; i < 100000; ++i) {
    random.push_back(wide(draw));
    random.push_back(narrow(draw));
    random.push_back(float(narrow(draw)));
  }
  // Near multiples of a quarter turn the reduced argument is a small difference of large numbers.
  for (const int k : {1, 2, 3, 4, 5, 7, 11, 1000, 4095, 65537, 333331, 667543}) {
    const double middle = double(k * (std::numbers::pi_v<long double> / 2));
    double up = middle, down = middle;
    for (int i = 0; i < 40; ++i) {
      for (const double a : {up, down, -up, -down}) quarters.push_back(a);
      up = std::nextafter(up, kInf), down = std::nextafter(down, -kInf);
    }
    // Halfway between, where one kernel hands over to the other.
    quarters.push_back(middle + std::numbers::pi / 4);
    quarters.push_back(std::nextafter(middle + std::numbers::pi / 4, 0));
  }
  quarters.push_back(1048576.0);
  quarters.push_back(-1048576.0);

  ExpectSineAndCosine(dense, 3e-16);
  ExpectSineAndCosine(random, 3e-16);
  ExpectSineAndCosine(quarters, 3e-16);
}

TEST(Elementary, BeyondTheDirectRangeTheErrorGrowsWithTheArgument) {
  std::mt19937_64 draw(102);
  std::uniform_real_distribution<double> exponent(20.0, 50.0);
  for (int i = 0; i < 50000; ++i) {
    const double a = std::exp2(exponent(draw)) * (i & 1 ? 1 : -1);
    const host::SinCos sc = host::SinCosOf(a);
    const double limit = 3e-16 + std::fabs(a) * 1e-16;
    ASSERT_LT(std::fabs(sc.sin - std::sin((long double)(a))), limit) << a;
    ASSERT_LT(std::fabs(sc.cos - std::cos((long double)(a))), limit) << a;
  }
  // However large, the results stay a point of the unit circle.
  for (const double a : {1e18, 1e100, std::numeric_limits<double>::max()}) {
    const host::SinCos sc = host::SinCosOf(a);
    EXPECT_NEAR(sc.sin * sc.sin + sc.cos * sc.cos, 1.0, 1e-15) << a;
  }
}

TEST(Elementary, SineAndCosineOfSpecialArguments) {
  for (const double zero : {0.0, -0.0}) {
    EXPECT_EQ(host::Sin(zero), 0.0);
    EXPECT_EQ(host::Cos(zero), 1.0);
    EXPECT_EQ(host::Tan(zero), 0.0);
  }
  for (const double bad : {kInf, -kInf, kNaN}) {
    EXPECT_TRUE(std::isnan(host::Sin(bad)));
    EXPECT_TRUE(std::isnan(host::Cos(bad)));
    EXPECT_TRUE(std::isnan(host::Tan(bad)));
  }
  for (const double tiny : {1e-8, 1e-20, 1e-300, 5e-324}) {
    EXPECT_EQ(host::Sin(tiny), tiny);
    EXPECT_EQ(host::Sin(-tiny), -tiny);
    EXPECT_EQ(host::Cos(tiny), 1.0);
  }
}

// Sine is odd and cosine even to the bit, so that mirrored turns stay mirrored.
TEST(Elementary, SineIsOddAndCosineIsEven) {
  std::mt19937_64 draw(103);
  std::uniform_real_distribution<double> angle(0.0, 100.0);
  for (int i = 0; i < 20000; ++i) {
    const double a = angle(draw);
    ASSERT_EQ(host::Sin(-a), -host::Sin(a)) << a;
    ASSERT_EQ(host::Cos(-a), host::Cos(a)) << a;
  }
}

TEST(Elementary, TangentIsWithinAFewRoundingsAwayFromItsPoles) {
  std::mt19937_64 draw(104);
  std::uniform_real_distribution<double> angle(-1.5, 1.5);
  Worst worst;
  for (int i = 0; i < 100000; ++i) {
    const double a = angle(draw);
    const long double exact = std::tan((long double)(a));
    worst.Take(double(host::Tan(a) / exact), 1.0L, a);  // relative: a field of view may be small
  }
  EXPECT_LT(worst.error, 1.5e-15) << worst.at;
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
    for (const double ratio : {i / 16.0, std::nextafter(i / 16.0, 0.0), std::nextafter(i / 16.0, 2.0)})
      for (const double x : {1.0, -1.0, 3.0}) take(ratio * x, x), take(x, ratio * x), take(-ratio, x);
  EXPECT_LT(worst.error, 5e-16) << "arc tangent of " << worst.at << " / " << worst.at2;
}

TEST(Elementary, ArcTangentTakesZerosAndInfinitiesAsTheCLibraryDoes) {
  const std::array<double, 6> values = {0.0, -0.0, 1.0, -1.0, kInf, -kInf};
  for (const double y : values) {
    for (const double x : values) {
      const double expected = std::atan2(y, x);
      EXPECT_NEAR(host::Atan2(y, x), expected, 5e-16) << y << " / " << x;
      EXPECT_EQ(std::signbit(host::Atan2(y, x)), std::signbit(expected)) << y << " / " << x;
    }
    EXPECT_TRUE(std::isnan(host::Atan2(y, kNaN)));
    EXPECT_TRUE(std::isnan(host::Atan2(kNaN, y)));
  }
}

TEST(Elementary, ArcCosineHoldsItsEndsAndItsError) {
  Worst worst;
  std::mt19937_64 draw(106);
  std::uniform_real_distribution<double> side(-1.0, 1.0), exponent(-16.0, 0.0);
  for (int i = 0; i < 100000; ++i) {
    const double near = 1.0 - std::pow(10.0, exponent(draw));
    for (const double c : {side(draw), near, -near})
      worst.Take(host::Acos(c), std::acos((long double)(c)), c);
  }
  EXPECT_LT(worst.error, 8e-16) << worst.at;
  for (const double c : {1.0, 1.5, kInf}) EXPECT_EQ(host::Acos(c), 0.0);
  for (const double c : {-1.0, -1.5, -kInf}) EXPECT_EQ(host::Acos(c), host::kPi);
  EXPECT_TRUE(std::isnan(host::Acos(kNaN)));
}

TEST(Elementary, HypotenuseOfSinglesIsRightToALastPlace) {
  EXPECT_EQ(host::Hypot(3, -4), 5);
  EXPECT_EQ(host::Hypot(0, 0), 0);
  std::mt19937_64 draw(107);
  std::uniform_real_distribution<float> exponent(-37.0f, 37.0f);
  for (int i = 0; i < 50000; ++i) {
    const float x = std::pow(10.0f, exponent(draw)), y = std::pow(10.0f, exponent(draw));
    const long double exact = std::hypot((long double)(x), (long double)(y));
    ASSERT_LE(std::fabs(host::Hypot(x, y) / exact - 1.0L), 2.3e-16L) << x << ' ' << y;
  }
}

}  // namespace
