#pragma once

#include "sowfield/display/bakedplacements.h"

namespace sowfield {

/// Builds the display mesh of a distribution: the logo, and in the three heavy modes one figure or
/// source mesh per placement, in the object's own space. An edit in the middle of a stroke costs a
/// build that writes no vertex: they wait for a reader.
class DisplayBuilder {
 public:
  explicit DisplayBuilder(Distribution& d) : d_(d), baked_(d) {}

  /// Settles what the mesh shows at t: lowers the mode first where it is too heavy.
  void Build(TimeValue t);
  /// Writes what the last build has settled, of the placements as they are; nothing where that is
  /// done, and while the tables of placements differ in length. Only what has changed is written,
  /// unless something else has written to the mesh. Its memory is reused.
  void Fill(Mesh& mesh);
  /// Whether the last build left placements out for want of a node: their place in the object's own
  /// space comes from it. Deletion and its undo give and take nodes without a word to the object.
  bool WaitsForNode() const { return waitsForNode_; }

 private:
  bool ShowsLogo() const;
  float LogoSize();
  bool TablesFit() const;
  void MakeLogo(Mesh& mesh);

  Distribution& d_;
  unsigned builds_ = 0;  // finished ones, so that an outer build notices an inner one
  TimeValue lastBuilt_ = 0;
  bool waitsForNode_ = false;
  // What the last build has settled.
  bool pending_ = false;
  float logo_ = 0;  // its size; 0 without one
  bool placements_ = false;
  BakeTask task_;
  // What the mesh holds since the last fill.
  std::uint64_t stamp_ = 0;
  float filledLogo_ = 0;
  BakedPlacements baked_;
};

}  // namespace sowfield
