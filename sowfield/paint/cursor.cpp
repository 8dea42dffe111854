#include "sowfield/paint/cursor.h"

#include <cmath>

#include "host/interface.h"
#include "host/math/quat.h"
#include "sowfield/model/units.h"
#include "sowfield/paint/painter.h"

namespace sowfield {
namespace {

constexpr float kPi = 3.1415927f;
// The stroke's direction is taken from this many entries before the end of the record.
constexpr int kDirectionSpan = 20;

}  // namespace

bool GroundPoint(const ViewExp& view, const IPoint2& mouse, Point3& point) {
  const Ray ray = view.MapScreenToWorldRay(float(mouse.x), float(mouse.y));
  const bool above = ray.p.z >= 0;
  if (above ? ray.dir.z >= 0 : ray.dir.z <= 0) return false;
  IPoint2 snapped;
  point = view.SnapPoint(mouse, snapped, nullptr, 1);
  return true;
}

// QuatToEuler keeps y within 90 degrees, so the direction never shows as its mirror image.
float LineBrushAngle(const Point3& direction, float snapDegrees) {
  float angles[3];
  QuatToEuler(Quat(ArbAxis(direction)), angles);
  float z = angles[2] + kPi;
  if (snapDegrees > 0) {
    float r = std::fmod(z * kDegrees, snapDegrees);
    if (r > snapDegrees * 0.5f) r = -(snapDegrees - r);
    z -= r * kRadians;
  }
  return z;
}

void Paint_Cursor::proc(Interface* ip) {
  IPainterInterface_V7* host = painter_.Host();
  ViewExp* view = ip->GetActiveViewExp();
  if (!host || !host->InPaintMode() || !view || !view->IsAlive()) return;

  const IPoint2 mouse = ip->GetMousePosition();
  const bool moved = !(mouse == lastMouse_);
  if (moved) {
    host->AddToStroke(mouse, false, false);
    lastMouse_ = mouse;
  }

  const int newest = host->GetStrokePointCount() - 1;
  if (newest < 0) return;
  const bool hit = host->GetStrokeHit(newest);
  Point3 current(0, 0, 0);
  if (hit) {
    current = host->GetStrokePointWorld(newest);
  } else if (!GroundPoint(*view, host->GetStrokeMouse(newest), current)) {
    return;
  }
  if (moved) painter_.UpdateTargetsAtCursor(*view, mouse, current);

  const Matrix3 normalMatrix =
      hit ? MatrixFromNormal(host->GetStrokeNormalWorld(newest)) : Matrix3();
  if (painter_.State().paintTool == kLineTool && !ip->GetKeys().ctrl && moved)
    UpdateLineDirection(*view, current, normalMatrix);
}

void Paint_Cursor::UpdateLineDirection(const ViewExp& view, const Point3& current,
                                       const Matrix3& normalMatrix) {
  IPainterInterface_V7* host = painter_.Host();
  const int count = host->GetStrokePointCount();
  const int index = count <= kDirectionSpan ? 0 : count - kDirectionSpan;
  IPoint2 snapped;
  const Point3 from = host->GetStrokeHit(index)
                          ? host->GetStrokePointWorld(index)
                          : view.SnapPoint(host->GetStrokeMouse(index), snapped, nullptr, 1);
  if (!(from == current)) lineDirection_ = current - from;
  lineDirection_ = VectorTransform(lineDirection_, Inverse(normalMatrix));

  Distribution& d = painter_.Dist();
  painter_.State().brushAngle =
      LineBrushAngle(lineDirection_, float(d.block->GetInt(Brush_Snap, d.curTime)));
}

}  // namespace sowfield
