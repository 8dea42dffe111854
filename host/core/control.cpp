#include "host/core/control.h"

#include <cmath>

#include "host/core/builtinclass.h"
#include "host/math/quat.h"

namespace host {

Matrix3 MatrixOfQuaternion(const double q[4]) {
  const double x = q[0], y = q[1], z = q[2], w = q[3];
  const auto row = [](double a, double b, double c) {
    return Point3(float(a), float(b), float(c));
  };
  return {row(1 - 2 * (y * y + z * z), 2 * (x * y + w * z), 2 * (x * z - w * y)),
          row(2 * (x * y - w * z), 1 - 2 * (x * x + z * z), 2 * (y * z + w * x)),
          row(2 * (x * z + w * y), 2 * (y * z - w * x), 1 - 2 * (x * x + y * y)),
          {0, 0, 0}};
}

TransformParts PartsOf(const Matrix3& m, const std::array<double, 3>& like) {
  TransformParts parts{{1, 1, 1}, {0, 0, 0, 1}, m.GetTrans()};
  const bool mirrored = m.Determinant() < 0;
  std::array<double, 3> sign;
  for (size_t i = 0; i < 3; ++i) sign[i] = like[i] < 0 ? -1 : 1;
  if ((sign[0] * sign[1] * sign[2] < 0) != mirrored) sign = {mirrored ? -1.0 : 1.0, 1, 1};

  Matrix3 turn;
  for (int i = 0; i < 3; ++i) {
    const Point3& r = m.GetRow(i);
    const double length = std::sqrt(double(r.x) * r.x + double(r.y) * r.y + double(r.z) * r.z);
    parts.scale[size_t(i)] = sign[size_t(i)] * length;
    turn.SetRow(i, Normalize(r) * float(sign[size_t(i)]));
  }
  // What shears is taken out of the second row, then of the third.
  const Point3 a = turn.GetRow(0);
  const Point3 b = Normalize(turn.GetRow(1) - a * DotProd(a, turn.GetRow(1)));
  turn.SetRow(1, b);
  turn.SetRow(2, CrossProd(a, b));
  const Quat q(turn);
  parts.rotation = {q.x, q.y, q.z, q.w};
  return parts;
}

Matrix3 MatrixOf(const TransformParts& parts) {
  Matrix3 m = MatrixOfQuaternion(parts.rotation.data());
  for (int i = 0; i < 3; ++i) {
    const Point3& r = m.GetRow(i);
    const double s = parts.scale[size_t(i)];
    m.SetRow(i, {float(r.x * s), float(r.y * s), float(r.z * s)});
  }
  m.SetTrans(parts.position);
  return m;
}

}  // namespace host

bool FloatControl::Copy(const Control* from) {
  const auto* other = dynamic_cast<const FloatControl*>(from);
  if (!other) return false;
  SetTrack(other->track_);
  return true;
}

ReferenceTarget* FloatControl::Clone(RemapDir&) {
  auto* copy = new FloatControl;
  copy->track_ = track_;
  return copy;
}

float FloatControl::GetValue(TimeValue t, Interval& valid) const {
  double value;
  track_.At(t, &value, valid);
  return float(value);
}

void FloatControl::SetValue(TimeValue t, float value) {
  if (track_.IsKeyed()) return SetKey(t, value);
  RecordValue(this, &track_);
  track_.SetRest({value});
  Changed();
}

void FloatControl::SetKey(TimeValue t, float value) {
  RecordValue(this, &track_);
  track_.SetKey(t, {value});
  Changed();
}

void FloatControl::SetTrack(const host::Track& track) {
  RecordValue(this, &track_);
  track_ = track;
  Changed();
}

bool TransformControl::Copy(const Control* from) {
  const auto* other = dynamic_cast<const TransformControl*>(from);
  if (!other) return false;
  RecordValue(this, &s_);
  s_ = other->s_;
  Changed();
  return true;
}

ReferenceTarget* TransformControl::Clone(RemapDir&) {
  auto* copy = new TransformControl;
  copy->s_ = s_;
  return copy;
}

bool TransformControl::IsKeyed() const {
  return s_.position.IsKeyed() || s_.rotation.IsKeyed() || s_.scale.IsKeyed();
}

Matrix3 TransformControl::Middle(TimeValue t, Interval& valid) const {
  host::TransformParts parts;
  double position[3];
  s_.scale.At(t, parts.scale.data(), valid);
  s_.rotation.RotationAt(t, parts.rotation.data(), valid);
  s_.position.At(t, position, valid);
  parts.position = {float(position[0]), float(position[1]), float(position[2])};
  return host::MatrixOf(parts);
}

