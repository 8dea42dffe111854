#pragma once

#include "host/math/matrix3.h"
#include "host/math/ray.h"
#include "host/scene/node.h"
#include "host/viewport/graphicswindow.h"

/// A view onto the scene, with a window of its own size in pixels. Pixel (x, y) counts from the
/// upper left corner and is looked through at its middle.
class ViewExp {
 public:
  enum class Kind { Perspective, Orthographic, Camera };

  /// A perspective view from `eye` towards `target`, +Z up (+Y up when looking straight up or
  /// down). `fov` is horizontal, radians, between 0 and pi.
  static ViewExp Perspective(const Point3& eye, const Point3& target, float fov, int width,
                             int height);
  /// A parallel view along the direction from `eye` to `target`; `span` is the world width shown.
  static ViewExp Orthographic(const Point3& eye, const Point3& target, float span, int width,
                              int height);
  /// The view of a camera node, followed as the node moves. Dead once the node has left the scene.
  static ViewExp FromCamera(INode* camera, int width, int height);

  Kind GetKind() const { return kind_; }
  bool IsAlive() const;
  int Width() const { return width_; }
  int Height() const { return height_; }
  /// Null in a view that isn't a camera's.
  INode* GetViewCamera() const { return camera_.get(); }

  /// View to world: rows are the view's right, up and backward axes and the eye.
  Matrix3 ViewToWorld() const;
  /// Horizontal field of view in radians; 0 in an orthographic view.
  float Fov() const;
  /// World width shown by an orthographic view; 0 in the others.
  float Span() const { return kind_ == Kind::Orthographic ? span_ : 0.0f; }

  /// How the view stands and sees at this moment.
  host::Projection GetProjection() const;
  /// The view's window, looking as the view does now. Never null.
  GraphicsWindow* getGW();

  /// The half line through a point of the window. In an orthographic view it starts 1,000 times the
  /// width shown behind the eye's plane, 10,000 units at least.
  Ray MapScreenToWorldRay(float x, float y) const;
  /// The pixel position of a world point, pixel middles at whole numbers; false behind the eye.
  bool ProjectToScreen(const Point3& world, double& x, double& y) const;

  /// The point on the construction grid under the mouse, world space. The grid lies in the world's
  /// XY plane; in an orthographic view that sees that plane from its edge, in the world plane that
  /// it faces most. A ray that misses the plane gives the grid's point below or above the ray's
  /// position at 10,000 units. There is no plane matrix, and flags change nothing here: the grid
  /// doesn't snap.
  Point3 SnapPoint(const IPoint2& mouse, IPoint2& snapped, const Matrix3* plane = nullptr,
                   int flags = 0) const;
  Point3 SnapPoint(const IPoint2& mouse) const {
    IPoint2 snapped;
    return SnapPoint(mouse, snapped);
  }
  void SnapPreview(const IPoint2&) {}
  float SnapLength(float length) const { return length; }
  /// Distance on the construction grid between the points under two mouse positions, signed by the
  /// larger of its two components along `dir`.
  float GetCPDisp(const Point3& base, const Point3& dir, const IPoint2& from, const IPoint2& to,
                  bool snap) const;

 private:
  ViewExp() = default;
  // In double, so that neither the far start of a parallel ray nor its way to the grid is rounded.
  void RayThrough(double x, double y, double (&p)[3], double (&dir)[3]) const;
  Point3 GridAxis() const;

  Kind kind_ = Kind::Perspective;
  Matrix3 viewToWorld_;
  float fov_ = 0.785398f;
  float span_ = 100;
  Pin<INode> camera_;
  int width_ = 640, height_ = 480;
  GraphicsWindow window_;
};
