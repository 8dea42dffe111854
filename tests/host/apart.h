#pragma once

#include <algorithm>
#include <cmath>
#include <limits>

#include "host/math/matrix3.h"

/// The largest difference of two coordinates; infinite if one isn't a number.
inline double Apart(const Point3& a, const Point3& b) {
  double worst = 0;
  for (int i = 0; i < 3; ++i) {
    const double d = std::fabs(double(a[i]) - b[i]);
    worst = std::isnan(d) ? std::numeric_limits<double>::infinity() : std::max(worst, d);
  }
  return worst;
}

inline double Apart(const Matrix3& a, const Matrix3& b) {
  double worst = 0;
  for (int i = 0; i < 4; ++i) worst = std::max(worst, Apart(a.GetRow(i), b.GetRow(i)));
  return worst;
}

/// Scales, then turns about X and twice as far about Z, then moves.
inline Matrix3 Turned(const Point3& scale, float angle, const Point3& at) {
  Matrix3 m;
  m.Scale(scale);
  m.RotateX(angle);
  m.RotateZ(2 * angle);
  m.Translate(at);
  return m;
}
