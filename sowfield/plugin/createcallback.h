#pragma once

#include "host/math/matrix3.h"

class ViewExp;

/// Messages and results of a creation by mouse.
enum CreateMouseMessage : int {
  MOUSE_ABORT = 0,
  MOUSE_POINT = 1,
  MOUSE_MOVE = 2,
  MOUSE_FREEMOVE = 6
};
enum CreateMouseResult : int { CREATE_ABORT = -1, CREATE_STOP = 0, CREATE_CONTINUE = 1 };

class CreateMouseCallBack {
 public:
  virtual ~CreateMouseCallBack() = default;
  virtual int proc(ViewExp* vpt, int msg, int point, int flags, IPoint2 m, Matrix3& mat) = 0;
};

namespace sowfield {

class Sowfield;

/// Places a new object: the first click sets it down and sets it up, a drag to the second sizes
/// the logo.
class SowfieldCreateCallBack : public CreateMouseCallBack {
 public:
  void SetObject(Sowfield* object) { ob_ = object; }
  int proc(ViewExp* vpt, int msg, int point, int flags, IPoint2 m, Matrix3& mat) override;

 private:
  IPoint2 sp0_;         // first point, pixels
  Point3 p0_{0, 0, 0};  // first point, on the construction grid
  Sowfield* ob_ = nullptr;
};

}  // namespace sowfield
