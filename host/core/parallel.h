#pragma once

#include <cstddef>
#include <functional>

namespace host {

/// Calls body(first, last) for consecutive parts of [0, count), each of `grain` at most, in any
/// order and on several threads; returns when all are done. The body touches no host object and no
/// generator, and what it makes must not depend on which part comes first. The first exception of
/// a body is thrown on.
void ParallelFor(size_t count, size_t grain, const std::function<void(size_t, size_t)>& body);

/// How many threads ParallelFor uses; the machine's cores at first. 1 keeps all on the caller's.
void SetParallelThreads(int threads);
int ParallelThreads();

}  // namespace host
