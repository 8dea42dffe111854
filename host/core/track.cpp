#include "host/core/track.h"

#include <cmath>

#include "host/math/elementary.h"

namespace host {

KeyPlace PlaceAmong(const std::vector<TimeValue>& times, TimeValue t) {
  if (t <= times.front()) return {0, 0, {TIME_NegInfinity, times.front()}};
  if (t >= times.back()) return {times.size() - 1, 0, {times.back(), TIME_PosInfinity}};
  const auto after = std::upper_bound(times.begin(), times.end(), t);
  const auto key = size_t(after - times.begin()) - 1;
  const double length = double(times[key + 1]) - times[key];
  return {key, (double(t) - times[key]) / length, {t, t}};
}

void Track::SetKeys(KeyShape shape, const std::vector<float>& seconds,
                    const std::vector<float>& values) {
  shape_ = shape;
  times_.clear(), values_.clear();
  const size_t stride = Stride();
  for (size_t i = 0; i < seconds.size(); ++i) {
    const auto t = TimeValue(std::llround(double(seconds[i]) * TIME_TICKSPERSEC));
    if (!times_.empty() && t <= times_.back()) {
      const bool free = times_.size() < 2 || times_[times_.size() - 2] < t - 1;
      if (free) {
        times_.back() = t - 1;
      } else {
        times_.pop_back();
        values_.resize(times_.size() * stride);
      }
    }
    times_.push_back(t);
    values_.insert(values_.end(), values.begin() + long(i * stride),
                   values.begin() + long((i + 1) * stride));
  }
  if (times_.size() != 1) return;
  rest_.assign(Value(0), Value(0) + Width());
  times_.clear(), values_.clear();
}

void Track::SetKey(TimeValue t, const std::vector<float>& value) {
  const auto found = std::lower_bound(times_.begin(), times_.end(), t);
  const auto i = size_t(found - times_.begin());
  if (found == times_.end() || *found != t) {
    times_.insert(found, t);
    values_.insert(values_.begin() + long(i * Stride()), Stride(), 0.0f);
    const bool between = i > 0 && i + 1 < times_.size();
    if (shape_ == KeyShape::Cubic && between) {
      const double seconds = (double(times_[i + 1]) - times_[i - 1]) / TIME_TICKSPERSEC;
      float* key = &values_[i * Stride()];
      for (size_t k = 0; k < Width(); ++k)
        key[k] = key[k + 2 * Width()] =
            float((double(Value(i + 1)[k]) - Value(i - 1)[k]) / seconds);
    }
  }
  std::copy(value.begin(), value.end(), values_.begin() + long(i * Stride() + Middle()));
}

// True where one key or none tells the value.
bool Track::Constant(TimeValue t, double* out, Interval& valid, KeyPlace& place) const {
  if (times_.empty()) {
    std::copy(rest_.begin(), rest_.end(), out);
    return true;
  }
  place = PlaceAmong(times_, t);
  if (shape_ == KeyShape::Step) {
    const bool last = place.key + 1 == times_.size();
    place.valid = {place.key == 0 ? TIME_NegInfinity : times_[place.key],
                   last ? TIME_PosInfinity : times_[place.key + 1] - 1};
  }
  valid = Overlap(valid, place.valid);
  if (place.part != 0 && shape_ != KeyShape::Step) return false;
  const float* value = Value(place.key);
  std::copy(value, value + Width(), out);
  return true;
}

// Hermite's form, with the tangents scaled to the length of the segment.
void Track::Spline(const KeyPlace& place, double* out) const {
  const size_t w = Width();
  const double s = place.part, s2 = s * s, s3 = s2 * s;
  const double length = (double(times_[place.key + 1]) - times_[place.key]) / TIME_TICKSPERSEC;
  const float *from = Value(place.key), *to = Value(place.key + 1);
  for (size_t k = 0; k < w; ++k)
    out[k] = (2 * s3 - 3 * s2 + 1) * from[k] + (s3 - 2 * s2 + s) * length * from[k + w] +
             (3 * s2 - 2 * s3) * to[k] + (s3 - s2) * length * (to - w)[k];
}

void Track::At(TimeValue t, double* out, Interval& valid) const {
  KeyPlace place{};
  if (Constant(t, out, valid, place)) return;
  if (shape_ == KeyShape::Cubic) return Spline(place, out);
  const float *from = Value(place.key), *to = Value(place.key + 1);
  for (size_t k = 0; k < Width(); ++k) out[k] = (1 - place.part) * from[k] + place.part * to[k];
}

// Shoemake, "Animating rotation with quaternion curves", 1985. Below the limit the sine of the
// angle has lost its digits, and the straight line is the arc to double precision.
void Track::RotationAt(TimeValue t, double* out, Interval& valid) const {
  constexpr double kStraight = 1 - 1e-9;
  KeyPlace place{};
  if (!Constant(t, out, valid, place)) {
    if (shape_ == KeyShape::Cubic) {
      Spline(place, out);
    } else {
      const float *from = Value(place.key), *to = Value(place.key + 1);
      double dot = 0;
      for (size_t k = 0; k < 4; ++k) dot += double(from[k]) * to[k];
      const double sign = dot < 0 ? -1 : 1;
      double a = 1 - place.part, b = place.part;
      if (sign * dot < kStraight) {
        const double angle = Acos(sign * dot), sine = Sin(angle);
        a = Sin(a * angle) / sine;
        b = Sin(b * angle) / sine;
      }
      for (size_t k = 0; k < 4; ++k) out[k] = a * from[k] + sign * b * to[k];
    }
  }
  const double length =
      std::sqrt(out[0] * out[0] + out[1] * out[1] + out[2] * out[2] + out[3] * out[3]);
  if (!(length > 0)) {
    out[0] = out[1] = out[2] = 0, out[3] = 1;
    return;
  }
  for (size_t k = 0; k < 4; ++k) out[k] /= length;
}

}  // namespace host
