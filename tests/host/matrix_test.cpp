#include "host/math/matrix3.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>
#include <random>
#include <vector>

#include "host/math/box3.h"
#include "host/math/quat.h"
#include "host/math/tab.h"

namespace {

constexpr float kPi = std::numbers::pi_v<float>;

// The largest difference of two coordinates; infinite if one isn't a number.
double Apart(const Point3& a, const Point3& b) {
  double worst = 0;
  for (int i = 0; i < 3; ++i) {
    const double d = std::fabs(double(a[i]) - b[i]);
    worst = std::isnan(d) ? std::numeric_limits<double>::infinity() : std::max(worst, d);
  }
  return worst;
}

double Apart(const Matrix3& a, const Matrix3& b) {
  double worst = 0;
  for (int i = 0; i < 4; ++i) worst = std::max(worst, Apart(a.GetRow(i), b.GetRow(i)));
  return worst;
}

double Dot(const Point3& a, const Point3& b) {
  return double(a.x) * b.x + double(a.y) * b.y + double(a.z) * b.z;
}

// Largest breach of "orthonormal and right-handed".
double RotationFault(const Matrix3& m) {
  double worst = std::fabs(m.Determinant() - 1.0);
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j)
      worst = std::max(worst, std::fabs(Dot(m.GetRow(i), m.GetRow(j)) - (i == j ? 1.0 : 0.0)));
  return worst;
}

class Draw {
 public:
  explicit Draw(unsigned seed) : engine_(seed) {}
  double In(double low, double high) {
    return std::uniform_real_distribution<double>(low, high)(engine_);
  }
  Point3 Point(double size) {
    return {float(In(-size, size)), float(In(-size, size)), float(In(-size, size))};
  }
  Point3 Direction() {
    for (;;) {
      const Point3 p = Point(1);
      if (Dot(p, p) > 0.01 && Dot(p, p) < 1) return Normalize(p);
    }
  }
  Matrix3 Matrix() { return {Point(2), Point(2), Point(2), Point(50)}; }

 private:
  std::mt19937_64 engine_;
};

TEST(Matrix, QuarterTurnsMoveTheAxesAsWrittenAndTheTranslationWithThem) {
  struct Case {
    void (Matrix3::*turn)(float);
    Point3 x, y, z, t;  // images of the axes, and of (1, 2, 3)
  };
  // X: (x, y, z) to (x, -z, y). Y: to (z, y, -x). Z: to (-y, x, z).
  const Case cases[] = {{&Matrix3::RotateX, {1, 0, 0}, {0, 0, 1}, {0, -1, 0}, {1, -3, 2}},
                        {&Matrix3::RotateY, {0, 0, -1}, {0, 1, 0}, {1, 0, 0}, {3, 2, -1}},
                        {&Matrix3::RotateZ, {0, 1, 0}, {-1, 0, 0}, {0, 0, 1}, {-2, 1, 3}}};
  for (const Case& c : cases) {
    Matrix3 m = TransMatrix({1, 2, 3});
    (m.*c.turn)(kPi / 2);
    EXPECT_LT(Apart(m, Matrix3(c.x, c.y, c.z, c.t)), 5e-7);
  }
}

TEST(Matrix, OperationsActAfterWhatTheMatrixDidBefore) {
  Matrix3 m;
  m.RotateZ(kPi / 2);         // (1, 0, 0) to (0, 1, 0)
  m.Scale({2, 3, 4});         // to (0, 3, 0)
  m.Translate({10, 20, 30});  // to (10, 23, 30)
  EXPECT_LT(Apart(Point3(1, 0, 0) * m, Point3(10, 23, 30)), 1e-6);
  EXPECT_LT(Apart(VectorTransform(Point3(1, 0, 0), m), Point3(0, 3, 0)), 1e-6);

  Matrix3 direction = m, place = m;
  direction.NoTrans();
  EXPECT_EQ(direction.GetTrans(), Point3(0, 0, 0));
  EXPECT_EQ(direction.GetRow(0), m.GetRow(0));
  place.NoRot();
  EXPECT_EQ(place, TransMatrix(m.GetTrans()));

  Matrix3 scaled = TransMatrix({1, 1, 1});
  scaled.Scale({2, 3, 4});
  EXPECT_EQ(scaled.GetTrans(), Point3(2, 3, 4));
}

