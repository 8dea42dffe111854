#include "host/math/matrix3.h"

#include "host/math/elementary.h"

void Matrix3::NoRot() {
  rows_[0] = {1, 0, 0};
  rows_[1] = {0, 1, 0};
  rows_[2] = {0, 0, 1};
}

void Matrix3::Scale(const Point3& s) {
  for (Point3& r : rows_) r = r * s;
}

void Matrix3::RotateX(float sine, float cosine) {
  for (Point3& r : rows_) r = {r.x, r.y * cosine - r.z * sine, r.y * sine + r.z * cosine};
}

void Matrix3::RotateY(float sine, float cosine) {
  for (Point3& r : rows_) r = {r.x * cosine + r.z * sine, r.y, r.z * cosine - r.x * sine};
}

void Matrix3::RotateZ(float sine, float cosine) {
  for (Point3& r : rows_) r = {r.x * cosine - r.y * sine, r.x * sine + r.y * cosine, r.z};
}

void Matrix3::RotateX(float a) {
  const host::SinCos sc = host::SinCosOf(a);
  RotateX(float(sc.sin), float(sc.cos));
}

void Matrix3::RotateY(float a) {
  const host::SinCos sc = host::SinCosOf(a);
  RotateY(float(sc.sin), float(sc.cos));
}

void Matrix3::RotateZ(float a) {
  const host::SinCos sc = host::SinCosOf(a);
  RotateZ(float(sc.sin), float(sc.cos));
}

namespace {

struct DoubleRow {
  double x, y, z;
};

DoubleRow Cross(const Point3& a, const Point3& b) {
  return {double(a.y) * b.z - double(a.z) * b.y, double(a.z) * b.x - double(a.x) * b.z,
          double(a.x) * b.y - double(a.y) * b.x};
}

double Dot(const Point3& a, const DoubleRow& b) { return a.x * b.x + a.y * b.y + a.z * b.z; }

}  // namespace

double Matrix3::Determinant() const { return Dot(rows_[0], Cross(rows_[1], rows_[2])); }

bool Matrix3::IsInvertible() const {
  for (const Point3& r : rows_)
    if (!IsFinite(r)) return false;

  // Singular to single precision: the volume is lost in the rounding of the three lengths.
  double lengths = 1.0;
  for (int i = 0; i < 3; ++i) {
    const Point3& r = rows_[i];
    lengths *= std::sqrt(double(r.x) * r.x + double(r.y) * r.y + double(r.z) * r.z);
  }
  return std::fabs(Determinant()) > lengths * 1e-7;
}

Matrix3 operator*(const Matrix3& a, const Matrix3& b) {
  return {VectorTransform(a.GetRow(0), b), VectorTransform(a.GetRow(1), b),
          VectorTransform(a.GetRow(2), b), a.GetRow(3) * b};
}

Matrix3 Inverse(const Matrix3& m) {
  const Point3 &a = m.GetRow(0), &b = m.GetRow(1), &c = m.GetRow(2), &t = m.GetRow(3);
  const double determinant = m.Determinant();
  if (determinant == 0.0 || !std::isfinite(determinant)) return {};

  // The columns of the inverse are the cross products of the rows over the determinant.
  DoubleRow columns[3] = {Cross(b, c), Cross(c, a), Cross(a, b)};
  for (DoubleRow& k : columns) k = {k.x / determinant, k.y / determinant, k.z / determinant};

  const Point3 r0(float(columns[0].x), float(columns[1].x), float(columns[2].x));
  const Point3 r1(float(columns[0].y), float(columns[1].y), float(columns[2].y));
  const Point3 r2(float(columns[0].z), float(columns[1].z), float(columns[2].z));
  const Point3 r3(float(-Dot(t, columns[0])), float(-Dot(t, columns[1])),
                  float(-Dot(t, columns[2])));
  return {r0, r1, r2, r3};
}

Matrix3 TransMatrix(const Point3& t) {
  Matrix3 m;
  m.SetTrans(t);
  return m;
}
