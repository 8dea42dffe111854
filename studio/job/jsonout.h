#pragma once

#include <cstddef>
#include <string>

#include "host/files/jsonout.h"

namespace studio {

using host::JsonOut;

/// Digits in groups of three: 1,234,567.
std::string Grouped(long long n);
/// "1 node", "2,000 nodes".
std::string Counted(size_t n, const char* what);
/// A message whose lines are at most 2,000 bytes long or so: what users name may be of any length,
/// and a longer line loses its middle, which is told.
std::string Bounded(const std::string& message);

}  // namespace studio
