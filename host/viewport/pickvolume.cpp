#include "host/viewport/pickvolume.h"

#include <algorithm>
#include <cmath>

#include "host/viewport/graphicswindow.h"

namespace host {

PickVolume::PickVolume(const Projection& projection, const Matrix3& toWorld,
                       const HitRegion& region, double around) {
  double rows[4][3];
  projection.ToView(toWorld, rows);
  const auto across = [&](double x) {
    return projection.halfWidth * (2 * (x + 0.5) / projection.width - 1);
  };
  const auto up = [&](double y) {
    return projection.halfHeight * (1 - 2 * (y + 0.5) / projection.height);
  };
  // Inside where a * x + b * y + c * depth + d is 0 or more; at depth 1 the edges have their place.
  const auto add = [&](double a, double b, double c, double d) {
    double(&plane)[4] = planes_[count_++];
    for (int i = 0; i < 4; ++i) plane[i] = a * rows[i][0] + b * rows[i][1] - c * rows[i][2];
    plane[3] += d;
  };
  const auto edge = [&](double a, double b, double at) {
    projection.parallel ? add(a, b, 0, at) : add(a, b, at, 0);
  };
  edge(1, 0, -across(region.left - around));
  edge(-1, 0, across(region.right + around));
  edge(0, -1, up(region.top - around));
  edge(0, 1, -up(region.bottom + around));
  if (!projection.parallel) add(0, 0, 1, -kNearDepth);
}

bool PickVolume::MeetsSegment(const Point3& a, const Point3& b) const {
  double from = 0, to = 1;
  for (int i = 0; i < count_; ++i) {
    const double da = Above(i, a), db = Above(i, b);
    if (da < 0 && db < 0) return false;
    if (da < 0) from = std::max(from, da / (da - db));
    if (db < 0) to = std::min(to, da / (da - db));
  }
  return from <= to;
}

// Cuts the triangle by one plane after the other (Sutherland and Hodgman, "Reentrant Polygon
// Clipping", 1974).
bool PickVolume::MeetsTriangle(const Point3& a, const Point3& b, const Point3& c) const {
  // A point is kept as its distances from the planes: they change linearly along an edge.
  struct Corner {
    double above[kMostPlanes];
  };
  // Rounding may let a sliver cross a plane again and again: at worst a cut makes 4 corners of 3,
  // then 6, 9, 13 and 19.
  Corner polygon[19], cut[19];
  int n = 0;
  for (const Point3* p : {&a, &b, &c}) {
    for (int i = 0; i < count_; ++i) polygon[n].above[i] = Above(i, *p);
    ++n;
  }
  for (int i = 0; i < count_; ++i)
    if (polygon[0].above[i] < 0 && polygon[1].above[i] < 0 && polygon[2].above[i] < 0) return false;

  for (int i = 0; i < count_ && n > 0; ++i) {
    int kept = 0;
    for (int k = 0; k < n; ++k) {
      const Corner &at = polygon[k], &next = polygon[(k + 1) % n];
      const bool in = at.above[i] >= 0, nextIn = next.above[i] >= 0;
      if (in) cut[kept++] = at;
      if (in == nextIn) continue;
      const double f = at.above[i] / (at.above[i] - next.above[i]);
      for (int j = 0; j < count_; ++j)
        cut[kept].above[j] = at.above[j] + f * (next.above[j] - at.above[j]);
      cut[kept++].above[i] = 0;
    }
    n = kept;
    std::copy_n(cut, n, polygon);
  }
  return n > 0;
}

}  // namespace host
