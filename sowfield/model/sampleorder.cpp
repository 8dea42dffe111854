#include "sowfield/model/sampleorder.h"

#include <algorithm>
#include <numeric>
#include <utility>

#include "host/core/session.h"

namespace sowfield {
namespace {

struct Draw {
  std::uint32_t value, most;  // 0 to most
};

// As many draws of 15 bits, the first one uppermost, as it takes to reach n.
Draw DrawBits(std::uint32_t n) {
  Draw draw{std::uint32_t(SystemRand()), std::uint32_t(RAND_LIMIT)};
  while (draw.most < n)
    draw = {draw.value << 15 | std::uint32_t(SystemRand()),
            draw.most << 15 | std::uint32_t(RAND_LIMIT)};
  return draw;
}

// 0 to n.
std::uint32_t DrawUpTo(std::uint32_t n, SampleShuffle how) {
  const std::uint32_t places = n + 1;
  while (true) {
    const Draw draw = DrawBits(n);
    // Above the last whole run of places the draws reach the low ones only.
    const bool fair = draw.value / places < draw.most / places || draw.most % places == n;
    if (fair || how == SampleShuffle::NewType) return draw.value % places;
  }
}

}  // namespace

std::vector<std::uint32_t> SampleOrder(size_t vertices, SampleShuffle how) {
  std::vector<std::uint32_t> order(vertices);
  std::iota(order.begin(), order.end(), 0u);
  const size_t end = how == SampleShuffle::File && vertices > 0 ? vertices - 1 : vertices;
  for (std::uint32_t i = 1; i < end; ++i) std::swap(order[i], order[DrawUpTo(i, how)]);
  order.resize(std::min(vertices, size_t(kMostSamples)));
  return order;
}

}  // namespace sowfield
