#include "sowfield/paint/cursor.h"

#include <algorithm>
#include <cmath>

#include "host/interface.h"
#include "host/math/quat.h"
#include "host/viewport/graphicswindow.h"
#include "sowfield/model/units.h"
#include "sowfield/paint/cursorshapes.h"
#include "sowfield/paint/painter.h"

namespace sowfield {
namespace {

constexpr float kPi = 3.1415927f;
// The stroke's direction is taken from this many entries before the end of the record.
constexpr int kDirectionSpan = 20;
// What a redraw takes off the radius, as a share, or multiplies it by, while the keys are held.
constexpr float kShrink = 0.02f, kGrowth = 1.02f;

Param RadiusOf(int tool) { return tool == kLineTool ? Brush_LineSize : Brush_Size; }

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
  ChangeSize(ip->GetKeys());
  if (painter_.State().paintTool == kLineTool && !ip->GetKeys().ctrl && moved)
    UpdateLineDirection(*view, current, normalMatrix);
  Draw(*view->getGW(), current, normalMatrix);
}

void Paint_Cursor::ChangeSize(const host::Modifiers& keys) {
  if (!keys.ctrl || (!keys.alt && !keys.shift)) return;
  Distribution& d = painter_.Dist();
  const Param id = RadiusOf(painter_.State().paintTool);
  const float r = d.block->GetFloat(id, d.curTime);
  const float changed = keys.alt ? r - r * kShrink : r * kGrowth;
  const auto most = float(FindParam(id)->panel.high);
  d.block->SetValue(id, d.curTime, std::min(std::max(changed, d.brushMinimum), most));
  d.Tell(Event::BrushSizeChanged);
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

void Paint_Cursor::Draw(GraphicsWindow& gw, const Point3& current,
                        const Matrix3& normalMatrix) const {
  const int tool = painter_.State().paintTool;
  Matrix3 brush;
  if (tool == kLineTool) brush.RotateZ(painter_.State().brushAngle);
  brush = brush * normalMatrix;
  brush.SetTrans(current);
  gw.setTransform(brush);
  gw.setColor(LINE_COLOR, 0.85f, 0.5f, 0);
  // The shapes are flat: curved ground would cover part of them.
  const unsigned limits = gw.getRndLimits();
  gw.setRndLimits(limits & ~GW_Z_BUFFER);

  const Distribution& d = painter_.Dist();
  const float r = d.block->GetFloat(RadiusOf(tool), d.curTime);
  for (const CursorLine& line : CursorLines(tool)) {
    Point3 points[kMostCursorPoints];
    std::transform(line.points.begin(), line.points.end(), points,
                   [&](const Point3& p) { return p * r; });
    gw.polyline(int(line.points.size()), points, line.closed);
  }
  gw.setRndLimits(limits);
}

}  // namespace sowfield
