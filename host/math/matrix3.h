#pragma once

#include "host/math/point3.h"

/// An affine transform: four rows, row 3 is the translation. A point is a row vector, p' = p * M,
/// and A * B applies A first. Every operation post-multiplies, so it acts after what M did before.
class Matrix3 {
 public:
  /// The identity.
  constexpr Matrix3() : rows_{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {0, 0, 0}} {}
  constexpr Matrix3(const Point3& r0, const Point3& r1, const Point3& r2, const Point3& r3)
      : rows_{r0, r1, r2, r3} {}

  const Point3& GetRow(int i) const { return rows_[i]; }
  void SetRow(int i, const Point3& row) { rows_[i] = row; }
  const Point3& GetTrans() const { return rows_[3]; }
  void SetTrans(const Point3& t) { rows_[3] = t; }
  void Translate(const Point3& t) { rows_[3] += t; }
  void NoTrans() { rows_[3] = {0, 0, 0}; }
  /// Keeps the translation alone.
  void NoRot();

  void Scale(const Point3& s);
  /// Turns about an axis of the outer frame, by `a` radians: X maps (x, y, z) to
  /// (x, y cos a - z sin a, y sin a + z cos a); Y to (x cos a + z sin a, y, -x sin a + z cos a);
  /// Z to (x cos a - y sin a, x sin a + y cos a, z). Sine and cosine are ours, rounded to float.
  void RotateX(float a);
  void RotateY(float a);
  void RotateZ(float a);
  /// The same turns with the sine and cosine at hand.
  void RotateX(float sine, float cosine);
  void RotateY(float sine, float cosine);
  void RotateZ(float sine, float cosine);

  bool IsIdentity() const { return *this == Matrix3(); }
  /// False for a matrix that has no inverse or holds a value that isn't finite.
  bool IsInvertible() const;
  /// Negative for a matrix that mirrors. Worked out in double.
  double Determinant() const;

  bool operator==(const Matrix3&) const = default;

 private:
  Point3 rows_[4];
};

Matrix3 operator*(const Matrix3& a, const Matrix3& b);

/// Worked out in double and rounded once. The inverse of a matrix of translations alone is exact.
/// A matrix without an inverse gives the identity.
Matrix3 Inverse(const Matrix3& m);

inline Point3 operator*(const Point3& p, const Matrix3& m) {
  const Point3 &a = m.GetRow(0), &b = m.GetRow(1), &c = m.GetRow(2), &t = m.GetRow(3);
  return {p.x * a.x + p.y * b.x + p.z * c.x + t.x, p.x * a.y + p.y * b.y + p.z * c.y + t.y,
          p.x * a.z + p.y * b.z + p.z * c.z + t.z};
}

/// A direction: the translation takes no part.
inline Point3 VectorTransform(const Point3& v, const Matrix3& m) {
  const Point3 &a = m.GetRow(0), &b = m.GetRow(1), &c = m.GetRow(2);
  return {v.x * a.x + v.y * b.x + v.z * c.x, v.x * a.y + v.y * b.y + v.z * c.y,
          v.x * a.z + v.y * b.z + v.z * c.z};
}

Matrix3 TransMatrix(const Point3& t);
