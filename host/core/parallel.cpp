#include "host/core/parallel.h"

#include <algorithm>
#include <atomic>
#include <thread>

#ifdef SOWFIELD_STD_THREADS
#include <exception>
#include <mutex>
#include <vector>
#else
#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>
#include <tbb/task_arena.h>
#endif

namespace host {
namespace {

std::atomic<int> threadsWanted{0};  // 0 until asked

using Body = std::function<void(size_t, size_t)>;

#ifdef SOWFIELD_STD_THREADS

// For the thread sanitizer, which takes the work stealing of the library for races.
void Run(size_t count, size_t grain, const Body& body, int threads) {
  std::atomic<size_t> next{0};
  std::exception_ptr fault;
  std::mutex faultLock;
  const auto work = [&] {
    for (size_t first = next.fetch_add(grain); first < count; first = next.fetch_add(grain)) {
      try {
        body(first, std::min(first + grain, count));
      } catch (...) {
        const std::lock_guard<std::mutex> lock(faultLock);
        if (!fault) fault = std::current_exception();
      }
    }
  };
  std::vector<std::thread> others;
  for (int i = 1; i < threads; ++i) others.emplace_back(work);
  work();
  for (std::thread& t : others) t.join();
  if (fault) std::rethrow_exception(fault);
}

#else

void Run(size_t count, size_t grain, const Body& body, int threads) {
  const auto all = [&] {
    tbb::parallel_for(
        tbb::blocked_range<size_t>(0, count, grain),
        [&](const tbb::blocked_range<size_t>& part) { body(part.begin(), part.end()); },
        tbb::simple_partitioner());
  };
  const int cores = std::max(1, int(std::thread::hardware_concurrency()));
  tbb::task_arena(std::min(threads, cores)).execute(all);
}

#endif

}  // namespace

int ParallelThreads() {
  const int wanted = threadsWanted.load();
  return wanted > 0 ? wanted : std::max(1, int(std::thread::hardware_concurrency()));
}

void SetParallelThreads(int threads) { threadsWanted.store(std::max(threads, 1)); }

void ParallelFor(size_t count, size_t grain, const Body& body) {
  if (count == 0) return;
  grain = std::max<size_t>(grain, 1);
  const int threads = ParallelThreads();
  if (threads > 1 && count > grain) {
    Run(count, grain, body, threads);
    return;
  }
  for (size_t first = 0; first < count; first += grain) body(first, std::min(first + grain, count));
}

}  // namespace host
