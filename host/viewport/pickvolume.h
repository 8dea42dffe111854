#pragma once

#include "host/viewport/projection.h"

struct HitRegion;

namespace host {

/// The part of a space that is seen in a pick's rectangle: an intersection of half spaces, so that
/// nothing needs to be projected and whatever lies behind the eye drops out.
class PickVolume {
 public:
  PickVolume() = default;
  /// `toWorld` leads from the space in question; the rectangle is widened by `around` pixels.
  PickVolume(const Projection& projection, const Matrix3& toWorld, const HitRegion& region,
             double around);

  bool Contains(const Point3& p) const {
    for (int i = 0; i < count_; ++i)
      if (!(Above(i, p) >= 0)) return false;
    return true;
  }
  /// Whether any point of the segment lies inside. Finite points.
  bool MeetsSegment(const Point3& a, const Point3& b) const;
  /// Whether any point of the triangle lies inside. Finite points.
  bool MeetsTriangle(const Point3& a, const Point3& b, const Point3& c) const;

 private:
  static constexpr int kMostPlanes = 5;
  double Above(int i, const Point3& p) const {
    const auto& n = planes_[i];
    return n[0] * p.x + n[1] * p.y + n[2] * p.z + n[3];
  }

  double planes_[kMostPlanes][4] = {};
  int count_ = 0;
};

}  // namespace host
