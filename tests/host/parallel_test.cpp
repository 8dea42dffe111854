#include "host/core/parallel.h"

#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <vector>

namespace {

TEST(ParallelFor, CoversEachPlaceOnceInPartsOfTheGrainAndPassesExceptionsOn) {
  for (const int threads : {1, 2, 4}) {
    host::SetParallelThreads(threads);
    for (const size_t count : {0u, 1u, 999u, 1000u, 1001u}) {
      std::vector<std::atomic<int>> seen(count);
      std::atomic<bool> sound = true;
      host::ParallelFor(count, 100, [&](size_t first, size_t last) {
        if (first >= last || last - first > 100) sound = false;
        for (size_t i = first; i < last; ++i) ++seen[i];
      });
      EXPECT_TRUE(sound);
      for (const auto& n : seen) ASSERT_EQ(n, 1);
    }
    const auto refuse = [](size_t first, size_t) {
      if (first == 500) throw std::runtime_error("no");
    };
    EXPECT_THROW(host::ParallelFor(1000, 10, refuse), std::runtime_error);
  }
}

}  // namespace
