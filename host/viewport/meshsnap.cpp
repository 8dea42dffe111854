#include <algorithm>
#include <cmath>

#include "host/scene/mesh.h"
#include "host/viewport/graphicswindow.h"
#include "host/viewport/snap.h"

namespace {

// The search of one mesh. Points come in its own space.
class Search {
 public:
  Search(const GraphicsWindow& gw, SnapInfo& best, const IPoint2& mouse, const Matrix3& tm)
      : projection_(gw.GetProjection()), best_(best), mouse_(mouse), tm_(tm) {
    projection_.ToView(tm, rows_);
  }

  void Vertex(const Point3& p) {
    double v[3], x = 0, y = 0;
    host::Through(rows_, p, v);
    if (projection_.ToPixel(v, x, y)) Offer(p, best_.vertPriority, x, y, -v[2]);
  }

  void Edge(Point3 a, Point3 b) {
    double va[3], vb[3], ax = 0, ay = 0, bx = 0, by = 0;
    host::Through(rows_, a, va);
    host::Through(rows_, b, vb);
    if (!projection_.parallel && !CutAtEye(a, va, b, vb)) return;
    if (!projection_.ToPixel(va, ax, ay) || !projection_.ToPixel(vb, bx, by)) return;

    // The nearest place in the window; along the edge itself depths pull it to one side.
    const double dx = bx - ax, dy = by - ay, square = dx * dx + dy * dy;
    const double along = square > 0 ? ((mouse_.x - ax) * dx + (mouse_.y - ay) * dy) / square : 0;
    const double f = std::clamp(along, 0.0, 1.0);
    const double da = projection_.parallel ? 1 : -va[2], db = projection_.parallel ? 1 : -vb[2];
    const double s = f * da / ((1 - f) * db + f * da);
    const Point3 at = a + (b - a) * float(s);
    Offer(at, best_.edgePriority, ax + f * dx, ay + f * dy, -(va[2] + (vb[2] - va[2]) * s));
  }

  bool found = false;

 private:
  // What lies behind the eye goes; false if that is all.
  bool CutAtEye(Point3& a, double (&va)[3], Point3& b, double (&vb)[3]) const {
    const double da = -va[2] - host::kNearDepth, db = -vb[2] - host::kNearDepth;
    if (!(da > 0) && !(db > 0)) return false;
    if (da > 0 && db > 0) return true;
    const Point3 cut = a + (b - a) * float(da / (da - db));
    (da > 0 ? b : a) = cut;
    for (int k = 0; k < 3; ++k) {
      const double v = va[k] + (vb[k] - va[k]) * (da / (da - db));
      (da > 0 ? vb : va)[k] = v;
    }
    return true;
  }

  void Offer(const Point3& p, int priority, double x, double y, double depth) {
    const double dist = std::hypot(x - mouse_.x, y - mouse_.y);
    if (!(dist <= best_.strength) || priority <= 0 || priority < best_.bestPriority) return;
    const bool same = priority == best_.bestPriority;
    if (same && (dist > best_.bestDist || (dist == best_.bestDist && depth >= best_.bestDepth)))
      return;
    best_.bestPriority = priority, best_.bestDist = dist, best_.bestDepth = depth;
    best_.bestWorld = p * tm_;
    found = true;
  }

  host::Projection projection_;
  SnapInfo& best_;
  IPoint2 mouse_;
  Matrix3 tm_;
  double rows_[4][3] = {};
};

}  // namespace

int Mesh::snap(GraphicsWindow* gw, SnapInfo* snap, const IPoint2* p, const Matrix3& tm) const {
  Search search(*gw, *snap, *p, tm);
  if (snap->vertPriority > 0)
    for (const Point3& v : verts)
      if (IsFinite(v)) search.Vertex(v);
  // An edge can't do better where vertices go before edges and one was found.
  const bool edges = snap->edgePriority > 0 && snap->edgePriority >= snap->bestPriority;
  for (size_t i = 0; edges && i < faces.size(); ++i) {
    const Face& f = faces[i];
    for (int e = 0; e < 3; ++e) {
      const std::uint32_t a = f.v[e], b = f.v[(e + 1) % 3];
      const bool shown = (f.edgeVisFlags() >> e & 1) && std::max(a, b) < verts.size();
      if (shown && IsFinite(verts[a]) && IsFinite(verts[b])) search.Edge(verts[a], verts[b]);
    }
  }
  return search.found;
}
