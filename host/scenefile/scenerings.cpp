#include "host/scenefile/scenerings.h"

#include <algorithm>

#include "host/scene/modifier.h"
#include "host/scene/mtl.h"

namespace host {

namespace {

template <class Visit>
void EachBelow(const ReferenceTarget& thing, Visit visit) {
  if (const auto* stack = dynamic_cast<const DerivedObject*>(&thing)) visit(stack->GetObjRef());
  const auto* base = dynamic_cast<const MtlBase*>(&thing);
  if (!base) return;
  if (const auto* mtl = dynamic_cast<const Mtl*>(base))
    for (int i = 0; i < mtl->NumSubMtls(); ++i) visit(mtl->GetSubMtl(i));
  for (int i = 0; i < base->NumSubTexmaps(); ++i) visit(base->GetSubTexmap(i));
}

}  // namespace

const ReferenceTarget* RingFinder::Look(const ReferenceTarget* thing, int depth) {
  if (!thing || depth >= kDeepestThing) return thing;
  const auto [at, isNew] = heights_.emplace(thing, 0);
  if (!isNew) return at->second == 0 ? thing : nullptr;
  int height = 1;
  const ReferenceTarget* bad = nullptr;
  EachBelow(*thing, [&](const ReferenceTarget* below) {
    if (!below || bad) return;
    bad = Look(below, depth + 1);
    if (!bad) height = std::max(height, heights_.at(below) + 1);
  });
  if (!bad && height > kDeepestThing) bad = thing;
  if (bad) {
    heights_.erase(thing);
  } else {
    heights_[thing] = height;
  }
  return bad;
}

}  // namespace host
