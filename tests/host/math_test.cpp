#include "host/math/matrix3.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <numbers>
#include <random>
#include <vector>

#include "host/math/elementary.h"
#include "host/math/quat.h"
#include "tests/host/apart.h"

namespace {

constexpr float kPi = std::numbers::pi_v<float>;
constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();

// Largest breach of "orthonormal and right-handed".
double RotationFault(const Matrix3& m) {
  double worst = std::fabs(m.Determinant() - 1.0);
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j)
      worst = std::max(worst, std::fabs(DotProd(m.GetRow(i), m.GetRow(j)) - (i == j ? 1.0 : 0.0)));
  return worst;
}

class Draw {
 public:
  explicit Draw(unsigned seed) : engine_(seed) {}
  float In(double low, double high) {
    return float(std::uniform_real_distribution<double>(low, high)(engine_));
  }
  Point3 Point(double size) { return {In(-size, size), In(-size, size), In(-size, size)}; }
  Matrix3 Matrix() { return {Point(2), Point(2), Point(2), Point(50)}; }

 private:
  std::mt19937_64 engine_;
};

TEST(Matrix, QuarterTurnsMoveTheAxesAsWrittenAndTheTranslationWithThem) {
  // X: (x, y, z) to (x, -z, y). Y: to (z, y, -x). Z: to (-y, x, z). The images of the axes and of
  // (1, 2, 3):
  const std::pair<void (Matrix3::*)(float), Matrix3> cases[] = {
      {&Matrix3::RotateX, {{1, 0, 0}, {0, 0, 1}, {0, -1, 0}, {1, -3, 2}}},
      {&Matrix3::RotateY, {{0, 0, -1}, {0, 1, 0}, {1, 0, 0}, {3, 2, -1}}},
      {&Matrix3::RotateZ, {{0, 1, 0}, {-1, 0, 0}, {0, 0, 1}, {-2, 1, 3}}}};
  for (const auto& [turn, image] : cases) {
    Matrix3 m = TransMatrix({1, 2, 3});
    (m.*turn)(kPi / 2);
    EXPECT_LT(Apart(m, image), 5e-7);
  }
  Matrix3 m;
  m.RotateZ(kPi / 2);         // (1, 0, 0) to (0, 1, 0)
  m.Scale({2, 3, 4});         // to (0, 3, 0)
  m.Translate({10, 20, 30});  // to (10, 23, 30)
  m.Scale({1, 1, 0.5f});      // to (10, 23, 15): each acts after what was there before
  EXPECT_LT(Apart(Point3(1, 0, 0) * m, Point3(10, 23, 15)), 1e-6);
  EXPECT_LT(Apart(VectorTransform(Point3(1, 0, 0), m), Point3(0, 3, 0)), 1e-6);
}

TEST(Matrix, ProductsApplyTheLeftFactorFirstAndInversesUndo) {
  Draw draw(1);
  for (int i = 0; i < 2000; ++i) {
    const Matrix3 a = draw.Matrix(), b = draw.Matrix();
    const Point3 p = draw.Point(20);
    ASSERT_LT(Apart(p * (a * b), (p * a) * b), 2e-3) << i;  // coordinates reach several hundreds
    if (std::fabs(a.Determinant()) < 1) continue;
    ASSERT_LT(Apart(a * Inverse(a), Matrix3()), 1e-3) << i;
  }
  EXPECT_EQ(Inverse(TransMatrix({1, -2, 3.5f})), TransMatrix({-1, 2, -3.5f})) << "exactly";
  for (const Matrix3& none : {Matrix3({1, 2, 3}, {2, 4, 6}, {0, 0, 1}, {0, 0, 0}),
                              Matrix3({1, 0, 0}, {0, 1, 0}, {0, 0, kNaN}, {0, 0, 0})}) {
    EXPECT_FALSE(none.IsInvertible());
    EXPECT_EQ(Inverse(none), Matrix3());
  }
  Matrix3 small;  // is not singular
  small.Scale({1e-6f, 1e-6f, 1e-6f});
  EXPECT_NEAR(Inverse(small).GetRow(1).y, 1e6, 1);
}

// Normals all over the sphere and where care is needed: poles, straight down, the horizon.
std::vector<Point3> Normals(unsigned seed, int count) {
  Draw draw(seed);
  std::vector<Point3> normals = {{1e-30f, 0, -1}, {1e-4f, 1e-4f, -1}, {1, 1e-7f, 1e-7f}};
  for (int i = 0; i < count; ++i) {
    normals.push_back(draw.Point(1) + Point3(0, 0, 1e-6f));
    const Point3 off = i == 0 ? Point3(0, 0, 0) : draw.Point(std::pow(10.0, draw.In(-9, -1)));
    for (int axis = 0; axis < 6; ++axis) {
      normals.push_back(off);
      normals.back()[axis / 2] += axis % 2 ? 1.0f : -1.0f;
    }
  }
  return normals;
}