Matrix3 TransformControl::GetValue(TimeValue t, Interval& valid) const {
  if (!IsKeyed()) return s_.still;
  Matrix3 value = Middle(t, valid);
  if (!s_.before.IsIdentity()) value = s_.before * value;
  return s_.after.IsIdentity() ? value : value * s_.after;
}

void TransformControl::SetValue(TimeValue t, const Matrix3& value) {
  RecordValue(this, &s_);
  if (!IsKeyed()) {
    s_.still = value;
  } else {
    Interval valid = FOREVER;
    const Matrix3 now = GetValue(t, valid);
    if (now.IsInvertible()) {
      s_.after = s_.after * (Inverse(now) * value);
    } else {  // flat at t, so only its place can be told
      s_.after.Translate(value.GetTrans() - now.GetTrans());
    }
  }
  Changed();
}

void TransformControl::Precede(const Matrix3& by) {
  RecordValue(this, &s_);
  (IsKeyed() ? s_.before : s_.still) = by * (IsKeyed() ? s_.before : s_.still);
  Changed();
}

// Brings the matrix of a controller without keys into the form that keys need.
void TransformControl::Split() {
  const host::TransformParts parts = host::PartsOf(s_.still);
  const Matrix3 kept = host::MatrixOf(parts);
  float largest = 0, error = 0;
  for (int i = 0; i < 3; ++i) {
    largest = std::max(largest, Length(s_.still.GetRow(i)));
    error = std::max(error, Length(s_.still.GetRow(i) - kept.GetRow(i)));
  }
  constexpr float kRounding = 1e-5f;  // of the way to a quaternion and back
  s_.before = Matrix3();
  s_.after = error > kRounding * largest ? Inverse(kept) * s_.still : Matrix3();
  const auto floats = [](const auto& values) {
    return std::vector<float>(values.begin(), values.end());
  };
  s_.position.SetRest({parts.position.x, parts.position.y, parts.position.z});
  s_.rotation.SetRest(floats(parts.rotation));
  s_.scale.SetRest(floats(parts.scale));
}

void TransformControl::SetKeys(TimeValue t, const host::TransformParts& asked, unsigned parts) {
  RecordValue(this, &s_);
  if (!IsKeyed()) Split();
  host::TransformParts inner = asked;
  if (!s_.before.IsIdentity() || !s_.after.IsIdentity()) {
    Interval valid = FOREVER;
    const Matrix3 middle = Middle(t, valid);
    std::array<double, 3> scale;
    s_.scale.At(t, scale.data(), valid);
    host::TransformParts whole = host::PartsOf(s_.before * middle * s_.after);
    if (parts & kPosition) whole.position = asked.position;
    if (parts & kRotation) whole.rotation = asked.rotation;
    if (parts & kScale) whole.scale = asked.scale;
    inner = host::PartsOf(Inverse(s_.before) * host::MatrixOf(whole) * Inverse(s_.after), scale);
  }
  const auto set = [&](unsigned part, host::Track& track, const auto& values) {
    if (parts & part) track.SetKey(t, std::vector<float>(values.begin(), values.end()));
  };
  const Point3& p = inner.position;
  set(kPosition, s_.position, std::array<float, 3>{p.x, p.y, p.z});
  set(kRotation, s_.rotation, inner.rotation);
  set(kScale, s_.scale, inner.scale);
  Changed();
}

void TransformControl::SetTracks(const host::Track* position, const host::Track* rotation,
                                 const host::Track* scale) {
  RecordValue(this, &s_);
  if (!IsKeyed()) Split();
  if (position) s_.position = *position;
  if (rotation) s_.rotation = *rotation;
  if (scale) s_.scale = *scale;
  if (!IsKeyed()) {
    Interval valid = FOREVER;
    s_.still = s_.before * Middle(0, valid) * s_.after;
  }
  Changed();
}

namespace host {

void RegisterControlClasses(ClassRegistry& classes) {
  static BuiltinClass<FloatControl> number(FLOAT_CONTROL_CLASS_ID, FloatControl::kClassID,
                                           L"Keyed Float");
  static BuiltinClass<TransformControl> transform(
      TRANSFORM_CONTROL_CLASS_ID, TransformControl::kClassID, L"Keyed Position, Rotation, Scale");
  classes.Add(&number);
  classes.Add(&transform);
}

}  // namespace host
