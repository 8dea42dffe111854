#pragma once

#include <unordered_map>

#include "host/core/reference.h"

namespace host {

/// How deep materials and maps may lie in one another, and stacks of modifiers.
inline constexpr int kDeepestThing = 1000;

/// Finds materials, maps and stacks that lie within themselves, which would never end, or too deep.
class RingFinder {
 public:
  /// The first one at fault from `thing` downwards; null if there is none. May be asked again once
  /// that one has let go or is gone.
  const ReferenceTarget* FirstBad(const ReferenceTarget* thing) { return Look(thing, 0); }

 private:
  const ReferenceTarget* Look(const ReferenceTarget* thing, int depth);

  // How many lie under one another from a thing on; 0 while it is being looked at. What is at fault
  // has none.
  std::unordered_map<const ReferenceTarget*, int> heights_;
};

}  // namespace host
