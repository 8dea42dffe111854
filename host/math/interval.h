#pragma once

#include <cstdint>

/// Time in host ticks.
using TimeValue = std::int32_t;

inline constexpr TimeValue TIME_NegInfinity = std::int32_t(0x80000000u);
inline constexpr TimeValue TIME_PosInfinity = 0x7FFFFFFF;

/// A closed span of time. "Never" has both ends at negative infinity.
class Interval {
 public:
  constexpr Interval() = default;
  constexpr Interval(TimeValue start, TimeValue end) : start_(start), end_(end) {}

  constexpr TimeValue Start() const { return start_; }
  constexpr TimeValue End() const { return end_; }
  constexpr bool Empty() const { return end_ == TIME_NegInfinity; }
  constexpr bool InInterval(TimeValue t) const { return !Empty() && t >= start_ && t <= end_; }
  void SetInfinite() { *this = {TIME_NegInfinity, TIME_PosInfinity}; }
  void SetEmpty() { *this = {}; }
  constexpr bool operator==(const Interval&) const = default;

 private:
  TimeValue start_ = TIME_NegInfinity;
  TimeValue end_ = TIME_NegInfinity;
};

inline constexpr Interval FOREVER{TIME_NegInfinity, TIME_PosInfinity};
inline constexpr Interval NEVER{};
