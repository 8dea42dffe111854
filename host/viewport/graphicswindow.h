#pragma once

#include <cstdint>
#include <vector>

#include "host/math/buffer.h"
#include "host/math/color.h"
#include "host/math/matrix3.h"
#include "host/math/wstr.h"
#include "host/viewport/pickvolume.h"
#include "host/viewport/projection.h"

enum ColorKind { LINE_COLOR, TEXT_COLOR };
enum MarkerType { DOT_MRKR = 13 };

/// Limits of drawing. Without GW_Z_BUFFER nothing hides what is drawn.
inline constexpr unsigned GW_ILLUM = 2, GW_Z_BUFFER = 0x20, GW_PICK = 0x1000;

/// Ways of picking: at a point, or within a rectangle of pixels.
enum HitType : int { HITTYPE_POINT, HITTYPE_RECT };
inline constexpr unsigned HIT_ABORTONHIT = 8;

/// Where a pick looks: pixel positions in the window, pixel middles at whole numbers. With
/// `crossing` whatever touches the rectangle is hit, without it only what lies inside as a whole.
struct HitRegion {
  HitType type = HITTYPE_POINT;
  bool crossing = true;
  double left = 0, top = 0, right = 0, bottom = 0;
};
/// A point takes `p[0]` with pickSize pixels around it, and is always crossing. A rectangle takes
/// the pixels `p[0]` and `p[1]`, any two corners, and all between them.
HitRegion MakeHitRegion(HitType type, bool crossing, int pickSize, const IPoint2* p);

namespace host {
/// Sizes in pixels of what the window draws and picks.
inline constexpr double kDotSize = 3, kLineWidth = 1.5;
}  // namespace host

/// Draws markers, lines and text into a view, or in pick state tests them against a hit region.
///
/// Drawing records what comes, in the space of the transform in force, until the view's redraw
/// shows it; memory is kept from redraw to redraw. In pick state nothing is recorded.
class GraphicsWindow {
 public:
  /// What was drawn under one transform and hidden by nothing or not: ranges of the lists below, to
  /// where the next one begins.
  struct Batch {
    Matrix3 toWorld;
    size_t firstDot = 0, firstLine = 0, firstText = 0;
    bool overAll = false;
  };
  struct Vertex {
    Point3 at;
    std::uint32_t rgba;  // the red byte first in memory
  };
  struct Text {
    Point3 at;
    std::uint32_t rgba;
    WStr text;
  };

  GraphicsWindow() { Clear(); }

  /// Points come in this space from here on; world is the identity.
  void setTransform(const Matrix3& toWorld);
  void setColor(ColorKind kind, float r, float g, float b);
  void setColor(ColorKind kind, const Color& c) { setColor(kind, c.r, c.g, c.b); }

  void marker(const Point3& at, MarkerType) {
    if (picking_) {
      PickDot(at);
    } else {
      dots_.push_back({at, line_});
    }
  }
  /// Many at once, each in a colour of its own as PackedColor gives it.
  void markers(size_t n, const Point3* at, const std::uint32_t* rgba, MarkerType);
  static std::uint32_t PackedColor(const Color& c);
  /// A line through n points; closed, back to the first one.
  void polyline(int n, const Point3* points, bool closed);
  /// One line of text that begins at the point and stands on it. Characters beyond ASCII show as
  /// question marks.
  void text(const Point3& at, const WStr& text);

  void setHitRegion(const HitRegion& region);
  void clearHitCode() { hit_ = false; }
  bool checkHitCode() const { return hit_; }
  unsigned getRndLimits() const { return limits_; }
  void setRndLimits(unsigned limits);

  // For the view and its redraw.
  void SetProjection(const host::Projection& projection);
  const host::Projection& GetProjection() const { return projection_; }
  const Matrix3& Transform() const { return transform_; }
  /// Forgets what was recorded; the transform becomes the world's, colours black.
  void Clear();
  const host::Buffer<Vertex>& Dots() const { return dots_; }
  const host::Buffer<Vertex>& Lines() const { return lines_; }
  const std::vector<Text>& Texts() const { return texts_; }
  const std::vector<Batch>& Batches() const { return batches_; }

 private:
  static constexpr std::uint32_t kBlack = 0xFF000000;
  void BeginBatch();
  void PickDot(const Point3& at);
  void PickSegment(const Point3& a, const Point3& b);
  void PickText(const Point3& at, const WStr& text);
  void MakeVolumes();

  host::Buffer<Vertex> dots_;
  host::Buffer<Vertex> lines_;  // two a segment
  std::vector<Text> texts_;
  std::vector<Batch> batches_;
  Matrix3 transform_;
  host::Projection projection_;
  HitRegion region_;
  host::PickVolume dotVolume_, lineVolume_;  // in the space of the transform, unless stale
  bool volumesStale_ = true;
  std::uint32_t line_ = kBlack, text_ = kBlack;
  unsigned limits_ = GW_ILLUM | GW_Z_BUFFER;
  bool picking_ = false, hit_ = false;
};
