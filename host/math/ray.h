#pragma once

#include "host/math/point3.h"

/// A half line in world space; dir has unit length.
struct Ray {
  Point3 p{0, 0, 0};
  Point3 dir{0, 0, -1};
};
