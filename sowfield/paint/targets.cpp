#include "sowfield/paint/targets.h"

#include <limits>

#include "sowfield/model/classids.h"
#include "sowfield/paint/paintstate.h"

namespace sowfield {

bool SowfieldObjectsAreTargets(bool paintOnSelf, int tool, int displayMode) {
  if (!paintOnSelf || tool == kMultiTool) return false;
  return displayMode == 3 || displayMode == 6 || (tool == kEraseTool && displayMode >= 3);
}

SightLine SightLineThrough(const Point3& eye, const Point3& point) {
  return {eye, Normalize(point - eye) * std::numeric_limits<float>::max()};
}

Object* PaintableObject(INode* node, TimeValue t, Interval* valid) {
  if (node->IsHidden()) return nullptr;
  const ObjectState state = node->EvalWorldState(t, true);
  Object* object = state.obj;
  if (!object) return nullptr;
  if (valid) *valid = Overlap(*valid, state.valid);
  if (object->SuperClassID() != GEOMOBJECT_CLASS_ID) return nullptr;
  const Class_ID id = object->ClassID();
  if (id == kMoksetProxyClassID || id == kForeignClassA || id == kForeignClassB) return nullptr;
  const bool converts =
      object->CanConvertToType(triObjectClassID) && object->CanConvertToType(polyObjectClassID);
  return converts ? object : nullptr;
}

bool IsTarget(const TargetQuery& query, INode* node) {
  Object* object = PaintableObject(node, query.t);
  if (!object || (object->ClassID() == kSowfieldClassID && !query.sowfieldObjects)) return false;
  Box3 box;
  object->GetWorldBoundBox(query.t, node, query.view, box);
  query.reach.Widen(box);
  Point3 hit;
  return !box.IsEmpty() && CheckLineBox(box.Min(), box.Max(), query.line.l1, query.line.l2, hit);
}

bool LineDistanceHit(double d1, double d2, const Point3& l1, const Point3& l2, Point3& hit) {
  if (d1 * d2 >= 0.0 || d1 == d2) return false;
  // In double: the far end of a sight line lies at the end of the float range.
  const double f = -d1 / (d2 - d1);
  hit = {float(l1.x + (double(l2.x) - l1.x) * f), float(l1.y + (double(l2.y) - l1.y) * f),
         float(l1.z + (double(l2.z) - l1.z) * f)};
  return true;
}

bool CheckLineBox(const Point3& boxMin, const Point3& boxMax, const Point3& l1, const Point3& l2,
                  Point3& hit) {
  bool inside = true;
  for (int i = 0; i < 3; ++i) {
    if (l1[i] < boxMin[i] && l2[i] < boxMin[i]) return false;
    if (l1[i] > boxMax[i] && l2[i] > boxMax[i]) return false;
    inside = inside && l1[i] > boxMin[i] && l1[i] < boxMax[i];
  }
  if (inside) {
    hit = l1;
    return true;
  }
  for (const Point3* face : {&boxMin, &boxMax}) {
    for (int i = 0; i < 3; ++i) {
      const double plane = (*face)[i];
      if (!LineDistanceHit(l1[i] - plane, l2[i] - plane, l1, l2, hit)) continue;
      const int j = (i + 1) % 3, k = (i + 2) % 3;
      if (hit[j] > boxMin[j] && hit[j] < boxMax[j] && hit[k] > boxMin[k] && hit[k] < boxMax[k])
        return true;
    }
  }
  return false;
}

}  // namespace sowfield
