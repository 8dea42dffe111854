#pragma once

#include <functional>

#include "host/math/box3.h"
#include "host/math/tab.h"
#include "host/scene/node.h"

class ViewExp;

namespace sowfield {

/// Which nodes a stroke may paint on, besides the geometry test.
struct TargetRule {
  /// Sowfield objects count as surfaces.
  bool sowfieldObjects = false;
  /// Preview nodes: never targets.
  std::function<bool(const INode*)> isPreview;
};

/// Whether Sowfield objects are surfaces for a tool: with `Paint_On_Self`, for the line tool and
/// the eraser, in the modes whose placements can be hit.
bool SowfieldObjectsAreTargets(bool paintOnSelf, int tool, int displayMode);

/// The line of sight from `l1` towards `l2`, a far point in its direction, world space.
struct SightLine {
  Point3 l1, l2;
};
/// From the eye through a world point, to that direction times the largest float.
SightLine SightLineThrough(const Point3& eye, const Point3& point);

/// Adds to `found` the paintable nodes from `node` downward whose world box, scaled by 1.2 about
/// its centre, the line meets. Hidden nodes are passed over, their children are not. No duplicates.
void CollectTargetsForCursor(const TargetRule& rule, INode* node, TimeValue t, ViewExp* view,
                             const SightLine& line, Tab<INode*>& found);
/// The same with the box grown by `radius` on each side.
void CollectTargetsForStroke(const TargetRule& rule, INode* node, TimeValue t, ViewExp* view,
                             const SightLine& line, float radius, Tab<INode*>& found);

/// True if the line between two points meets the box; `hit` is where. Points on a face's plane
/// don't count as beyond it, nor as inside.
bool CheckLineBox(const Point3& boxMin, const Point3& boxMax, const Point3& l1, const Point3& l2,
                  Point3& hit);
/// Where the line crosses a plane from which its ends have the signed distances d1 and d2; false if
/// both lie on one side or one lies on it.
bool LineDistanceHit(double d1, double d2, const Point3& l1, const Point3& l2, Point3& hit);

}  // namespace sowfield
