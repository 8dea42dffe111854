#pragma once

#include <limits>

#include "host/math/point3.h"

/// An axis-aligned box. A new one is empty: widening it by a point makes it that point.
struct Box3 {
  Point3 pmin{std::numeric_limits<float>::max(), std::numeric_limits<float>::max(),
              std::numeric_limits<float>::max()};
  Point3 pmax{-std::numeric_limits<float>::max(), -std::numeric_limits<float>::max(),
              -std::numeric_limits<float>::max()};

  Box3() = default;
  Box3(const Point3& lower, const Point3& upper) : pmin(lower), pmax(upper) {}

  bool IsEmpty() const { return pmin.x > pmax.x || pmin.y > pmax.y || pmin.z > pmax.z; }
  Point3 Center() const { return (pmin + pmax) * 0.5f; }
  Point3 Width() const { return pmax - pmin; }
  const Point3& Min() const { return pmin; }
  const Point3& Max() const { return pmax; }

  Box3& operator+=(const Point3& p) {
    for (int i = 0; i < 3; ++i) {
      if (p[i] < pmin[i]) pmin[i] = p[i];
      if (p[i] > pmax[i]) pmax[i] = p[i];
    }
    return *this;
  }
  Box3& operator+=(const Box3& b) {
    if (!b.IsEmpty()) *this += b.pmin, *this += b.pmax;
    return *this;
  }

  /// Scales about the centre. An empty box stays empty.
  void Scale(float factor) {
    if (IsEmpty()) return;
    const Point3 c = Center();
    pmin = (pmin - c) * factor + c;
    pmax = (pmax - c) * factor + c;
  }
  /// Moves each face outward by `margin`.
  void EnlargeBy(float margin) {
    if (IsEmpty()) return;
    pmin -= Point3(margin, margin, margin);
    pmax += Point3(margin, margin, margin);
  }
  bool operator==(const Box3&) const = default;
};
