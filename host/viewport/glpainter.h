#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "host/math/color.h"
#include "host/math/matrix3.h"

class GraphicsWindow;

namespace host {

class GlMesh;
class PictureStore;

/// How view space goes to the picture. View space has its origin in the eye (in the middle of the
/// scene's depth in a parallel view), X right, Y up and Z backward.
struct Lens {
  bool parallel = false;
  /// Half the picture's width and height in view space, at depth 1 in a perspective.
  double halfWidth = 1, halfHeight = 1;
  /// Parallel: all of the scene has |z| below this.
  double reach = 1;
};

/// The grid's plane through the world's origin.
struct GridPlane {
  Point3 u, v, normal;                    // view space, unit length
  double eyeU = 0, eyeV = 0, height = 0;  // of the view's origin over the plane, world units
  double spacing = 1;
  double fade = 100;  // distance from the view's origin at which lines are gone
};

/// A mesh in view space.
struct PaintedMesh {
  const GlMesh* mesh = nullptr;
  double toView[4][3] = {};  // rows as in Matrix3
  /// Colour of a face by its material id modulo the number of colours, at least one.
  std::vector<Color> colors;
};

/// Rows from the space of a window's batch to view space.
struct BatchRows {
  double toView[4][3] = {};
  bool shown = false;  // false for a batch whose matrix isn't finite
};

/// Draws one picture into the current OpenGL context.
class GlPainter {
 public:
  /// `up` is the world's +Z in view space. A failure is kept and reported by Finish.
  GlPainter(PictureStore& store, int width, int height, const Lens& lens, const Point3& up);
  GlPainter(const GlPainter&) = delete;
  GlPainter& operator=(const GlPainter&) = delete;
  ~GlPainter();

  /// Once, with all meshes.
  void Draw(const std::vector<PaintedMesh>& meshes);
  /// The dots, lines and texts that a window has recorded, with rows for each of its batches. They
  /// are seen as two pixels nearer than they are, so that they show on a surface.
  void DrawWindow(const GraphicsWindow& window, const std::vector<BatchRows>& batches);
  /// After all else: what lies behind the plane shows its lines.
  void DrawGrid(const GridPlane& grid);
  /// Rows from the top. False with `error` set if anything failed.
  bool Finish(std::vector<std::uint8_t>& rgb, std::string& error);

 private:
  struct State;
  std::unique_ptr<State> s_;
};

}  // namespace host
