#pragma once

#include <map>
#include <vector>

#include "host/math/interval.h"
#include "sowfield/model/distribution.h"
#include "sowfield/sources/sourceframe.h"
#include "sowfield/sources/typemesh.h"

namespace sowfield {

/// What a type shows: vertices with the source's turn and pivot worked in, ready for a placement's
/// matrix, and faces.
struct Shape {
  std::vector<Point3> verts;
  host::Buffer<Face> faces;
  /// Whether both are the same bit for bit.
  bool IsSame(const Shape& other) const;
};

/// The shapes of one type: one at the build's time, and others where an animation offset shows the
/// source at times of its own.
class TypeShapes {
 public:
  TypeShapes() = default;
  TypeShapes(const Distribution& d, const TypeRef& type, int mode, TimeValue t);

  const Shape& Base() const { return base_; }
  /// Whether the source looks different at other times.
  bool Moves() const { return kind_ == kFromNode && !(valid_ == FOREVER); }
  const Shape& At(TimeValue t);
  Shape TakeBase() { return std::move(base_); }

 private:
  Shape FigureShape(int mode, const Box3& box) const;
  Shape ShapeOf(const TypeMesh& source) const;

  INode* node_ = nullptr;
  int kind_ = kFromNode;
  TimeValue time_ = 0;
  SourceFrame frame_;
  Interval valid_ = FOREVER;
  Shape base_;
  std::map<TimeValue, Shape> others_;
};

}  // namespace sowfield
