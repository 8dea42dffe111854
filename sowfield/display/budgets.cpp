#include "sowfield/display/budgets.h"

#include "host/interface.h"
#include "sowfield/model/displaymode.h"
#include "sowfield/model/placementfilter.h"

namespace sowfield {

DisplayCost CostOfDisplay(const Distribution& d) {
  const IParamBlock2& block = *d.block;
  const PlacementFilter filter(d, d.curTime, kShownType);
  std::vector<long long> count(size_t(d.TypeCount()), 0);
  for (const int t : block.Ints(Ins_Type)) ++count[size_t(t)];

  const long long percent = block.GetInt(PointCloud, d.curTime);
  const std::span<const int> vertices = block.Ints(Geo_VertCount);
  const std::span<const int> samples = block.Ints(Geo_PointCount);
  DisplayCost cost;
  for (size_t t = 0; t < count.size(); ++t) {
    if (!filter.TakesType(int(t))) continue;
    cost.placements += count[t];
    cost.vertices += count[t] * vertices[t];
    cost.cloudPoints += count[t] * percent * (samples[t] / 100 + 1);
  }
  return cost;
}

namespace {

void Lower(Distribution& d, TimeValue t, int mode) {
  static constexpr const wchar_t* kTo[] = {L"None", L"Dot", nullptr, nullptr, L"Pyrimad"};
  if (d.PanelsOpen()) {
    const WStr text = WStr(L"There are too many polys to show, it will now switch to ") + kTo[mode];
    GetCOREInterface()->Boxes().Show(L"Too Many Polys", text, host::BoxKind::Warning);
  }
  d.block->SetValue(Display_Mode, t, mode);
}

}  // namespace

void ApplyBudgets(Distribution& d, TimeValue t) {
  const DisplayCost cost = CostOfDisplay(d);
  const auto mode = [&] { return d.block->GetInt(Display_Mode, t); };

  if (mode() >= kShowOriginal && cost.vertices > 40'000'000) Lower(d, t, kShowPyramid);
  if (mode() == kShowSquirrel && 800 * cost.placements > 15'000'000) Lower(d, t, kShowPyramid);
  if (mode() == kShowPyramid && 4 * cost.placements > 4'000'000) Lower(d, t, kShowDot);
  if (mode() == kShowCloud && cost.cloudPoints > 3'000'000) {
    Lower(d, t, kShowPyramid);
    if (d.PanelsOpen()) d.block->SetValue(PointCloud, t, 1);
  }
  if (mode() == kShowBox && 8 * cost.placements > 1'000'000) Lower(d, t, kShowPyramid);
  if (mode() == kShowDot && cost.placements > 3'000'000) Lower(d, t, kShowNone);
}

}  // namespace sowfield
