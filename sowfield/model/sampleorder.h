#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace sowfield {

inline constexpr int kMostSamples = 3000;

/// How the vertices of a mesh are shuffled. Both forms draw from the system's `rand`, 15 bits at a
/// time, and never from an object's generator.
enum class SampleShuffle {
  NewType,  // every vertex takes part; a draw counts by its remainder
  File,     // the last vertex keeps its place; draws that would favour low places are repeated
};

/// The vertices that stand for a mesh as a cloud of points: all of them up to 3000, a random choice
/// of 3000 above, in shuffled order either way.
std::vector<std::uint32_t> SampleOrder(size_t vertices, SampleShuffle how);

}  // namespace sowfield
