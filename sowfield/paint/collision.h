#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "host/core/paramblock.h"

namespace sowfield {

/// Answers whether any of a changing set of positions lies closer to a point than a distance,
/// exactly as a plain scan in single precision with `<` would, from a hash grid.
///
/// As the observer of a table it follows edits, undo and redo, so that a stroke need not read the
/// table again. Without Prepare it holds nothing and follows nothing.
class CollisionIndex : public PointTableObserver {
 public:
  /// Makes the index answer for distances about `distance` over these positions. Does nothing when
  /// it does so already: it holds what the table holds, and its cells suit the distance.
  void Prepare(std::span<const Point3> positions, float distance);
  /// Forgets everything.
  void Clear();

  void Insert(const Point3& position);
  void Remove(const Point3& position);
  /// True if |point - Q| < distance for any position Q, worked out in float.
  bool AnyCloser(const Point3& point, float distance) const;
  size_t Count() const { return count_; }

  void PointsAdded(std::span<const Point3> points) override;
  void PointsRemoved(std::span<const Point3> points) override;

 private:
  static constexpr std::uint32_t kNone = 0xFFFFFFFF;
  struct Cell {
    std::int32_t x, y, z;
    bool operator==(const Cell&) const = default;
  };
  struct Slot {
    Cell cell;
    std::uint32_t first = kNone;
    bool used = false;
  };
  struct Entry {
    Point3 position;
    std::uint32_t next;
  };

  Cell CellOf(double x, double y, double z) const;
  size_t SlotOf(const Cell& cell) const;  // the cell's slot, or the free one where it belongs
  void Grow();

  bool prepared_ = false;
  double cellSize_ = 1;
  size_t count_ = 0;
  size_t usedSlots_ = 0;
  std::vector<Slot> slots_;  // a power of two, at most half used
  std::vector<Entry> entries_;
  std::uint32_t free_ = kNone;
};

}  // namespace sowfield