TEST(Matrix, ProductAppliesTheLeftFactorFirst) {
  const Matrix3 move = TransMatrix({5, 0, 0});
  Matrix3 turn;
  turn.RotateZ(kPi / 2);
  EXPECT_LT(Apart((move * turn).GetTrans(), Point3(0, 5, 0)), 1e-6);
  EXPECT_LT(Apart((turn * move).GetTrans(), Point3(5, 0, 0)), 1e-6);

  Draw draw(1);
  for (int i = 0; i < 2000; ++i) {
    const Matrix3 a = draw.Matrix(), b = draw.Matrix();
    const Point3 p = draw.Point(20);
    ASSERT_LT(Apart(p * (a * b), (p * a) * b), 2e-3) << i;  // coordinates reach several hundreds
  }
}

TEST(Matrix, InverseUndoesAndTranslationsAreExact) {
  Draw draw(2);
  for (int i = 0; i < 2000; ++i) {
    const Matrix3 m = draw.Matrix();
    if (std::fabs(m.Determinant()) < 1) continue;
    ASSERT_TRUE(m.IsInvertible());
    ASSERT_LT(Apart(m * Inverse(m), Matrix3()), 1e-3) << i;
    const Point3 p = draw.Point(10);
    ASSERT_LT(Apart(p * m * Inverse(m), p), 1e-3) << i;
  }
  EXPECT_EQ(Inverse(TransMatrix({1, -2, 3.5f})), TransMatrix({-1, 2, -3.5f}));
  const Matrix3 mirror({-1, 0, 0}, {0, 2, 0}, {0, 0, 4}, {3, 4, 8});
  EXPECT_EQ(Inverse(mirror), Matrix3({-1, 0, 0}, {0, 0.5f, 0}, {0, 0, 0.25f}, {3, -2, -2}));
  EXPECT_EQ(mirror.Determinant(), -8);
}

TEST(Matrix, WhatHasNoInverseSaysSo) {
  const Matrix3 flat({1, 0, 0}, {0, 1, 0}, {0, 0, 0}, {1, 2, 3});
  const Matrix3 sheet({1, 2, 3}, {2, 4, 6}, {0, 0, 1}, {0, 0, 0});
  for (const Matrix3& m : {flat, sheet}) {
    EXPECT_FALSE(m.IsInvertible());
    EXPECT_EQ(Inverse(m), Matrix3());
  }
  Matrix3 bad;
  bad.SetTrans({0, std::numeric_limits<float>::infinity(), 0});
  EXPECT_FALSE(bad.IsInvertible());
  bad.SetRow(0, {std::numeric_limits<float>::quiet_NaN(), 0, 0});
  EXPECT_EQ(Inverse(bad), Matrix3());

  // Small is not singular.
  Matrix3 small;
  small.Scale({1e-6f, 1e-6f, 1e-6f});
  EXPECT_TRUE(small.IsInvertible());
  EXPECT_NEAR(Inverse(small).GetRow(1).y, 1e6, 1);
}

// Normals all over the sphere and where care is needed: poles, straight down, the horizon.
std::vector<Point3> Normals(unsigned seed, int count) {
  Draw draw(seed);
  std::vector<Point3> normals = {{0, 0, 1},       {0, 0, -1},       {1, 0, 0},
                                 {-1, 0, 0},      {0, 1, 0},        {0, -1, 0},
                                 {1e-8f, 0, 1},   {1e-8f, 0, -1},   {0, -1e-8f, -1},
                                 {1e-30f, 0, -1}, {1e-4f, 1e-4f, -1}, {1, 1e-7f, 1e-7f}};
  for (int i = 0; i < count; ++i) {
    normals.push_back(draw.Direction());
    const float near = float(std::pow(10.0, draw.In(-9, -1)));
    const Point3 off = draw.Direction() * near;
    for (const Point3& axis : {Point3(0, 0, 1), Point3(0, 0, -1), Point3(1, 0, 0), Point3(-1, 0, 0),
                               Point3(0, 1, 0), Point3(0, -1, 0)})
      normals.push_back(axis + off);
  }
  return normals;
}

