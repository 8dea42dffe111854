#pragma once

namespace sowfield {

// The literal factors of placement arithmetic. Stored values depend on their bits.
inline constexpr float kPercent = 0.01f;
inline constexpr float kPercentOfPercent = 0.0001f;
inline constexpr float kRadians = 0.017453292f;  // per degree
inline constexpr float kPercentOfRadians = 0.00017453292f;
inline constexpr float kDegrees = 57.29578f;  // per radian

}  // namespace sowfield
