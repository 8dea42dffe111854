#pragma once

#include <array>

#include "host/core/hold.h"
#include "host/core/track.h"
#include "host/math/matrix3.h"

inline constexpr SClass_ID FLOAT_CONTROL_CLASS_ID = 0x2001;
inline constexpr SClass_ID TRANSFORM_CONTROL_CLASS_ID = 0x2002;

namespace host {

/// The rotation of a unit quaternion (x, y, z, w), of any precision: rows are images of the axes.
Matrix3 MatrixOfQuaternion(const double q[4]);

/// Scale, then rotation, then position.
struct TransformParts {
  std::array<double, 3> scale;
  std::array<double, 4> rotation;  // x, y, z, w
  Point3 position;
};
/// The parts of a matrix that has an inverse; shear is dropped. `like` tells the signs of the
/// scale where they suit the matrix, else a mirrored matrix has a negative scale along X.
TransformParts PartsOf(const Matrix3& m, const std::array<double, 3>& like = {1, 1, 1});
Matrix3 MatrixOf(const TransformParts& parts);

/// The parts of a keyed motion.
struct MotionTracks {
  Matrix3 before, after;
  const Track *position, *rotation, *scale;
};

}  // namespace host

/// Gives a value for each time. Changes are recorded for undo while a step is open, and tell
/// dependents.
class Control : public ReferenceTarget {
 public:
  /// Takes over the value and the keys of a controller of the same class; false for another class.
  virtual bool Copy(const Control* from) = 0;
};

/// A number over time.
class FloatControl final : public Control {
 public:
  static constexpr Class_ID kClassID{0x20, 0};
  SClass_ID SuperClassID() const override { return FLOAT_CONTROL_CLASS_ID; }
  Class_ID ClassID() const override { return kClassID; }
  void GetClassName(WStr& name) const override { name = L"Keyed Float"; }
  bool Copy(const Control* from) override;
  ReferenceTarget* Clone(RemapDir& remap) override;

  /// `valid` is narrowed to the time for which the value holds, as by all controllers.
  float GetValue(TimeValue t, Interval& valid) const;
  /// With keys: adds the key at t or changes it. Without: the value at all times.
  void SetValue(TimeValue t, float value);
  void SetKey(TimeValue t, float value);
  const host::Track& GetTrack() const { return track_; }
  /// The track is one number wide.
  void SetTrack(const host::Track& track);

 private:
  void Changed() { NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE); }
  host::Track track_{{0}};
};

/// A matrix over time. Without keys it is any matrix. With keys it is `before`, then scale,
/// rotation and position, then `after`: the two constants take up what the keys can't hold, and
/// what moved the whole motion at once.
class TransformControl final : public Control {
 public:
  static constexpr Class_ID kClassID{0x21, 0};
  SClass_ID SuperClassID() const override { return TRANSFORM_CONTROL_CLASS_ID; }
  Class_ID ClassID() const override { return kClassID; }
  void GetClassName(WStr& name) const override { name = L"Keyed Position, Rotation, Scale"; }
  bool Copy(const Control* from) override;
  ReferenceTarget* Clone(RemapDir& remap) override;

  enum Part : unsigned { kPosition = 1, kRotation = 2, kScale = 4 };

  bool IsKeyed() const;
  host::MotionTracks Tracks() const {
    return {s_.before, s_.after, &s_.position, &s_.rotation, &s_.scale};
  }
  Matrix3 GetValue(TimeValue t, Interval& valid) const;
  /// Without keys: the matrix at all times. With keys the whole motion is moved along, by what
  /// takes its matrix at t to `value`; the keys stay as they are.
  void SetValue(TimeValue t, const Matrix3& value);
  /// For the node that it moves: takes its matrix over while there are no keys, without a record
  /// and without a message.
  void Follow(const Matrix3& still) { s_.still = still; }
  /// Puts `by` before the matrix at all times, as a new pivot does. `by` must have an inverse.
  void Precede(const Matrix3& by);
  /// Adds keys at t, or changes them, for those of the three that `parts` names, such that the
  /// matrix at t gets these parts of `asked`. What `before` and `after` shear is not made up for.
  void SetKeys(TimeValue t, const host::TransformParts& asked, unsigned parts);
  /// Replaces parts of the motion by tracks: null leaves one as it is. Widths 3, 4 (quaternions x,
  /// y, z, w of points taken as columns) and 3.
  void SetTracks(const host::Track* position, const host::Track* rotation,
                 const host::Track* scale);

 private:
  friend struct host::SceneAccess;
  struct State {
    Matrix3 still;  // all there is without keys
    Matrix3 before, after;
    host::Track position{{0, 0, 0}};
    host::Track rotation{{0, 0, 0, 1}};
    host::Track scale{{1, 1, 1}};
  };
  Matrix3 Middle(TimeValue t, Interval& valid) const;
  void Split();
  void Changed() { NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE); }
  State s_;
};

namespace host {

class ClassRegistry;
void RegisterControlClasses(ClassRegistry& classes);

}  // namespace host