TEST(MatrixFromNormal, IsTheSmallestTurnThatTakesZToTheNormal) {
  for (const Point3& n : Normals(3, 3000)) {
    const Matrix3 m = MatrixFromNormal(n);
    const Point3 unit = Normalize(n);
    SCOPED_TRACE(testing::Message() << "normal " << n.x << ' ' << n.y << ' ' << n.z);
    ASSERT_LT(RotationFault(m), 5e-7);
    ASSERT_LT(Apart(m.GetRow(2), unit), 1e-7);
    ASSERT_EQ(m.GetTrans(), Point3(0, 0, 0));
    // A turn by an angle has trace 1 + 2 cos; the smallest one's angle is that between Z and n.
    const double trace = double(m.GetRow(0).x) + m.GetRow(1).y + m.GetRow(2).z;
    ASSERT_NEAR(trace, 1 + 2.0 * unit.z, 5e-7);
    // Its axis lies level, so the turn's skew part has no share about Z.
    ASSERT_NEAR(double(m.GetRow(0).y) - m.GetRow(1).x, 0, 1e-7);
  }
}

TEST(MatrixFromNormal, PolesAndNothing) {
  EXPECT_EQ(MatrixFromNormal({0, 0, 1}), Matrix3());
  EXPECT_EQ(MatrixFromNormal({0, 0, 7}), Matrix3());
  const Matrix3 halfTurn({1, 0, 0}, {0, -1, 0}, {0, 0, -1}, {0, 0, 0});
  EXPECT_EQ(MatrixFromNormal({0, 0, -1}), halfTurn);
  EXPECT_EQ(MatrixFromNormal({0, 0, -0.25f}), halfTurn);
  EXPECT_EQ(MatrixFromNormal({0, 0, 0}), Matrix3());
  EXPECT_EQ(MatrixFromNormal({std::numeric_limits<float>::quiet_NaN(), 0, 1}), Matrix3());
  // By hand: Z to X is a quarter turn about Y, X goes to -Z.
  EXPECT_LT(Apart(MatrixFromNormal({1, 0, 0}), Matrix3({0, 0, -1}, {0, 1, 0}, {1, 0, 0}, {0, 0, 0})),
            1e-7);
}

TEST(ArbAxis, FollowsTheArbitraryAxisRule) {
  const auto frame = [](const Point3& x, const Point3& y, const Point3& z) {
    return Matrix3(x, y, z, {0, 0, 0});
  };
  // Upright: first row Y cross z. Else Z cross z.
  EXPECT_EQ(ArbAxis({0, 0, 2}), Matrix3());
  EXPECT_EQ(ArbAxis({0, 0, -1}), frame({-1, 0, 0}, {0, 1, 0}, {0, 0, -1}));
  EXPECT_EQ(ArbAxis({3, 0, 0}), frame({0, 1, 0}, {0, 0, 1}, {1, 0, 0}));
  EXPECT_EQ(ArbAxis({0, 1, 0}), frame({-1, 0, 0}, {0, 0, 1}, {0, 1, 0}));
  EXPECT_EQ(ArbAxis({0, 0, 0}), Matrix3());

  // Either side of one sixty-fourth. Just inside, X hardly moves; just outside it is level.
  EXPECT_GT(ArbAxis({0.0156f, 0, 1}).GetRow(0).x, 0.99f);
  EXPECT_GT(ArbAxis({0.0157f, 0, 1}).GetRow(0).y, 0.99f);

  for (const Point3& v : Normals(4, 500)) {
    const Matrix3 m = ArbAxis(v * 3.0f);
    ASSERT_LT(RotationFault(m), 8e-7) << v.x << ' ' << v.y << ' ' << v.z;
    ASSERT_LT(Apart(m.GetRow(2), Normalize(v)), 1.5e-7);
  }
}

