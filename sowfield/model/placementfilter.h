#pragma once

#include <cstdint>
#include <vector>

#include "sowfield/model/distribution.h"

namespace sowfield {

/// Places of placements in the tables, ascending: all of them, or a list.
class Places {
 public:
  Places() = default;
  static Places All(size_t count) {
    Places all;
    all.count_ = count;
    return all;
  }
  explicit Places(std::vector<std::uint32_t> list)
      : list_(std::move(list)), count_(list_.size()), areAll_(false) {}

  size_t size() const { return count_; }
  size_t operator[](size_t i) const { return areAll_ ? i : list_[i]; }
  bool AreAll() const { return areAll_; }

 private:
  std::vector<std::uint32_t> list_;
  size_t count_ = 0;
  bool areAll_ = true;
};

/// The tests that a walk over the placements asks for. What is seen of a distribution takes both;
/// budgets count the shown type whole, excluded or not; statistics, renders and exports leave out
/// what is excluded, whatever type is shown. The bounds of the light modes take none.
enum PlacementTests : unsigned { kShownType = 1, kExclusion = 2, kSeen = kShownType | kExclusion };

/// Says which placements a walk takes. Valid until the block changes.
class PlacementFilter {
 public:
  /// Asked for exclusion, it says once in the listener, while splines ask for it, that there is no
  /// such test yet.
  PlacementFilter(const Distribution& d, TimeValue t, unsigned tests);

  /// Leaves out all placements of a type, such as one whose source is gone.
  void LeaveOut(int type) { takes_[size_t(type)] = 0; }
  bool TakesType(int type) const { return takes_[size_t(type)] != 0; }
  /// The places of all placements that pass.
  Places Passing() const;

 private:
  const IParamBlock2& block_;
  std::vector<unsigned char> takes_;  // by type
};

}  // namespace sowfield
