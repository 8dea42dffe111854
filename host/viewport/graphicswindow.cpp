#include "host/viewport/graphicswindow.h"

#include <algorithm>

#include "host/viewport/windowtext.h"

HitRegion MakeHitRegion(HitType type, bool crossing, int pickSize, const IPoint2* p) {
  HitRegion region;
  region.type = type;
  if (type == HITTYPE_POINT) {
    region.left = p[0].x - pickSize, region.right = p[0].x + pickSize;
    region.top = p[0].y - pickSize, region.bottom = p[0].y + pickSize;
    return region;
  }
  region.crossing = crossing;
  // To the outer edges of the pixels.
  region.left = std::min(p[0].x, p[1].x) - 0.5, region.right = std::max(p[0].x, p[1].x) + 0.5;
  region.top = std::min(p[0].y, p[1].y) - 0.5, region.bottom = std::max(p[0].y, p[1].y) + 0.5;
  return region;
}

void GraphicsWindow::BeginBatch() {
  const bool over = !(limits_ & GW_Z_BUFFER);
  const Batch batch{transform_, dots_.size(), lines_.size(), texts_.size(), over};
  if (!batches_.empty()) {
    const Batch& last = batches_.back();
    if (last.toWorld == transform_ && last.overAll == over) return;
    if (last.firstDot == batch.firstDot && last.firstLine == batch.firstLine &&
        last.firstText == batch.firstText)
      batches_.pop_back();
  }
  batches_.push_back(batch);
}

void GraphicsWindow::Clear() {
  dots_.clear(), lines_.clear(), texts_.clear(), batches_.clear();
  line_ = text_ = kBlack;
  transform_ = Matrix3();
  volumesStale_ = true;
  BeginBatch();
}

void GraphicsWindow::setTransform(const Matrix3& toWorld) {
  transform_ = toWorld;
  volumesStale_ = true;
  if (!picking_) BeginBatch();
}

std::uint32_t GraphicsWindow::PackedColor(const Color& c) {
  const auto byte = [](float v) {
    return std::uint32_t(std::clamp(v, 0.0f, 1.0f) * 255.0f + 0.5f);
  };
  return byte(c.r) | byte(c.g) << 8 | byte(c.b) << 16 | kBlack;
}

void GraphicsWindow::setColor(ColorKind kind, float r, float g, float b) {
  (kind == LINE_COLOR ? line_ : text_) = PackedColor({r, g, b});
}

void GraphicsWindow::markers(size_t n, const Point3* at, const std::uint32_t* rgba, MarkerType) {
  if (picking_) {
    for (size_t i = 0; i < n; ++i) PickDot(at[i]);
    return;
  }
  const size_t first = dots_.size();
  dots_.resize(first + n);
  Vertex* out = dots_.data() + first;
  for (size_t i = 0; i < n; ++i) out[i] = {at[i], rgba[i]};
}

void GraphicsWindow::setHitRegion(const HitRegion& region) {
  region_ = region;
  volumesStale_ = true;
}

void GraphicsWindow::setRndLimits(unsigned limits) {
  limits_ = limits;
  picking_ = (limits & GW_PICK) != 0;
  // A pick may have left another transform.
  if (!picking_) BeginBatch();
}

void GraphicsWindow::SetProjection(const host::Projection& projection) {
  projection_ = projection;
  volumesStale_ = true;
}

void GraphicsWindow::polyline(int n, const Point3* points, bool closed) {
  const int segments = closed && n > 2 ? n : n - 1;
  for (int i = 0; i < segments; ++i) {
    const Point3 &a = points[i], &b = points[i + 1 < n ? i + 1 : 0];
    if (!picking_) {
      lines_.push_back({a, line_});
      lines_.push_back({b, line_});
    } else if (region_.crossing) {
      PickSegment(a, b);
    }
  }
  if (!picking_ || region_.crossing || segments < 1) return;
  MakeVolumes();
  hit_ = hit_ ||
         std::all_of(points, points + n, [&](const Point3& p) { return lineVolume_.Contains(p); });
}

void GraphicsWindow::text(const Point3& at, const WStr& text) {
  if (picking_) {
    PickText(at, text);
  } else {
    texts_.push_back({at, text_, text});
  }
}

void GraphicsWindow::MakeVolumes() {
  if (!volumesStale_) return;
  volumesStale_ = false;
  // What lies inside as a whole does so with its outer edge.
  const double side = region_.crossing ? 0.5 : -0.5;
  dotVolume_ = {projection_, transform_, region_, side * host::kDotSize};
  lineVolume_ = {projection_, transform_, region_, side * host::kLineWidth};
}

void GraphicsWindow::PickDot(const Point3& at) {
  if (hit_) return;
  MakeVolumes();
  hit_ = dotVolume_.Contains(at);
}

void GraphicsWindow::PickSegment(const Point3& a, const Point3& b) {
  if (hit_ || !IsFinite(a) || !IsFinite(b)) return;
  MakeVolumes();
  hit_ = lineVolume_.MeetsSegment(a, b);
}

void GraphicsWindow::PickText(const Point3& at, const WStr& text) {
  double rows[4][3], v[3], x = 0, y = 0;
  projection_.ToView(transform_, rows);
  host::Through(rows, at, v);
  if (hit_ || text.empty() || !projection_.ToPixel(v, x, y)) return;
  const double right = x + host::TextWidth(text), top = y - host::kTextHeight;
  if (region_.crossing) {
    hit_ = x <= region_.right && right >= region_.left && top <= region_.bottom && y >= region_.top;
  } else {
    hit_ = x >= region_.left && right <= region_.right && top >= region_.top && y <= region_.bottom;
  }
}
