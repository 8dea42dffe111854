#include "host/scene/object.h"

#include "host/scene/node.h"

void Object::GetWorldBoundBox(TimeValue t, INode* node, ViewExp* view, Box3& box) {
  Box3 local;
  GetLocalBoundBox(t, node, view, local);
  box = node ? TransformCorners(local, node->GetObjectTM(t)) : local;
}

Box3 TransformCorners(const Box3& box, const Matrix3& tm) {
  Box3 out;
  if (box.IsEmpty()) return out;
  for (int i = 0; i < 8; ++i) {
    const Point3 corner(i & 1 ? box.pmax.x : box.pmin.x, i & 2 ? box.pmax.y : box.pmin.y,
                        i & 4 ? box.pmax.z : box.pmin.z);
    out += corner * tm;
  }
  return out;
}
