#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace studio {

/// A place in the one list and the place in the other that belongs to it; -1 where none does.
struct AlignedPair {
  int a = -1, b = -1;
  bool operator==(const AlignedPair&) const = default;
};

/// What entries of two lists are told apart by; lists as long as the two.
struct AlignKeys {
  std::vector<std::uint64_t> a, b;
};

/// How one list became the other, in the order of both: every place occurs once. `levels` are one
/// or more, from the strictest keys to the loosest; all of them are of the same lengths.
///
/// Equal beginnings and ends belong together. Between them, entries with equal keys do, the first
/// to the first and so on, as many as keep the same order in both lists. What lies between two of
/// these is taken up by the next level in the same way. What no level matched goes together in its
/// order, as far as both lists have some; the rest is on one side alone.
std::vector<AlignedPair> Align(std::span<const AlignKeys> levels);

}  // namespace studio