TEST(MatrixFromNormal, IsTheSmallestTurnThatTakesZToTheNormal) {
  for (const Point3& n : Normals(3, 3000)) {
    const Matrix3 m = MatrixFromNormal(n);
    SCOPED_TRACE(testing::Message() << "normal " << n.x << ' ' << n.y << ' ' << n.z);
    ASSERT_LT(RotationFault(m), 5e-7);
    ASSERT_LT(Apart(m.GetRow(2), Normalize(n)), 1e-7);
    ASSERT_EQ(m.GetTrans(), Point3(0, 0, 0));
    // A turn by an angle has trace 1 + 2 cos; the smallest one's angle is that between Z and n.
    const double trace = double(m.GetRow(0).x) + m.GetRow(1).y + m.GetRow(2).z;
    ASSERT_NEAR(trace, 1 + 2.0 * Normalize(n).z, 5e-7);
    // Its axis lies level, so the turn's skew part has no share about Z.
    ASSERT_NEAR(double(m.GetRow(0).y) - m.GetRow(1).x, 0, 1e-7);
  }
  EXPECT_EQ(MatrixFromNormal({0, 0, -0.25f}),
            Matrix3({1, 0, 0}, {0, -1, 0}, {0, 0, -1}, {0, 0, 0}));
  for (const Point3& none : {Point3(0, 0, 0), Point3(kNaN, 0, 1)})
    EXPECT_EQ(MatrixFromNormal(none), Matrix3());
}

TEST(ArbAxis, FollowsTheArbitraryAxisRule) {
  // Upright: first row Y cross z. Else Z cross z.
  EXPECT_EQ(ArbAxis({0, 0, -1}), Matrix3({-1, 0, 0}, {0, 1, 0}, {0, 0, -1}, {0, 0, 0}));
  EXPECT_EQ(ArbAxis({3, 0, 0}), Matrix3({0, 1, 0}, {0, 0, 1}, {1, 0, 0}, {0, 0, 0}));
  EXPECT_EQ(ArbAxis({0, 0, 0}), Matrix3());
  // Either side of one sixty-fourth. Just inside, X hardly moves; just outside it is level.
  EXPECT_GT(ArbAxis({0.0156f, 0, 1}).GetRow(0).x, 0.99f);
  EXPECT_GT(ArbAxis({0.0157f, 0, 1}).GetRow(0).y, 0.99f);
  for (const Point3& v : Normals(4, 500)) {
    ASSERT_LT(RotationFault(ArbAxis(v)), 8e-7) << v.x << ' ' << v.y << ' ' << v.z;
    ASSERT_LT(Apart(ArbAxis(v).GetRow(2), Normalize(v)), 1.5e-7);
  }
}

// The furthest that the angles of a turn, kept in hundredths as stored orientations are, lead from
// it.
double EulerFault(const Matrix3& turn) {
  float e[3];
  QuatToEuler(Quat(turn), e);
  Matrix3 back;
  back.RotateX(e[0] * 0.01f * 100.0f), back.RotateY(e[1] * 0.01f * 100.0f), back.RotateZ(e[2]);
  return std::fabs(e[1]) <= kPi / 2 ? Apart(back, turn) : 9;
}

TEST(Euler, AnglesTurnBackIntoTheMatrixTheyCameFrom) {
  Draw draw(6);
  for (const Point3& n : Normals(6, 4000)) {
    Matrix3 spin;
    if (n.x > 0) spin.RotateZ(draw.In(-kPi, kPi));
    ASSERT_LT(EulerFault(spin * MatrixFromNormal(n)), 2e-6) << n.x << ' ' << n.y << ' ' << n.z;
  }
  // Spins that put the frame's own axes near +-90 degrees about Y, however the normal leans.
  for (int i = 0; i < 40000; ++i) {
    const float a = draw.In(-kPi, kPi);
    const float lean = kPi / 2 + std::pow(10.0f, draw.In(-8, -1)) * (i & 1 ? 1.0f : -1.0f);
    Matrix3 spin;
    spin.RotateZ(-a + kPi * float(i % 4) / 2 + std::pow(10.0f, draw.In(-8, -2)));
    const Point3 n(std::sin(lean) * std::cos(a), std::sin(lean) * std::sin(a), std::cos(lean));
    ASSERT_LT(EulerFault(spin * MatrixFromNormal(n)), 2e-6) << "angle " << a << ", lean " << lean;
  }
}

constexpr double kInf = std::numeric_limits<double>::infinity();

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
  for (const double bad : {kInf, double(kNaN)})
    EXPECT_TRUE(std::isnan(host::Sin(bad) + host::Tan(bad)));
  EXPECT_TRUE(std::isnan(host::Acos(kNaN)));
}

}  // namespace
