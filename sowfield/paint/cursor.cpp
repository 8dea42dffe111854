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
  Point3 current(0, 0, 0);
  bool found = PointOfRecord(*view, newest, current);
  // The record is cast against the targets of before. A surface that has just come under the
  // pointer must count for the entries that led to it, or the first placements would look from the
  // ground below it, towards the eye; and one above the horizon, where no ground lies behind, must
  // count at all.
  if (moved && painter_.UpdateTargetsAtCursor(*view, mouse, found ? &current : nullptr)) {
    host->UpdateMeshes(true);
    found = PointOfRecord(*view, newest, current);
  }
  if (!found) return;

  const Matrix3 normalMatrix =
      host->GetStrokeHit(newest) ? MatrixFromNormal(host->GetStrokeNormalWorld(newest)) : Matrix3();
  ChangeSize(ip->GetKeys());
  if (painter_.State().paintTool == kLineTool && !ip->GetKeys().ctrl && moved)
    UpdateLineDirection(*view, current, normalMatrix);
  Draw(*view->getGW(), current, normalMatrix);
}

// Where an entry of the record lies, on a surface or the ground; false where it meets neither.
bool Paint_Cursor::PointOfRecord(const ViewExp& view, int entry, Point3& point) const {
  const IPainterInterface_V7* host = painter_.Host();
  if (!host->GetStrokeHit(entry)) return GroundPoint(view, host->GetStrokeMouse(entry), point);
  point = host->GetStrokePointWorld(entry);
  return true;
}

void Paint_Cursor::ChangeSize(const host::Modifiers& keys) {
  if (!keys.ctrl || (!keys.alt && !keys.shift)) return;
  Distribution& d = painter_.Dist();
  const Param id = RadiusOf(painter_.State().paintTool);
  const float r = d.block->GetFloat(id, d.curTime);
  const float changed = keys.alt ? r - r * kShrink : r * kGrowth;
  const auto most = float(FindParam(id)->panel.high);
  // A setting of the tool, not a part of what an eraser's stroke removes: its step may be open.
  theHold->Suspend();
  d.block->SetValue(id, d.curTime, std::min(std::max(changed, d.brushMinimum), most));
  theHold->Resume();
  d.Tell(Event::BrushSizeChanged);
}

void Paint_Cursor::UpdateLineDirection(const ViewExp& view, const Point3& current,
                                       const Matrix3& normalMatrix) {
  IPainterInterface_V7* host = painter_.Host();
  const int count = host->GetStrokePointCount();
  int index = count <= kDirectionSpan ? 0 : count - kDirectionSpan;
  // Entries before the sky tell no place: the next one counts.
  Point3 from = current;
  while (index < count && !PointOfRecord(view, index, from)) ++index;
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
