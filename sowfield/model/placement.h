#pragma once

#include <span>

#include "host/math/matrix3.h"
#include "sowfield/model/distribution.h"

namespace sowfield {

/// What the transform rows make of a type and a random row: it doesn't depend on the placement.
struct PlacementForm {
  Point3 scale{1, 1, 1};
  float xAngle = 0, yAngle = 0, zAngle = 0;  // radians
  float zOffset = 0;                         // scene units, along the placement's up axis
  float n = 100;                             // weight of the surface's tilt, percent
};

/// The one definition of a placement's transform and time, in single precision with its literal
/// constants. Gathers the tables once; valid until the block changes.
///
/// The random index of a type row has two forms. X angle and the scales read the type's own block,
/// at (t + 1) * 100 + r; Z offset, N, Y and Z angle read at 100 + t + r. The second looks like a
/// slip, but stored scenes depend on it, and it always lies inside the tables.
class PlacementEvaluator {
 public:
  PlacementEvaluator(const IParamBlock2& block, TimeValue time);

  size_t Count() const { return positions_.size(); }
  const Point3& Position(size_t p) const { return positions_[p]; }
  int Type(size_t p) const { return types_[p]; }
  int TypeCount() const { return int(random_.size()) - 1; }
  // Whole tables, one entry a placement.
  std::span<const Point3> Positions() const { return positions_; }
  std::span<const Point3> Angles() const { return normals_; }
  std::span<const int> Types() const { return types_; }
  std::span<const int> Rows() const { return rands_; }

  PlacementForm Form(int type, int row) const;
  /// The first steps of a placement, applied to `start`: scale, three turns, Z offset.
  static Matrix3 ApplyForm(const Matrix3& start, const PlacementForm& form);
  /// All steps: those of the form, the surface's tilt weighted by N, its third angle in full,
  /// position.
  static Matrix3 Apply(const Matrix3& start, const PlacementForm& form, const Point3& angles,
                       const Point3& position);

  /// Placement p in world space. It holds no part of the source's own transform.
  Matrix3 Matrix(size_t p) const { return Matrix(p, positions_[p]); }
  /// The same at another position, such as the stored one seen from the object's own space.
  Matrix3 Matrix(size_t p, const Point3& position) const {
    return Apply(Matrix3(), Form(types_[p], rands_[p]), normals_[p], position);
  }
  /// The time at which placement p shows its source: the evaluator's time plus the type's offset.
  TimeValue Time(size_t p) const;

 private:
  struct Row {
    std::span<const float> min, max, random;
    float Value(int slot, bool ranged, int index, float unit, float rangeUnit) const;
  };
  struct RowValues {
    float z, n, xAngle, yAngle, zAngle, xScale, yScale, zScale;
  };
  RowValues Values(int slot, int ownIndex, int sharedIndex) const;

  Row zPos_, normal_, xRot_, yRot_, zRot_, xScale_, yScale_, zScale_;
  std::span<const int> random_, unify_;
  std::span<const int> animOn_, animMin_, animMax_;
  std::span<const float> animRandom_;
  std::span<const Point3> positions_, normals_;
  std::span<const int> types_, rands_, animRands_;
  TimeValue time_, animStart_;
  float ticksPerFrame_;
};

/// Angles to store for a surface orientation: a spin about the normal, then the smallest turn from
/// +Z to the normal. A zero normal leaves the spin alone. `base` gets the orientation itself.
Point3 StoredAngles(float spin, const Point3& normal, Matrix3* base = nullptr);

}  // namespace sowfield
