#pragma once

#include <functional>
#include <string>
#include <vector>

#include "host/core/paramblock.h"

namespace studio {

/// A value that differs. `a` and `b` are JSON.
struct Change {
  std::string what, a, b;
};

/// A table that differs. Entries are named by their type where a type has a row, else by number.
struct TableChange {
  std::string name;
  size_t countA = 0, countB = 0;
  std::vector<Change> entries;
};

/// In what two placements that belong together differ, as bits.
enum PlacementPart : unsigned {
  kPosition = 1,
  kOrientation = 2,
  kScale = 4,
  kType = 8,
  kRandom = 16,
  kMatrix = 32
};
inline constexpr const char* kPlacementParts[] = {"position", "orientation",    "scale",
                                                  "type",     "random numbers", "matrix"};

struct PlacementChange {
  int a = 0, b = 0;
  unsigned parts = 0;
};

/// What two Sowfield objects differ in. Bits decide: a NaN is the same as itself, -0 isn't 0.
///
/// Types belong together by their names, the first to the first of a name. Placements do by the
/// rule of Align: first those with all numbers the same, then those at the same position.
struct ObjectChange {
  std::string name;
  std::vector<std::string> typesOnlyA, typesOnlyB;
  std::vector<Change> typesMoved;  // to another number
  std::vector<Change> params;
  std::vector<TableChange> tables;
  size_t placementsA = 0, placementsB = 0;
  std::vector<int> onlyA, onlyB;
  std::vector<PlacementChange> changed;

  bool Nothing() const {
    return typesOnlyA.empty() && typesOnlyB.empty() && typesMoved.empty() && params.empty() &&
           tables.empty() && onlyA.empty() && onlyB.empty() && changed.empty();
  }
};

/// A block as it is at a time, ticks. Its tables must agree with each other.
struct BlockAt {
  const IParamBlock2& block;
  TimeValue time;
};

/// Answers for what the blocks refer to.
struct References {
  /// Whether two targets are the same thing of the two scenes; `where` tells who refers to them.
  std::function<bool(ReferenceTarget* a, ReferenceTarget* b, const std::string& where)> same;
  /// A target as JSON, for people.
  std::function<std::string(ReferenceTarget*)> text;
};

ObjectChange CompareObjects(const std::string& name, const BlockAt& a, const BlockAt& b,
                            const References& refs);

/// The values of two placements that differ, in the order of kPlacementParts, as JSON.
class PlacementValues {
 public:
  PlacementValues(const BlockAt& a, const BlockAt& b);
  ~PlacementValues();
  std::vector<Change> Of(const PlacementChange& change) const;

 private:
  struct Both;
  std::unique_ptr<Both> both_;
};

/// A float as JSON: the shortest number that reads back as the same, or the bits of one that isn't
/// finite.
std::string FloatText(float value);

}  // namespace studio
