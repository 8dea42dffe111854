#pragma once

#include "sowfield/model/distribution.h"

class Mesh;

namespace sowfield {

/// Builds the display mesh of a distribution: the logo, and in the three heavy modes one figure or
/// source mesh per placement, in the object's own space. Lowers the mode first where it is too
/// heavy. The mesh's memory is reused from build to build.
class DisplayBuilder {
 public:
  explicit DisplayBuilder(Distribution& d) : d_(d) {}

  /// Fills `mesh` for t.
  void Build(TimeValue t, Mesh& mesh);
  /// Whether the last build left placements out for want of a node: their place in the object's own
  /// space comes from it. Deletion and its undo give and take nodes without a word to the object.
  bool WaitsForNode() const { return waitsForNode_; }

 private:
  bool ShowsLogo() const;
  float LogoSize();

  Distribution& d_;
  unsigned builds_ = 0;  // finished ones, so that an outer build notices an inner one
  TimeValue lastBuilt_ = 0;
  bool waitsForNode_ = false;
};

}  // namespace sowfield
