#include "host/math/quat.h"

#include <cmath>

#include "host/math/elementary.h"

// Shepperd, "Quaternion from rotation matrix", 1978: the largest component comes from a root, the
// others by division through it. Rows are images of the axes, hence the signs of the differences.
Quat::Quat(const Matrix3& m) {
  const Point3 &a = m.GetRow(0), &b = m.GetRow(1), &c = m.GetRow(2);
  const double m00 = a.x, m11 = b.y, m22 = c.z;
  const double trace = m00 + m11 + m22;
  if (trace >= m00 && trace >= m11 && trace >= m22) {
    const double r = std::sqrt(1.0 + trace);
    const double s = 0.5 / r;
    *this = {};
    w = 0.5 * r;
    x = (double(b.z) - c.y) * s;
    y = (double(c.x) - a.z) * s;
    z = (double(a.y) - b.x) * s;
  } else if (m00 >= m11 && m00 >= m22) {
    const double r = std::sqrt(1.0 + m00 - m11 - m22);
    const double s = 0.5 / r;
    x = 0.5 * r;
    y = (double(a.y) + b.x) * s;
    z = (double(c.x) + a.z) * s;
    w = (double(b.z) - c.y) * s;
  } else if (m11 >= m22) {
    const double r = std::sqrt(1.0 - m00 + m11 - m22);
    const double s = 0.5 / r;
    y = 0.5 * r;
    x = (double(a.y) + b.x) * s;
    z = (double(b.z) + c.y) * s;
    w = (double(c.x) - a.z) * s;
  } else {
    const double r = std::sqrt(1.0 - m00 - m11 + m22);
    const double s = 0.5 / r;
    z = 0.5 * r;
    x = (double(c.x) + a.z) * s;
    y = (double(b.z) + c.y) * s;
    w = (double(a.y) - b.x) * s;
  }
}

void QuatToEuler(const Quat& q, float angles[3]) {
  const double n = q.x * q.x + q.y * q.y + q.z * q.z + q.w * q.w;
  const double k = n > 0 ? 2.0 / n : 0.0;
  // Rows of the rotation.
  const double m00 = 1 - k * (q.y * q.y + q.z * q.z);
  const double m01 = k * (q.x * q.y + q.w * q.z);
  const double m02 = k * (q.x * q.z - q.w * q.y);
  const double m11 = 1 - k * (q.x * q.x + q.z * q.z);
  const double m10 = k * (q.x * q.y - q.w * q.z);
  const double m20 = k * (q.x * q.z + q.w * q.y);
  const double m21 = k * (q.y * q.z - q.w * q.x);

  const double ez = host::Atan2(m01, m00);
  const double ey = host::Atan2(-m02, host::Hypot(m00, m01));
  const auto [s, c] = host::SinCosOf(ez);
  const double ex = host::Atan2(s * m20 - c * m21, c * m11 - s * m10);
  angles[0] = float(ex);
  angles[1] = float(ey);
  angles[2] = float(ez);
}

Matrix3 MatrixFromNormal(const Point3& n) {
  const double length = std::sqrt(double(n.x) * n.x + double(n.y) * n.y + double(n.z) * n.z);
  if (!(length > 0.0) || !std::isfinite(length)) return {};
  const double x = n.x / length, y = n.y / length, z = n.z / length;

  const double across = x * x + y * y;
  if (z < 0.0 && across == 0.0) return {{1, 0, 0}, {0, -1, 0}, {0, 0, -1}, {0, 0, 0}};

  // 1 / (1 + z); below the horizon 1 + z is the small difference, so it is taken from the others.
  const double k = z >= 0.0 ? 1.0 / (1.0 + z) : (1.0 - z) / across;
  return {{float(1.0 - k * x * x), float(-k * x * y), float(-x)},
          {float(-k * x * y), float(1.0 - k * y * y), float(-y)},
          {float(x), float(y), float(z)},
          {0, 0, 0}};
}

Matrix3 ArbAxis(const Point3& v) {
  const Point3 z = Normalize(v);
  if (!(Length(z) > 0.5f)) return {};
  const bool upright = std::fabs(z.x) < 1.0f / 64 && std::fabs(z.y) < 1.0f / 64;
  const Point3 x = Normalize(CrossProd(upright ? Point3(0, 1, 0) : Point3(0, 0, 1), z));
  return {x, Normalize(CrossProd(z, x)), z, {0, 0, 0}};
}
