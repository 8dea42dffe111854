#pragma once

#include <cmath>

#include "host/math/matrix3.h"

namespace host {

/// Nearest depth that is drawn and picked in a perspective, world units.
inline constexpr double kNearDepth = 1e-4;

/// How a view brings world space to its pixels. View space has its origin in the eye, X right, Y up
/// and Z backward; depth is -Z. All in double.
struct Projection {
  Matrix3 axes;  // rows right, up, backward, eye; world space
  bool parallel = false;
  /// Half the width and height of what is seen, at depth 1 in a perspective.
  double halfWidth = 1, halfHeight = 1;
  int width = 1, height = 1;  // pixels

  /// Rows of the matrix from a space to view space; `toWorld` from that space to the world.
  void ToView(const Matrix3& toWorld, double (&rows)[4][3]) const {
    for (int i = 0; i < 4; ++i) {
      const Point3& r = toWorld.GetRow(i);
      double d[3] = {r.x, r.y, r.z};
      if (i == 3)
        for (int k = 0; k < 3; ++k) d[k] -= axes.GetTrans()[k];
      for (int k = 0; k < 3; ++k) {
        const Point3& axis = axes.GetRow(k);
        rows[i][k] = d[0] * axis.x + d[1] * axis.y + d[2] * axis.z;
      }
    }
  }

  /// The pixel position of a point in view space, pixel middles at whole numbers; false behind the
  /// eye of a perspective.
  bool ToPixel(const double (&v)[3], double& x, double& y) const {
    const double depth = parallel ? 1.0 : -v[2];
    if (depth <= 0) return false;
    x = (v[0] / (depth * halfWidth) + 1.0) * 0.5 * width - 0.5;
    y = (1.0 - v[1] / (depth * halfHeight)) * 0.5 * height - 0.5;
    return true;
  }
};

/// A point under rows of Projection::ToView.
inline void Through(const double (&rows)[4][3], const Point3& p, double (&out)[3]) {
  for (int k = 0; k < 3; ++k)
    out[k] = p.x * rows[0][k] + p.y * rows[1][k] + p.z * rows[2][k] + rows[3][k];
}

}  // namespace host
