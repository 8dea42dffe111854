#include "sowfield/model/typerows.h"

#include <numeric>

#include "host/interface.h"
#include "sowfield/model/listchange.h"

namespace sowfield {
namespace {

void AppendNumber(IParamBlock2& block, const ParamEntry& e, double value) {
  if (e.type == ParamType::Float) {
    const auto v = float(value);
    block.Append(e.id, 1, &v);
  } else {
    const auto v = int(value);
    block.Append(e.id, 1, &v);
  }
}

int FirstSampleOf(const Distribution& d, int type) {
  const std::span<const int> counts = d.block->Ints(Geo_PointCount);
  return std::accumulate(counts.begin(), counts.begin() + type, 0);
}

// What is shown alone stays shown under its new number; without it all is shown, rather than
// nothing.
void FollowShownType(Distribution& d, int gone) {
  const int shown = d.block->GetInt(Display_Type, d.curTime) - 1;
  if (shown >= gone) d.block->SetValue(Display_Type, d.curTime, shown == gone ? 0 : shown);
}

// Drops the placements of the type and lowers those of higher types; leaves all five tables alone
// when that changes nothing.
void RemovePlacementsOf(Distribution& d, int type) {
  IParamBlock2& block = *d.block;
  const std::span<const int> types = block.Ints(Ins_Type);
  std::vector<unsigned char> keep(types.size());
  std::vector<int> kept;
  kept.reserve(types.size());
  bool changes = false;
  for (size_t p = 0; p < types.size(); ++p) {
    keep[p] = types[p] != type;
    if (keep[p]) kept.push_back(types[p] - (types[p] > type));
    changes = changes || types[p] >= type;
  }
  if (!changes) return;

  for (const Param id : kPlacementTables) {
    if (id == Ins_Type) {
      block.Delete(Ins_Type, 0, block.Count(Ins_Type));
      block.Append(Ins_Type, int(kept.size()), kept.data());
    } else {
      block.KeepEntries(id, keep);
    }
  }
}

}  // namespace

void FitShownType(Distribution& d) {
  const int shown = d.block->GetInt(Display_Type, d.curTime);
  if (shown < 0 || shown > d.TypeCount()) d.block->SetValue(Display_Type, d.curTime, 0);
}

void AppendGlobalRow(Distribution& d) {
  if (d.block->Count(Tr_Random) != 0) return;
  for (const Param id : kRowsOfNewType)
    if (const ParamEntry& e = *FindParam(id); e.form == IndexForm::Slot)
      AppendNumber(*d.block, e, e.initial);
  AppendRandomBlock(d);
}

void AppendTypeRows(Distribution& d) {
  for (const Param id : kRowsOfNewType) {
    const ParamEntry& e = *FindParam(id);
    AppendNumber(*d.block, e, e.newEntry);
  }
  AppendRandomBlock(d);
}

void ReplaceSamples(Distribution& d, int type, const TypeData& data) {
  IParamBlock2& block = *d.block;
  const TimeValue t = d.curTime;
  const int first = FirstSampleOf(d, type), samples = int(data.samples.size());
  block.SetValue(Geo_VertCount, t, data.vertices, type);
  block.SetValue(Geo_FaceCount, t, data.faces, type);
  block.Delete(Geo_Points, first, block.GetInt(Geo_PointCount, t, type));
  block.Insert(Geo_Points, first, samples, data.samples.data());
  block.SetValue(Geo_PointCount, t, samples, type);
}

void ReplaceTypeData(Distribution& d, int type, const TypeData& data) {
  ReplaceSamples(d, type, data);
  d.block->SetValue(Geo_BoxMax, d.curTime, data.box.pmax, type);
  d.block->SetValue(Geo_BoxMin, d.curTime, data.box.pmin, type);
}

void RemoveProxyFile(Distribution& d, int file) {
  IParamBlock2& block = *d.block;
  const int material = block.GetInt(Proxy_MtlIndex, d.curTime, file);
  if (material >= 0) {
    for (int i = 0; i < block.Count(Proxy_MtlIndex); ++i)
      if (const int m = block.GetInt(Proxy_MtlIndex, d.curTime, i); m > material)
        block.SetValue(Proxy_MtlIndex, d.curTime, m - 1, i);
    block.Delete(Proxy_Mtls, material, 1);
  }
  block.Delete(Proxy_MtlIndex, file, 1);
  block.Delete(Proxy_Files, file, 1);
}

void RemoveType(Distribution& d, const TypeRef& type, RemovedBecause why) {
  IParamBlock2& block = *d.block;
  const int t = type.type;
  const int firstSample = FirstSampleOf(d, t);
  const auto removeShares = [&] {
    for (const Param id : {Geo_Reserved_C, Geo_PaintPct}) block.Delete(id, t, 1);
  };

  block.Delete(Geo_Kind, t, 1);
  if (type.HasNode()) {
    block.Delete(Geo_Nodes, type.node, 1);
  } else {
    RemoveProxyFile(d, type.file);
  }
  if (type.HasOriginal()) block.Delete(Proxy_Nodes, type.original, 1);
  if (why == RemovedBecause::Asked) removeShares();
  block.Delete(Geo_BoxMax, t, 1);
  block.Delete(Geo_BoxMin, t, 1);
  block.Delete(Geo_Points, firstSample, block.GetInt(Geo_PointCount, d.curTime, t));
  for (const Param id : {Geo_PointCount, Geo_VertCount, Geo_FaceCount}) block.Delete(id, t, 1);
  if (why == RemovedBecause::NodeWent) removeShares();
  for (const Param id : kSlotTables) block.Delete(id, t + 1, 1);
  for (const Param id : kAnimRows) block.Delete(id, t, 1);
  for (const Param id : kRandomTables) block.Delete(id, (t + 1) * kBlockSize, kBlockSize);

  d.lists.SelectObjectRows({});
  d.lists.SelectPainterRows({});
  d.Tell(Event::TypeListChanged);
  d.Tell(Event::PainterListChanged);
  d.Tell(Event::RowControlsChanged);
  block.SetValue(Random_Trans, d.curTime, block.GetInt(Tr_Random, d.curTime, 0));
  block.SetValue(Unify_Scale, d.curTime, block.GetInt(Tr_Unify, d.curTime, 0));

  RemovePlacementsOf(d, t);
  FollowShownType(d, t);
  block.Delete(Geo_Names, t, 1);
}

void RemoveNulledTypes(Distribution& d) {
  IParamBlock2& block = *d.block;
  ListChange change(d, L"Delete");  // within the step that takes the nodes away
  const auto original = [&](const TypeRef& t) {
    return t.HasOriginal() ? block.GetINode(Proxy_Nodes, d.curTime, t.original) : nullptr;
  };
  const auto firstNulled = [&]() -> TypeRef {
    for (const TypeRef& t : TypeWalk(block))
      if ((t.HasNode() && !d.SourceNode(t)) || (t.HasOriginal() && !original(t))) return t;
    return {-1};
  };
  for (TypeRef t = firstNulled(); t.type >= 0; t = firstNulled()) {
    INode* source = d.SourceNode(t);
    INode* other = source ? source : original(t);
    RemoveType(d, t, RemovedBecause::NodeWent);
    if (other) GetCOREInterface()->DeleteNode(other, true, false);
  }
  for (int i = block.Count(Proxy_Nodes); i-- > 0;)
    if (!block.GetINode(Proxy_Nodes, d.curTime, i)) block.Delete(Proxy_Nodes, i, 1);
  change.Accept();
  TakeBrushMinimum(d);
  d.Tell(Event::StatsChanged);
  d.RefreshObject();
}

}  // namespace sowfield
