#pragma once

#include "host/core/ids.h"

namespace sowfield {

/// The object's own class. Stored scenes depend on it.
inline constexpr Class_ID kSowfieldClassID{0x5ADA1D16, 0x0A7D61A6};

// Foreign classes that are recognised by their ids.
inline constexpr Class_ID kMoksetProxyClassID{0x4a93d413, 0xc235d2b7};
inline constexpr Class_ID kVRayProxyClassID{0x6cf53873, 0x1ff85498};
inline constexpr Class_ID kForeignClassA{0x44d601f8, 0x0f43253d};
inline constexpr Class_ID kForeignClassB{0x44d846f8, 0x0f96323d};

}  // namespace sowfield
