#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "studio/steps/stage.h"

namespace studio {

/// A point of three numbers.
Point3 PointOf(const Value& list);

/// The box of everything that the scene shows but Sowfield objects, so that a view of all of the
/// scene stays as it is while placements come and go; with them if there is nothing else.
Box3 SceneBox(Stage& stage);

/// The view that the fields "view" and "size" of a step tell. Fails for a camera that isn't there.
std::shared_ptr<ViewExp> MakeView(Stage& stage, const Args& args);

/// A position in a view, pixels.
struct Pixel {
  double x, y;
};

/// Mouse positions along a way, `spacing` pixels apart, its end included.
std::vector<IPoint2> EventsBySpacing(const std::vector<Pixel>& way, double spacing);
/// `count` mouse positions, at least 1, evenly along a way.
std::vector<IPoint2> EventsByCount(const std::vector<Pixel>& way, int count);

/// Height of the uppermost surface of a node over (x, y), world space, by a plain scan of its
/// faces; nothing if the node isn't there. Fails for a node without a sound mesh.
class Dropper {
 public:
  Dropper(Stage& stage, const Value& nodeName);
  std::optional<double> HeightAt(double x, double y) const;

 private:
  struct Triangle {
    double x[3], y[3], z[3];
  };
  std::vector<Triangle> triangles_;
};

/// The mouse events of a stroke step: positions in the view, all inside it.
std::vector<IPoint2> StrokeEvents(Stage& stage, const Args& args, const ViewExp& view);

}  // namespace studio
