#pragma once

#include "host/core/reference.h"
#include "host/math/point3.h"

class INode;

inline constexpr Class_ID PAINTERINTERFACE_CLASS_ID{0x2f2ef7e9, 0x78ffe181};
inline constexpr std::uint32_t PAINTERINTERFACE_V7 = 0x78ffe182;
inline constexpr std::uint32_t PAINTERCANVASINTERFACE_V5 = 0x29ff7ac9;

/// One event of a stroke.
struct PainterEvent {
  bool hit = false;
  IPoint2 mouse;
  Point3 worldPoint{0, 0, 0};   // unset when nothing was hit
  Point3 worldNormal{0, 0, 1};  // unit length, towards the viewer's side of the surface
  float radius = 0;             // the brush radius at the time of the event
  INode* node = nullptr;        // under the mouse; null off the surfaces
};

/// Who gets the strokes of a session.
class IPainterCanvasInterface_V5 {
 public:
  virtual ~IPainterCanvasInterface_V5() = default;
  virtual bool StartStroke() = 0;
  /// False when the event came to nothing.
  virtual bool PaintStroke(const PainterEvent& event) = 0;
  /// The form that gets all points of a stroke at once.
  virtual bool EndStroke(int count, const PainterEvent* events) = 0;
  virtual bool EndStroke() = 0;
  virtual bool CancelStroke() = 0;
  virtual bool SystemEndPaintSession() = 0;
  virtual void PainterDisplay() = 0;
};

class IPainterRightClickHandler {
 public:
  virtual ~IPainterRightClickHandler() = default;
  virtual void RightClick() = 0;
};

/// A surface hit. The normal is the unit face normal, turned to the side that the ray came from.
struct PainterHit {
  bool hit = false;
  Point3 worldPoint{0, 0, 0};
  Point3 worldNormal{0, 0, 1};
  INode* node = nullptr;
};

/// The host's paint system: it owns the mouse during a session, casts rays against the target
/// nodes and keeps the record of the pointer's way.
class IPainterInterface_V7 {
 public:
  virtual ~IPainterInterface_V7() = default;

  virtual void InitializeCallback(ReferenceTarget* canvas) = 0;
  /// No brush is drawn by the host, and events off the surfaces are delivered.
  virtual void SetOptions(bool drawBrush, bool eventsOffSurface) = 0;
  /// Clears the record, starts the random source at its beginning and takes the pointer's present
  /// position as the record's first entry. False without an active view or when one runs already.
  virtual bool StartPaintSession(IPainterRightClickHandler* handler) = 0;
  virtual bool InPaintMode() const = 0;
  /// The session is over before the canvas hears SystemEndPaintSession.
  virtual void EndPaintSession() = 0;

  /// Replaces the nodes that rays are cast against; an empty list is legal. A node that leaves the
  /// scene or is destroyed is no target any more.
  virtual void InitializeNodes(int flags, int count, INode* const* nodes) = 0;
  /// Takes the meshes of the targets anew where they changed. With point data the newest entries of
  /// the record that met nothing are cast again, back to the last one that met something.
  virtual void UpdateMeshes(bool pointData) = 0;
  virtual void SetBrushRadius(float radius) = 0;
  virtual float GetBrushRadius() const = 0;

  /// A random surface hit inside the brush at a point of the record, -1 being the current one:
  /// uniform over the disc of the present brush radius round that point, perpendicular to its
  /// normal, cast along the reversed normal from one radius above the disc, nearest hit within two
  /// radii. No hit, and nothing drawn, at a point off the surfaces.
  virtual PainterHit RandomHit(int pointIndex) = 0;

  /// Casts a ray at a position of the active view and appends it to the record.
  virtual void AddToStroke(const IPoint2& mouse, bool pointData, bool redraw) = 0;
  // The record, oldest first, at most its newest 4096 entries. Outside of it nothing is hit.
  virtual int GetStrokePointCount() const = 0;
  virtual bool GetStrokeHit(int i) const = 0;
  virtual Point3 GetStrokePointWorld(int i) const = 0;
  virtual Point3 GetStrokeNormalWorld(int i) const = 0;
  virtual IPoint2 GetStrokeMouse(int i) const = 0;
};
