#include "host/scene/shape.h"

#include "host/core/builtinclass.h"

void SplineShape::SetShape(BezierShape shape) {
  shape_ = std::move(shape);
  NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE);
}

void SplineShape::GetLocalBoundBox(TimeValue, INode*, ViewExp*, Box3& box) {
  box = {};
  for (const Spline3D& spline : shape_.splines)
    for (const Point3& knot : spline.Knots()) box += knot;
}

ReferenceTarget* SplineShape::Clone(RemapDir&) {
  auto* copy = new SplineShape;
  copy->SetShape(shape_);
  return copy;
}

namespace host {

void RegisterShapeClass(ClassRegistry& classes) {
  static BuiltinClass<SplineShape> shape(SHAPE_CLASS_ID, splineShapeClassID, L"Spline");
  classes.Add(&shape);
}

}  // namespace host
