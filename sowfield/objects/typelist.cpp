#include "sowfield/objects/typelist.h"

#include <algorithm>
#include <cmath>

#include "host/interface.h"
#include "sowfield/model/listchange.h"
#include "sowfield/model/typerows.h"

namespace sowfield {
namespace {

// The brush of an object's first type: a line as wide as the source, a stroke of a few widths, each
// within the parameter's range.
void SizeBrush(Distribution& d, const TypeData& data, const INode* node) {
  const Point3 s = VectorTransform(data.box.Width(), node->GetNodeTM(d.curTime));
  const float x = std::fabs(s.x), y = std::fabs(s.y);
  const auto set = [&](Param id, float value) {
    const auto most = float(FindParam(id)->panel.high);
    d.block->SetValue(id, d.curTime, value < most ? value : most);
  };
  set(Brush_LineSize, (x + y) * 0.5f);
  set(Brush_Size, (x + y) * 1.75f);
  set(Brush_Collision, std::max(x, y));
  d.Tell(Event::BrushSizeChanged);
  d.Tell(Event::CollisionChanged);
}

// Whether colours can be shifted depends on there being a type.
void TellColorShiftAtFirstOrLast(Distribution& d, int typesBefore) {
  if ((typesBefore == 0) != (d.TypeCount() == 0)) d.Tell(Event::ColorShiftChanged);
}

void ResetLists(Distribution& d) {
  d.lists.SelectObjectRows({});
  d.lists.SelectPainterRows({});
  d.Tell(Event::TypeListChanged);
  d.Tell(Event::PainterListChanged);
  d.Tell(Event::RowControlsChanged);
}

void FitPainterList(Distribution& d) {
  if (!d.block->GetInt(List_Locked, d.curTime))
    d.block->SetValue(Paint_ListExtra, d.curTime, std::max(0, d.TypeCount() - 6));
}

// The nodes of types that lose them.
class LeavingNodes {
 public:
  void Take(const Distribution& d, const TypeRef& type) {
    if (!type.HasNode()) return;
    (type.HasOriginal() ? made_ : scene_).push_back(d.SourceNode(type));
  }
  void TakeOriginal(const Distribution& d, const TypeRef& type) {
    if (type.HasOriginal())
      scene_.push_back(d.block->GetINode(Proxy_Nodes, d.curTime, type.original));
  }
  // Call when the tables agree again: a deletion may reach them.
  void LetGo() const {
    ILayer* layer = GetCOREInterface()->GetLayerManager().GetDefaultLayer();
    for (INode* node : scene_)
      if (node && !IsInUse(node)) layer->AddToLayer(node);
    for (INode* node : made_)
      if (node && !IsInUse(node)) GetCOREInterface()->DeleteNode(node, false, false);
  }

 private:
  std::vector<INode*> scene_, made_;
};

// The type's new place in the tables of nodes and files, by its old kind and the new one.
void ReplaceSource(Distribution& d, const TypeRef& old, const Source& source) {
  IParamBlock2& block = *d.block;
  if (!old.HasNode()) {
    RemoveProxyFile(d, old.file);
    block.Insert(Geo_Nodes, old.node, 1, &source.node);
  } else {
    block.SetValue(Geo_Nodes, d.curTime, source.node, old.node);
  }
  const bool hasOriginal = source.kind == kFromVRayProxy;
  if (old.HasOriginal() && hasOriginal) {
    block.SetValue(Proxy_Nodes, d.curTime, source.picked, old.original);
  } else if (old.HasOriginal()) {
    block.Delete(Proxy_Nodes, old.original, 1);
  } else if (hasOriginal) {
    block.Insert(Proxy_Nodes, old.original, 1, &source.picked);
  }
}

}  // namespace

bool AddType(Distribution& d, INode* node) {
  if (!WhyNotASource(node, d.curTime).empty()) return false;
  IParamBlock2& block = *d.block;
  const int before = d.TypeCount();
  // A node that another type shows, or that has children, moves more than itself.
  const bool alone = !IsInUse(node) && node->NumberOfChildren() == 0;
  const std::optional<float> least = alone ? KnownLeastRadius(d) : std::nullopt;
  AddToObjectsLayer(node);

  ListChange change(d, L"Adding Geo");
  {
    const Source source(node, d.curTime);
    block.Append(Geo_Kind, 1, &source.kind);
    AppendTypeData(d, source.data);
    if (before == 0) SizeBrush(d, source.data, source.node);
    source.MovePivotToFloor(Source::Before::Reset);
    block.Append(Geo_Nodes, 1, &source.node);
    if (source.kind == kFromVRayProxy) block.Append(Proxy_Nodes, 1, &source.picked);
  }
  RecomputeBrushMinimum(d, least);
  AppendTypeRows(d);
  block.Append(Geo_Names, 1, &node->GetName());
  change.Accept();

  ResetLists(d);
  TellColorShiftAtFirstOrLast(d, before);
  FitPainterList(d);
  d.Tell(Event::VariationsDropped);
  return true;
}

int AddTypesByName(Distribution& d, std::span<INode* const> nodes) {
  if (nodes.empty()) return 0;
  int added = 0;
  for (INode* n : nodes) added += AddType(d, n);
  d.RefreshObject();
  return added;
}

bool ReplaceType(Distribution& d, INode* node) {
  const int row = d.lists.objectListCount == 1 ? d.lists.objectListFirst : 0;
  if (row < 1 || row > d.TypeCount() || !WhyNotASource(node, d.curTime).empty()) return false;
  IParamBlock2& block = *d.block;
  AddToObjectsLayer(node);

  ListChange change(d, L"Replace Geo");
  const TypeRef old = d.FindType(row - 1);
  LeavingNodes leaving;
  leaving.Take(d, old);
  {
    const Source source(node, d.curTime);
    block.SetValue(Geo_Kind, d.curTime, source.kind, old.type);
    ReplaceTypeData(d, old.type, source.data);
    source.MovePivotToFloor(Source::Before::Center);
    ReplaceSource(d, old, source);
  }
  RecomputeBrushMinimum(d);
  block.SetValue(Geo_Names, d.curTime, node->GetName(), old.type);
  leaving.LetGo();
  change.Accept();

  ResetLists(d);
  d.Tell(Event::StatsChanged);
  d.Tell(Event::VariationsDropped);
  return true;
}

int DeleteSelectedTypes(Distribution& d) {
  const int before = d.TypeCount();
  std::vector<int> rows = d.lists.objectRows;
  std::erase_if(rows, [&](int row) { return row < 1 || row > before; });
  if (rows.empty()) return 0;

  ListChange change(d, L"Delete Geo");
  LeavingNodes leaving;
  std::for_each(rows.rbegin(), rows.rend(), [&](int row) {
    const TypeRef type = d.FindType(row - 1);
    leaving.Take(d, type);
    leaving.TakeOriginal(d, type);
    RemoveType(d, type, RemovedBecause::Asked);
  });
  RecomputeBrushMinimum(d);
  leaving.LetGo();
  change.Accept();

  ResetLists(d);
  TellColorShiftAtFirstOrLast(d, before);
  FitPainterList(d);
  d.Tell(Event::StatsChanged);
  d.Tell(Event::VariationsDropped);
  d.RefreshObject();
  return int(rows.size());
}

}  // namespace sowfield
