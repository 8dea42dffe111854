#pragma once

#include <climits>

#include "host/math/matrix3.h"
#include "host/viewport/viewports.h"

namespace sowfield {

class SowfieldPainter;

/// Follows the mouse in each redraw while paint mode runs: adds the pointer's way to the stroke
/// record, keeps the targets under it current, works out the direction of the line brush, changes
/// the brush's size while its keys are held, and draws the brush onto the surface under the mouse.
/// Where the pointer meets neither a surface nor the ground there is no brush, and nothing changes.
class Paint_Cursor : public RedrawViewsCallback {
 public:
  explicit Paint_Cursor(SowfieldPainter& painter) : painter_(painter) {}
  void proc(Interface* ip) override;
  /// Makes the next redraw count as moved: a new session begins without targets.
  void Restart() { lastMouse_ = {INT_MIN, INT_MIN}; }

 private:
  bool PointOfRecord(const ViewExp& view, int entry, Point3& point) const;
  void ChangeSize(const host::Modifiers& keys);
  void UpdateLineDirection(const ViewExp& view, const Point3& current, const Matrix3& normalMatrix);
  void Draw(GraphicsWindow& gw, const Point3& current, const Matrix3& normalMatrix) const;

  SowfieldPainter& painter_;
  IPoint2 lastMouse_{INT_MIN, INT_MIN};  // pixels of the active view
  Point3 lineDirection_{0, 0, 0};        // in the surface's frame
};

/// The ground point under the mouse of a view, for a pointer that hits no surface; false where the
/// view ray doesn't reach the plane Z = 0.
bool GroundPoint(const ViewExp& view, const IPoint2& mouse, Point3& point);

/// Angle of the line brush, radians, for a stroke direction in the surface's frame, turned to the
/// nearest multiple of `snapDegrees` if that is above 0. The brush's +Y follows the direction.
float LineBrushAngle(const Point3& direction, float snapDegrees);

}  // namespace sowfield
