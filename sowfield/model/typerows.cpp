#include "sowfield/model/typerows.h"

#include <numeric>

#include "host/interface.h"

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

void RemoveType(Distribution& d, const TypeRef& type) {
  IParamBlock2& block = *d.block;
  const int t = type.type;
  const std::span<const int> samples = block.Ints(Geo_PointCount);
  const int firstSample = std::accumulate(samples.begin(), samples.begin() + t, 0);
  const int sampleCount = samples[size_t(t)];

  block.Delete(Geo_Kind, t, 1);
  block.Delete(Geo_Nodes, type.node, 1);
  block.Delete(Geo_BoxMax, t, 1);
  block.Delete(Geo_BoxMin, t, 1);
  block.Delete(Geo_Points, firstSample, sampleCount);
  for (const Param id :
       {Geo_PointCount, Geo_VertCount, Geo_FaceCount, Geo_Reserved_C, Geo_PaintPct})
    block.Delete(id, t, 1);
  for (const Param id : kSlotTables) block.Delete(id, t + 1, 1);
  for (const Param id : kAnimRows) block.Delete(id, t, 1);
  for (const Param id : kRandomTables) block.Delete(id, (t + 1) * kBlockSize, kBlockSize);

  d.lists.SelectObjectRows({});
  d.lists.SelectPainterRows({});
  d.Tell(Event::TypeListChanged);
  d.Tell(Event::PainterListChanged);
  block.SetValue(Random_Trans, d.curTime, block.GetInt(Tr_Random, d.curTime, 0));
  block.SetValue(Unify_Scale, d.curTime, block.GetInt(Tr_Unify, d.curTime, 0));

  RemovePlacementsOf(d, t);
  block.Delete(Geo_Names, t, 1);

  if (type.kind == 3) {
    INode* original = block.GetINode(Proxy_Nodes, d.curTime, type.original);
    block.Delete(Proxy_Nodes, type.original, 1);
    if (original) GetCOREInterface()->DeleteNode(original, true, false);
  }
}

void RemoveNulledTypes(Distribution& d) {
  d.SetListReady(0);
  const auto firstNulled = [&]() -> TypeRef {
    for (const TypeRef& t : TypeWalk(*d.block))
      if (t.HasNode() && !d.SourceNode(t)) return t;
    return {-1};
  };
  for (TypeRef t = firstNulled(); t.type >= 0; t = firstNulled()) RemoveType(d, t);
  d.Tell(Event::StatsChanged);
  d.RefreshObject();
  d.SetListReady(1);
}

}  // namespace sowfield
