#include "sowfield/model/placementfilter.h"

#include <algorithm>

#include "host/interface.h"

namespace sowfield {
namespace {

void TellExclusion(const Distribution& d, TimeValue t) {
  const bool asked = d.block->GetInt(Excl_On, t) && d.block->Count(Excl_Splines) > 0;
  if (asked && !d.exclusionTold)
    GetCOREInterface()->PrintToListener(
        L"Sowfield: exclusion splines don't take effect yet; no placement is left out.\n");
  d.exclusionTold = asked;
}

}  // namespace

PlacementFilter::PlacementFilter(const Distribution& d, TimeValue t, unsigned tests)
    : block_(*d.block), takes_(size_t(d.TypeCount()), 1) {
  const int shown = tests & kShownType ? block_.GetInt(Display_Type, t) - 1 : -1;
  for (size_t type = 0; shown >= 0 && type < takes_.size(); ++type)
    takes_[type] = int(type) == shown;
  if (tests & kExclusion) TellExclusion(d, t);
}

Places PlacementFilter::Passing() const {
  const std::span<const int> types = block_.Ints(Ins_Type);
  if (std::find(takes_.begin(), takes_.end(), 0) == takes_.end()) return Places::All(types.size());
  std::vector<std::uint32_t> list;
  for (size_t p = 0; p < types.size(); ++p)
    if (TakesType(types[p])) list.push_back(std::uint32_t(p));
  return Places(std::move(list));
}

}  // namespace sowfield
