#pragma once

#include "host/math/matrix3.h"

/// A rotation as a unit quaternion. Double precision, so that the way from a matrix to stored
/// angles is rounded once, at its end.
struct Quat {
  double x = 0, y = 0, z = 0, w = 1;

  Quat() = default;
  /// The rotation of m, whose rows must be orthonormal and right-handed.
  explicit Quat(const Matrix3& m);
};

/// The angles (x, y, z) in radians with RotateX(x), RotateY(y), RotateZ(z) from the identity giving
/// the rotation back. y lies in -pi/2 to pi/2; stable where it comes near the ends.
void QuatToEuler(const Quat& q, float angles[3]);

/// The smallest turn that takes +Z to n: orthonormal, third row n normalised, no translation.
/// Straight down is half a turn about X; a normal without length gives the identity.
Matrix3 MatrixFromNormal(const Point3& n);

/// An orthonormal right-handed frame whose third row is v normalised, by the arbitrary axis rule:
/// the first row is Y cross z where z is within 1/64 of the Z axis in x and in y, else Z cross z.
/// A vector without length gives the identity.
Matrix3 ArbAxis(const Point3& v);