// The angle of a turn to b from a, in degrees, brought into -180 to 180.
double Between(double a, double b) { return std::remainder(b - a, 360.0); }

TEST(ArbAxis, AStrokeAcrossTheGroundGivesItsAngleAboutZ) {
  for (int degrees = -180; degrees <= 180; ++degrees) {
    const double a = degrees * std::numbers::pi / 180;
    const Point3 d(float(std::cos(a)), float(std::sin(a)), 0);
    float euler[3];
    QuatToEuler(Quat(ArbAxis(d)), euler);
    const double toDegrees = 180 / std::numbers::pi;
    EXPECT_NEAR(Between(90, euler[0] * toDegrees), 0, 1e-4) << degrees;
    EXPECT_NEAR(euler[1] * toDegrees, 0, 1e-4) << degrees;
    EXPECT_NEAR(Between(degrees + 90, euler[2] * toDegrees), 0, 1e-4) << degrees;

    // With half a turn added, what points along +Y points along the stroke.
    Matrix3 m;
    m.RotateZ(euler[2] + kPi);
    EXPECT_LT(Apart(Point3(0, 1, 0) * m, d), 1e-6) << degrees;
  }
}

TEST(Euler, AnglesTurnBackIntoTheMatrixTheyCameFrom) {
  // By hand: a tilt about one axis is that axis's angle alone.
  for (int axis = 0; axis < 3; ++axis) {
    Matrix3 m;
    if (axis == 0) m.RotateX(0.3f);
    if (axis == 1) m.RotateY(0.3f);
    if (axis == 2) m.RotateZ(0.3f);
    float e[3];
    QuatToEuler(Quat(m), e);
    for (int i = 0; i < 3; ++i) EXPECT_NEAR(e[i], i == axis ? 0.3 : 0.0, 1e-7) << axis;
  }

  // Every branch of the way through the quaternion: half turns about any axis.
  Draw draw(5);
  for (int i = 0; i < 20000; ++i) {
    const float x = float(draw.In(-kPi, kPi)), y = float(draw.In(-kPi, kPi)),
                z = float(draw.In(-kPi, kPi));
    Matrix3 m;
    m.RotateX(x), m.RotateY(y), m.RotateZ(z);
    float e[3];
    QuatToEuler(Quat(m), e);
    ASSERT_LE(std::fabs(e[1]), kPi / 2);
    Matrix3 back;
    back.RotateX(e[0]), back.RotateY(e[1]), back.RotateZ(e[2]);
    ASSERT_LT(Apart(back, m), 1.5e-6) << x << ' ' << y << ' ' << z;
  }
}

// Stored orientations rest on this: base frame to angles, kept in hundredths, and back.
TEST(Euler, StoredAnglesGiveTheBaseFrameBack) {
  constexpr unsigned kSeed = 6;
  Draw draw(kSeed);
  double worst = 0;
  Point3 worstNormal(0, 0, 0);
  float worstSpin = 0;
  const auto take = [&](const Point3& n, float spin) {
    Matrix3 base;
    base.RotateZ(spin);
    base = base * MatrixFromNormal(n);
    float e[3];
    QuatToEuler(Quat(base), e);
    Matrix3 m;
    m.RotateX(e[0] * 0.01f * 100.0f);
    m.RotateY(e[1] * 0.01f * 100.0f);
    m.RotateZ(e[2]);
    const double apart = Apart(m, base);
    if (!(apart <= worst)) worst = apart, worstNormal = n, worstSpin = spin;
  };
  for (const Point3& n : Normals(kSeed, 4000)) {
    take(n, 0);
    for (int i = 0; i < 4; ++i) take(n, float(draw.In(-kPi, kPi)));
  }
  // Spins that put the frame's own axes near +-90 degrees about Y, however the normal leans.
  for (int i = 0; i < 20000; ++i) {
    const float a = float(draw.In(-kPi, kPi));
    const float lean = float(kPi / 2 + std::pow(10.0, draw.In(-8, -1)) * (i & 1 ? 1 : -1));
    const Point3 n(std::sin(lean) * std::cos(a), std::sin(lean) * std::sin(a), std::cos(lean));
    take(n, -a + kPi * float(i % 4) / 2 + float(std::pow(10.0, draw.In(-8, -2))));
    take(n, a);
  }
  EXPECT_LT(worst, 2e-6) << "seed " << kSeed << ", normal " << worstNormal.x << ' '
                         << worstNormal.y << ' ' << worstNormal.z << ", spin " << worstSpin;
}

