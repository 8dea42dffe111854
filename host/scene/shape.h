#pragma once

#include <span>
#include <vector>

#include "host/scene/object.h"

inline constexpr Class_ID splineShapeClassID{10, 0};

/// A point that a spline runs through.
class SplineKnot {
 public:
  explicit SplineKnot(const Point3& at) : at_(at) {}
  const Point3& Knot() const { return at_; }

 private:
  Point3 at_;
};

/// A line through knots, in object space. It runs straight from knot to knot, and if closed from
/// the last back to the first. It may have no knots; they may be any numbers.
class Spline3D {
 public:
  Spline3D() = default;
  Spline3D(std::vector<Point3> knots, bool closed) : knots_(std::move(knots)), closed_(closed) {}

  bool Closed() const { return closed_; }
  int KnotCount() const { return int(knots_.size()); }
  /// `i` from 0 to KnotCount() - 1.
  SplineKnot GetKnot(int i) const { return SplineKnot(knots_[size_t(i)]); }
  std::span<const Point3> Knots() const { return knots_; }

 private:
  std::vector<Point3> knots_;
  bool closed_ = false;
};

/// Splines that make one shape; there may be none.
class BezierShape {
 public:
  int SplineCount() const { return int(splines.size()); }
  /// `i` from 0 to SplineCount() - 1.
  const Spline3D& GetSpline(int i) const { return splines[size_t(i)]; }

  std::vector<Spline3D> splines;
};

/// A shape as an object. It shows as lines in the wire colour of its node, and gives no mesh.
class SplineShape : public Object {
 public:
  SClass_ID SuperClassID() const override { return SHAPE_CLASS_ID; }
  Class_ID ClassID() const override { return splineShapeClassID; }
  void GetClassName(WStr& name) const override { name = L"Spline"; }
  const wchar_t* GetObjectName() override { return L"Spline"; }

  const BezierShape& GetShape() const { return shape_; }
  /// Not recorded for undo.
  void SetShape(BezierShape shape);

  ObjectState Eval(TimeValue) override { return ObjectState(this); }
  bool CanConvertToType(Class_ID id) override { return id == splineShapeClassID; }
  Object* ConvertToType(TimeValue, Class_ID id) override {
    return id == splineShapeClassID ? this : nullptr;
  }
  /// The box of all knots.
  void GetLocalBoundBox(TimeValue t, INode* node, ViewExp* view, Box3& box) override;
  unsigned GetObjectDisplayRequirement() const override { return 1; }
  /// Leaves out lines to knots that aren't finite.
  int Display(TimeValue t, INode* node, ViewExp* view, int flags) override;
  /// Tests the lines. One to a knot that isn't finite is never hit, and lies in no rectangle as a
  /// whole.
  int HitTest(TimeValue t, INode* node, HitType type, int crossing, int flags, IPoint2* p,
              ViewExp* view) override;
  ReferenceTarget* Clone(RemapDir& remap) override;

 private:
  BezierShape shape_;
};

namespace host {
class ClassRegistry;
void RegisterShapeClass(ClassRegistry& classes);
}  // namespace host
