#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

#include "host/math/interval.h"

inline constexpr int TIME_TICKSPERSEC = 4800;

/// What both hold for; NEVER if they share no time.
inline Interval Overlap(const Interval& a, const Interval& b) {
  const TimeValue start = std::max(a.Start(), b.Start()), end = std::min(a.End(), b.End());
  return a.Empty() || b.Empty() || start > end ? NEVER : Interval(start, end);
}

namespace host {

struct SceneAccess;  // of scene files, which keep all that there is

/// How values between two keys come about. Cubic is glTF's spline: each key holds the tangent that
/// comes in, the value and the tangent that goes out, tangents per second.
enum class KeyShape : std::uint8_t { Step, Linear, Cubic };

/// The place of a time among keys: in the segment that key `key` begins, or at a key or beyond an
/// end, where `part` is 0.
struct KeyPlace {
  size_t key;
  double part;     // of the segment, 0 to below 1
  Interval valid;  // how long the place stays, a step's value not considered
};
/// `times` rise and aren't empty.
KeyPlace PlaceAmong(const std::vector<TimeValue>& times, TimeValue t);

/// Numbers over time, `width` at once. Before the first key and after the last one the values stay.
class Track {
 public:
  /// Not animated: `rest` at all times.
  explicit Track(std::vector<float> rest) : rest_(std::move(rest)) {}

  size_t Width() const { return rest_.size(); }
  bool IsKeyed() const { return !times_.empty(); }
  KeyShape Shape() const { return shape_; }
  const std::vector<TimeValue>& Times() const { return times_; }
  const std::vector<float>& Rest() const { return rest_; }
  /// Of all keys, one behind the other: Width() numbers, or for a cubic one the tangent in, the
  /// value and the tangent out.
  const std::vector<float>& KeyValues() const { return values_; }
  void SetRest(std::vector<float> rest) { rest_ = std::move(rest); }

  /// Takes over keys: rising seconds, finite values, Width() of them a key, three times as many in
  /// a cubic track. Times are rounded to ticks; of keys that fall on one tick the first gives way
  /// to the tick before, if that is free, else it goes. A single key is a value at rest.
  void SetKeys(KeyShape shape, const std::vector<float>& seconds, const std::vector<float>& values);
  /// Adds a key, or changes the one at t. A new key of a cubic track goes along the line between
  /// its neighbours, and is level at an end.
  void SetKey(TimeValue t, const std::vector<float>& value);

  /// The values at t into out[0] to out[Width() - 1]; `valid` is narrowed. Worked out in double.
  void At(TimeValue t, double* out, Interval& valid) const;
  /// The same for four values that are a unit quaternion: the shortest arc between linear keys,
  /// and always of unit length.
  void RotationAt(TimeValue t, double* out, Interval& valid) const;

 private:
  friend struct SceneAccess;
  size_t Stride() const { return Width() * (shape_ == KeyShape::Cubic ? 3 : 1); }
  size_t Middle() const { return shape_ == KeyShape::Cubic ? Width() : 0; }
  const float* Value(size_t key) const { return &values_[key * Stride() + Middle()]; }
  bool Constant(TimeValue t, double* out, Interval& valid, KeyPlace& place) const;
  void Spline(const KeyPlace& place, double* out) const;

  KeyShape shape_ = KeyShape::Linear;
  std::vector<float> rest_;
  std::vector<TimeValue> times_;
  std::vector<float> values_;
};

}  // namespace host
