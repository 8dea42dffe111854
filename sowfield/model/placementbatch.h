#pragma once

#include <vector>

#include "sowfield/model/placement.h"
#include "sowfield/model/placementkernel.h"

namespace sowfield {

/// The placements of an evaluator in bulk, bit for bit what its Matrix gives, many times as fast:
/// the steps that depend on type and random row alone are worked out once. Making it costs about
/// ten microseconds a type. Valid as long as the evaluator; read from any number of threads.
class PlacementBatch {
 public:
  explicit PlacementBatch(const PlacementEvaluator& placements,
                          PlacementKernel kernel = BestPlacementKernel());

  /// Matrices of `count` placements from `first`.
  void Matrices(size_t first, size_t count, Matrix3* out) const {
    Matrices(first, count, placements_.Positions().data() + first, out);
  }
  /// The same with other positions than the stored ones, `count` of them.
  void Matrices(size_t first, size_t count, const Point3* positions, Matrix3* out) const;
  Matrix3 Matrix(size_t p, const Point3& position) const {
    Matrix3 m;
    Matrices(p, 1, &position, &m);
    return m;
  }

  /// The translations of those matrices: positions, lifted by the Z offset along the tilt. They
  /// are written to `buffer`, or are the positions themselves where no type has an offset.
  const Point3* Origins(size_t first, size_t count, const Point3* positions, Point3* buffer) const;

 private:
  const PlacementEvaluator& placements_;
  PlacementKernel kernel_;
  std::vector<KernelForm> forms_;  // kFormsPerType a type
  bool liftless_ = true;           // none has a Z offset
};

}  // namespace sowfield
