#include "sowfield/model/generator.h"

#include <algorithm>
#include <cmath>

namespace sowfield {

int Generator::RandomInt(int upper, int lower) {
  const float low = float(lower);
  const float value = std::floor((float(upper) + 0.999999f - low) * Unit() + low);
  // With large bounds 0.999999 is lost in the sum, and a unit of 1 then gives upper + 1.
  return std::clamp(int(std::clamp(value, -2147483648.0f, 2147483520.0f)), lower, upper);
}

}  // namespace sowfield
