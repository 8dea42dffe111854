#include "host/math/color.h"

#include <algorithm>
#include <cmath>

float ScreenChannel(float linear) {
  const double v = std::clamp(double(linear), 0.0, 1.0);
  return float(v <= 0.0031308 ? 12.92 * v : 1.055 * std::pow(v, 1 / 2.4) - 0.055);
}
