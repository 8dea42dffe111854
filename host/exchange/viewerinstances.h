#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <vector>

#include "host/math/buffer.h"
#include "host/scene/instancesource.h"

namespace host {

/// The instances of a set as lists of scales, rotations and translations, two lists a group: the
/// plain instances, and the mirrored ones. Those are told with X turned round, for a mesh whose X
/// is turned round too, so that no scale is below 0. Instances with a scale of 0 (or one that
/// single precision can't tell from it) or a number that isn't finite are in no list. Lists keep
/// the order of the set.
class InstanceLists {
 public:
  /// Goes through all matrices once, to count.
  explicit InstanceLists(std::unique_ptr<InstanceSet> set);

  InstanceSet& Set() { return *set_; }
  size_t Count(size_t group, bool mirrored) const { return lists_[group * 2 + mirrored].count; }

  /// What a list tells: translations (three floats an instance), quaternions (x, y, z, w), scales
  /// (three) and places in the set (one float, exact up to 2^24).
  enum Piece : size_t { kTranslations, kRotations, kScales, kPlaces };
  static constexpr std::array<size_t, 4> kWidths = {3, 4, 3, 1};  // floats an instance
  size_t Bytes(size_t group, bool mirrored, Piece piece) const {
    return Count(group, mirrored) * kWidths[piece] * sizeof(float);
  }
  /// Says that the list will be written. All are asked for before the first one is.
  void Ask(size_t group, bool mirrored);
  /// Hands one piece of a list to the sink; false if that refuses. All lists that were asked for
  /// are worked out when the first piece is written and let go after the last one.
  bool Write(size_t group, bool mirrored, Piece piece,
             const std::function<bool(std::span<const std::byte>)>& sink);

  /// Turns X round.
  static Matrix3 Mirror() { return {{-1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {0, 0, 0}}; }

 private:
  struct List {
    size_t count = 0;
    size_t at = 0;  // of its first float, once it was asked for
    bool asked = false;
  };

  template <class Body>
  void ForEachShown(const Body& body) const;
  void Fill();

  std::unique_ptr<InstanceSet> set_;
  std::vector<List> lists_;
  std::vector<std::uint32_t> before_;  // instances of each list in the parts before, part by part
  Buffer<float> values_;               // of the lists that were asked for, piece after piece
  size_t size_ = 0;                    // floats of them
  size_t pieces_ = 0, written_ = 0;
};

}  // namespace host
