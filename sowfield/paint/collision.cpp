#include "sowfield/paint/collision.h"

#include <algorithm>
#include <cmath>

namespace sowfield {
namespace {

// Cells twice or half as large as the distance still answer with few look-ups.
constexpr double kWidestReach = 4.0;
constexpr double kNarrowestReach = 0.125;
constexpr double kFurthestCell = 1 << 30;

bool Closer(const Point3& a, const Point3& b, float distance) { return Length(a - b) < distance; }

}  // namespace

CollisionIndex::Cell CollisionIndex::CellOf(double x, double y, double z) const {
  // Far cells fall together at the ends: the order is kept, so no neighbour is missed.
  const auto place = [&](double v) {
    return std::int32_t(std::clamp(std::floor(v / cellSize_), -kFurthestCell, kFurthestCell));
  };
  return {place(x), place(y), place(z)};
}

size_t CollisionIndex::SlotOf(const Cell& cell) const {
  std::uint64_t h = std::uint64_t(std::uint32_t(cell.x)) * 0x9E3779B97F4A7C15ull;
  h = (h ^ std::uint32_t(cell.y)) * 0xC2B2AE3D27D4EB4Full;
  h = (h ^ std::uint32_t(cell.z)) * 0x165667B19E3779F9ull;
  h ^= h >> 32;
  const size_t mask = slots_.size() - 1;
  for (size_t i = h & mask;; i = (i + 1) & mask)
    if (!slots_[i].used || slots_[i].cell == cell) return i;
}

void CollisionIndex::Clear() {
  prepared_ = false;
  count_ = usedSlots_ = 0;
  slots_.clear();
  entries_.clear();
  free_ = kNone;
}

void CollisionIndex::Prepare(std::span<const Point3> positions, float distance) {
  if (!(distance > 0)) return;  // nothing is closer than that
  const double reach = double(distance) / cellSize_;
  if (prepared_ && reach <= kWidestReach && reach >= kNarrowestReach) return;

  Clear();
  prepared_ = true;
  cellSize_ = std::isfinite(distance) ? double(distance) : 1.0;
  entries_.reserve(positions.size());
  slots_.resize(64);
  for (const Point3& p : positions) Insert(p);
}

void CollisionIndex::Grow() {
  std::vector<Slot> old = std::move(slots_);
  size_t occupied = 0;
  for (const Slot& s : old) occupied += s.used && s.first != kNone;
  size_t size = 64;
  while (size < occupied * 4) size *= 2;
  slots_.assign(size, Slot{});
  usedSlots_ = 0;
  for (const Slot& s : old) {
    if (!s.used || s.first == kNone) continue;
    slots_[SlotOf(s.cell)] = s;
    ++usedSlots_;
  }
}

void CollisionIndex::Insert(const Point3& position) {
  if (!IsFinite(position)) return;  // closer to nothing
  if (usedSlots_ * 2 >= slots_.size()) Grow();
  Slot* slot = &slots_[SlotOf(CellOf(position.x, position.y, position.z))];
  if (!slot->used) {
    slot->used = true;
    slot->cell = CellOf(position.x, position.y, position.z);
    slot->first = kNone;
    ++usedSlots_;
  }
  std::uint32_t entry = free_;
  if (entry != kNone) {
    free_ = entries_[entry].next;
  } else {
    entry = std::uint32_t(entries_.size());
    entries_.emplace_back();
  }
  entries_[entry] = {position, slot->first};
  slot->first = entry;
  ++count_;
}

void CollisionIndex::Remove(const Point3& position) {
  if (!IsFinite(position) || slots_.empty()) return;
  Slot& slot = slots_[SlotOf(CellOf(position.x, position.y, position.z))];
  if (!slot.used) return;
  for (std::uint32_t* link = &slot.first; *link != kNone; link = &entries_[*link].next) {
    const std::uint32_t entry = *link;
    if (!(entries_[entry].position == position)) continue;
    *link = entries_[entry].next;
    entries_[entry].next = free_;
    entries_[entry].position.x = NAN;  // out of the plain scan
    free_ = entry;
    --count_;
    return;
  }
}

bool CollisionIndex::AnyCloser(const Point3& point, float distance) const {
  if (!(distance > 0) || count_ == 0 || !IsFinite(point)) return false;

  // The float distance may come out below the true one by its rounding, and by the squares that
  // underflow: the box is widened by more than both.
  const double reach = double(distance) * (1 + 1e-5) + 1e-22;
  const Cell low = CellOf(point.x - reach, point.y - reach, point.z - reach);
  const Cell high = CellOf(point.x + reach, point.y + reach, point.z + reach);
  const double cells =
      (double(high.x) - low.x + 1) * (double(high.y) - low.y + 1) * (double(high.z) - low.z + 1);
  if (!(cells <= std::max<double>(double(count_), 64))) {
    return std::any_of(entries_.begin(), entries_.end(),
                       [&](const Entry& e) { return Closer(point, e.position, distance); });
  }

  for (std::int32_t x = low.x; x <= high.x; ++x)
    for (std::int32_t y = low.y; y <= high.y; ++y)
      for (std::int32_t z = low.z; z <= high.z; ++z) {
        const Slot& slot = slots_[SlotOf({x, y, z})];
        if (!slot.used) continue;
        for (std::uint32_t e = slot.first; e != kNone; e = entries_[e].next)
          if (Closer(point, entries_[e].position, distance)) return true;
      }
  return false;
}

void CollisionIndex::PointsAdded(std::span<const Point3> points) {
  if (!prepared_) return;
  for (const Point3& p : points) Insert(p);
}

void CollisionIndex::PointsRemoved(std::span<const Point3> points) {
  if (!prepared_) return;
  for (const Point3& p : points) Remove(p);
}

}  // namespace sowfield
