#pragma once

#include <vector>

#include "sowfield/model/placement.h"
#include "sowfield/model/placementfilter.h"
#include "sowfield/model/placementkernel.h"

namespace sowfield {

/// The placements of an evaluator in bulk, bit for bit what its Matrix gives, many times as fast:
/// the steps that depend on type and random row alone are worked out once. Making it costs about
/// ten microseconds a type. Valid as long as the evaluator; read from any number of threads.
class PlacementBatch {
 public:
  explicit PlacementBatch(const PlacementEvaluator& placements,
                          PlacementKernel kernel = BestPlacementKernel());

  /// What the matrices depend on besides type, row, angles and position: kFormsPerType a type, none
  /// without placements.
  std::span<const KernelForm> Forms() const { return forms_; }

  /// Matrices of `count` placements from `first`.
  void Matrices(size_t first, size_t count, Matrix3* out) const {
    Matrices(first, count, placements_.Positions().data() + first, out);
  }
  /// The same with other positions than the stored ones, `count` of them.
  void Matrices(size_t first, size_t count, const Point3* positions, Matrix3* out) const;
  /// The same of `count` placements of a list, from its entry `first` on; positions, where given,
  /// are those of these entries.
  void Matrices(const Places& places, size_t first, size_t count, Matrix3* out) const {
    Run(places, first, count, nullptr, out);
  }
  void Matrices(const Places& places, size_t first, size_t count, const Point3* positions,
                Matrix3* out) const {
    Run(places, first, count, positions, out);
  }

  /// The translations of those matrices: positions, lifted by the Z offset along the tilt. They
  /// are written to `buffer`, or are the positions themselves where no type has an offset.
  const Point3* Origins(size_t first, size_t count, const Point3* positions, Point3* buffer) const;
  const Point3* Origins(const Places& places, size_t first, size_t count, const Point3* positions,
                        Point3* buffer) const;

 private:
  void Run(const Places& places, size_t first, size_t count, const Point3* positions,
           Matrix3* out) const;
  const PlacementEvaluator& placements_;
  PlacementKernel kernel_;
  std::vector<KernelForm> forms_;  // kFormsPerType a type
  bool liftless_ = true;           // none has a Z offset
};

}  // namespace sowfield