TEST(Vector, NormalizeCrossAndLength) {
  EXPECT_EQ(Normalize({0, 0, 0}), Point3(0, 0, 0));
  EXPECT_EQ(Normalize({0, -3, 4}), Point3(0, -0.6f, 0.8f));
  EXPECT_EQ(Normalize({1e-30f, 0, 0}), Point3(1, 0, 0));  // its square is no single any more
  EXPECT_EQ(Normalize({0, 3e38f, 0}), Point3(0, 1, 0));
  EXPECT_EQ(CrossProd({1, 0, 0}, {0, 1, 0}), Point3(0, 0, 1));
  EXPECT_EQ(CrossProd({1, 2, 3}, {4, 5, 6}), Point3(-3, 6, -3));
  EXPECT_EQ(DotProd({1, 2, 3}, {4, 5, 6}), 32);
  EXPECT_EQ(Length({2, 3, 6}), 7);
}

TEST(Box, WidensScalesAboutItsCentreAndStaysEmptyWithoutPoints) {
  Box3 box;
  EXPECT_TRUE(box.IsEmpty());
  box.Scale(2);
  box.EnlargeBy(1);
  box += Box3();
  EXPECT_TRUE(box.IsEmpty());
  box += Point3(1, 2, 3);
  EXPECT_EQ(box, Box3({1, 2, 3}, {1, 2, 3}));
  box += Box3({-1, 0, 3}, {0, 6, 5});
  EXPECT_EQ(box, Box3({-1, 0, 3}, {1, 6, 5}));
  EXPECT_EQ(box.Center(), Point3(0, 3, 4));
  EXPECT_EQ(box.Width(), Point3(2, 6, 2));
  box.Scale(0.5f);
  EXPECT_EQ(box, Box3({-0.5f, 1.5f, 3.5f}, {0.5f, 4.5f, 4.5f}));
  box.EnlargeBy(0.5f);
  EXPECT_EQ(box, Box3({-1, 1, 3}, {1, 5, 5}));
}

TEST(Tab, IndexingOutsideIsRefusedInEveryBuild) {
  Tab<int> tab;
  const int values[] = {4, 5, 6, 7};
  tab.Append(4, values);
  tab.Delete(1, 2);
  EXPECT_EQ(tab.Count(), 2);
  EXPECT_EQ(tab[1], 7);
  EXPECT_TRUE(tab.Contains(4));
  EXPECT_FALSE(tab.Contains(5));
  for (const int bad : {-1, 2, std::numeric_limits<int>::max()}) {
    try {
      tab[bad] = 0;
      ADD_FAILURE() << bad;
    } catch (const MaxSDK::Util::TabOutOfRangeException& e) {
      EXPECT_STREQ(e.what(), "Invalid index passed into a Max SDK Tab::operator[]");
    }
  }
  EXPECT_THROW(tab.Delete(1, std::numeric_limits<int>::max()), MaxSDK::Util::TabOutOfRangeException);
  EXPECT_THROW(tab.Delete(-1, 1), MaxSDK::Util::TabOutOfRangeException);
  tab.Delete(2, 0);
  tab.SetCount(3);
  EXPECT_EQ(tab[2], 0);
}

}  // namespace
