#pragma once

#include "host/math/box3.h"
#include "host/math/tab.h"
#include "host/scene/node.h"
#include "sowfield/paint/boxtree.h"

class ViewExp;

namespace sowfield {

/// Whether Sowfield objects are surfaces for a tool: with `Paint_On_Self`, for the line tool and
/// the eraser, in the modes whose placements can be hit.
bool SowfieldObjectsAreTargets(bool paintOnSelf, int tool, int displayMode);

/// From the eye through a world point, to that direction times the largest float.
SightLine SightLineThrough(const Point3& eye, const Point3& point);

/// What a node is asked to be a target for.
struct TargetQuery {
  bool sowfieldObjects = false;  // they count as surfaces
  TimeValue t = 0;
  ViewExp* view = nullptr;
  SightLine line;
  Reach reach;
};
/// True if the node itself shows something that can be painted on, whose widened world box the line
/// meets. Previews aren't known here.
bool IsTarget(const TargetQuery& query, INode* node);

/// What a node shows, if it can be painted on, be it a Sowfield object; null for a hidden node.
/// `valid` is narrowed to the time for which that holds.
Object* PaintableObject(INode* node, TimeValue t, Interval* valid = nullptr);

/// True if the line between two points meets the box; `hit` is where. Points on a face's plane
/// don't count as beyond it, nor as inside.
bool CheckLineBox(const Point3& boxMin, const Point3& boxMax, const Point3& l1, const Point3& l2,
                  Point3& hit);
/// Where the line crosses a plane from which its ends have the signed distances d1 and d2; false if
/// both lie on one side or one lies on it.
bool LineDistanceHit(double d1, double d2, const Point3& l1, const Point3& l2, Point3& hit);

}  // namespace sowfield
