#include "host/viewport/viewexp.h"

#include <algorithm>
#include <cmath>

#include "host/interface.h"
#include "host/math/elementary.h"
#include "host/scene/camera.h"

namespace {

// Rows right, up, backward, eye.
Matrix3 LookAt(const Point3& eye, const Point3& target) {
  const Point3 back = Normalize(eye - target);
  const bool vertical = std::fabs(back.x) < 1e-6f && std::fabs(back.y) < 1e-6f;
  const Point3 right = Normalize(CrossProd(vertical ? Point3(0, 1, 0) : Point3(0, 0, 1), back));
  return {right, Normalize(CrossProd(back, right)), back, eye};
}

// Far enough behind to see what stands near the eye, near enough that single precision still tells
// the view's pixels apart.
double ParallelStart(float span) { return std::max(10000.0, 1000.0 * span); }

constexpr double kFarOnGrid = 10000.0;

}  // namespace

ViewExp ViewExp::Perspective(const Point3& eye, const Point3& target, float fov, int width,
                             int height) {
  ViewExp v;
  v.viewToWorld_ = LookAt(eye, target);
  v.fov_ = fov;
  v.width_ = width, v.height_ = height;
  return v;
}

ViewExp ViewExp::Orthographic(const Point3& eye, const Point3& target, float span, int width,
                              int height) {
  ViewExp v;
  v.kind_ = Kind::Orthographic;
  v.viewToWorld_ = LookAt(eye, target);
  v.span_ = span;
  v.width_ = width, v.height_ = height;
  return v;
}

ViewExp ViewExp::FromCamera(INode* camera, int width, int height) {
  ViewExp v;
  v.kind_ = Kind::Camera;
  v.camera_ = Pin<INode>(camera);
  v.width_ = width, v.height_ = height;
  return v;
}

bool ViewExp::IsAlive() const { return kind_ != Kind::Camera || (camera_ && camera_->InScene()); }

Matrix3 ViewExp::ViewToWorld() const {
  if (kind_ != Kind::Camera) return viewToWorld_;
  const Matrix3 tm = camera_->GetNodeTM(GetCOREInterface()->GetTime());
  const Point3 back = Normalize(tm.GetRow(2));
  const Point3 right = Normalize(CrossProd(tm.GetRow(1), back));
  return {right, CrossProd(back, right), back, tm.GetTrans()};
}

float ViewExp::Fov() const {
  switch (kind_) {
    case Kind::Orthographic:
      return 0;
    case Kind::Perspective:
      return fov_;
    case Kind::Camera:
      break;
  }
  const TimeValue t = GetCOREInterface()->GetTime();
  Object* object = camera_->EvalWorldState(t).obj;
  if (!object || object->SuperClassID() != CAMERA_CLASS_ID) return fov_;
  return static_cast<CameraObject*>(object)->GetFOV(t);
}

void ViewExp::RayThrough(double x, double y, double (&p)[3], double (&dir)[3]) const {
  const Matrix3 view = ViewToWorld();
  const Point3 &right = view.GetRow(0), &up = view.GetRow(1), &back = view.GetRow(2);
  const bool parallel = kind_ == Kind::Orthographic;
  const double half = parallel ? 0.5 * span_ : host::Tan(0.5 * Fov());
  const double u = half * ((x + 0.5) * 2.0 / width_ - 1.0);
  const double v = half * (1.0 - (y + 0.5) * 2.0 / height_) * height_ / width_;
  double square = 0;
  for (int i = 0; i < 3; ++i) {
    const double across = u * right[i] + v * up[i];
    p[i] = view.GetTrans()[i];
    dir[i] = -double(back[i]);
    if (parallel) {
      p[i] += across + ParallelStart(span_) * back[i];
    } else {
      dir[i] += across;
    }
    square += dir[i] * dir[i];
  }
  for (double& d : dir) d /= std::sqrt(square);
}

Ray ViewExp::MapScreenToWorldRay(float x, float y) const {
  double p[3], dir[3];
  RayThrough(x, y, p, dir);
  return {Point3(float(p[0]), float(p[1]), float(p[2])),
          Point3(float(dir[0]), float(dir[1]), float(dir[2]))};
}

host::Projection ViewExp::GetProjection() const {
  host::Projection p;
  p.axes = ViewToWorld();
  p.parallel = kind_ == Kind::Orthographic;
  p.halfWidth = p.parallel ? 0.5 * span_ : host::Tan(0.5 * Fov());
  p.halfHeight = p.halfWidth * (double(height_) / width_);
  p.width = width_, p.height = height_;
  return p;
}

GraphicsWindow* ViewExp::getGW() {
  if (IsAlive()) window_.SetProjection(GetProjection());
  return &window_;
}

bool ViewExp::ProjectToScreen(const Point3& world, double& x, double& y) const {
  const host::Projection projection = GetProjection();
  double rows[4][3];
  projection.ToView(TransMatrix(world), rows);
  return projection.ToPixel(rows[3], x, y);
}

Point3 ViewExp::GridAxis() const {
  if (kind_ != Kind::Orthographic) return {0, 0, 1};
  const Point3 back = ViewToWorld().GetRow(2);
  if (std::fabs(back.z) > 1e-4f) return {0, 0, 1};
  return std::fabs(back.x) > std::fabs(back.y) ? Point3(1, 0, 0) : Point3(0, 1, 0);
}

Point3 ViewExp::SnapPoint(const IPoint2& mouse, IPoint2& snapped, const Matrix3*, int) const {
  snapped = mouse;
  double p[3], dir[3];
  RayThrough(mouse.x, mouse.y, p, dir);
  const Point3 axis = GridAxis();
  const int level = axis.x != 0 ? 0 : axis.y != 0 ? 1 : 2;
  const double way = p[level] / -dir[level];
  const bool meets = std::isfinite(way) && way >= 0.0;
  for (int i = 0; i < 3; ++i) p[i] += (meets ? way : kFarOnGrid) * dir[i];
  p[level] = 0;
  return Point3(float(p[0]), float(p[1]), float(p[2]));
}

float ViewExp::GetCPDisp(const Point3&, const Point3& dir, const IPoint2& from, const IPoint2& to,
                         bool) const {
  const Point3 d = (SnapPoint(to) - SnapPoint(from)) * dir;
  float larger = d.x;
  for (int i = 1; i < 3; ++i)
    if (std::fabs(d[i]) > std::fabs(larger)) larger = d[i];
  return std::copysign(Length(d), larger);
}
