#include "sowfield/model/typedata.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include "host/interface.h"

namespace sowfield {

TypeData DataOfMesh(const Mesh& mesh, SampleShuffle how) {
  TypeData data;
  data.vertices = mesh.getNumVerts();
  data.faces = mesh.getNumFaces();
  data.box = mesh.getBoundingBox();

  for (const std::uint32_t i : SampleOrder(mesh.verts.size(), how))
    data.samples.push_back(mesh.verts[i]);
  return data;
}

void AppendTypeData(Distribution& d, const TypeData& data) {
  IParamBlock2& block = *d.block;
  const int samples = int(data.samples.size());
  block.Append(Geo_VertCount, 1, &data.vertices);
  block.Append(Geo_FaceCount, 1, &data.faces);
  block.Append(Geo_PointCount, 1, &samples);
  block.Append(Geo_Points, samples, data.samples.data());
  block.Append(Geo_BoxMax, 1, &data.box.pmax);
  block.Append(Geo_BoxMin, 1, &data.box.pmin);
}

Box3 BoxOf(const Distribution& d, int type) {
  return {d.block->GetPoint3(Geo_BoxMin, d.curTime, type),
          d.block->GetPoint3(Geo_BoxMax, d.curTime, type)};
}

Point3 TurnedBoxSize(const Distribution& d, const TypeRef& type) {
  const Point3 size = BoxOf(d, type.type).Width();
  const INode* node = d.SourceNode(type);
  return node ? VectorTransform(size, node->GetNodeTM(d.curTime)) : size;
}

bool IsOfSources(ParamID id) {
  return id == Geo_Kind || id == Geo_Nodes || id == Geo_BoxMin || id == Geo_BoxMax ||
         id == Proxy_Files;
}

namespace {

void AddRadiusOf(const Distribution& d, const TypeRef& type, float& smallest) {
  if (BoxOf(d, type.type).IsEmpty()) return;
  const Point3 s = TurnedBoxSize(d, type);
  smallest = std::min(smallest, (std::fabs(s.x) + std::fabs(s.y)) * 0.25f);  // drops NaN
}

float LeastRadiusOf(const Distribution& d) {
  float smallest = std::numeric_limits<float>::infinity();
  for (const TypeRef& t : TypeWalk(*d.block)) AddRadiusOf(d, t, smallest);
  return smallest;
}

float MinimumFor(Distribution& d, float leastRadius) {
  d.leastRadius = {leastRadius, d.curTime};
  const auto largest = float(FindParam(Brush_Size)->panel.high);
  return leastRadius <= largest ? leastRadius : 0;
}

}  // namespace

void TakeBrushMinimum(Distribution& d) {
  const float minimum = MinimumFor(d, LeastRadiusOf(d));
  if (std::exchange(d.brushMinimum, minimum) != minimum) d.Tell(Event::BrushLimitsChanged);
}

std::optional<float> KnownLeastRadius(const Distribution& d) {
  if (d.TypeCount() == 0) return std::numeric_limits<float>::infinity();
  if (!d.leastRadius || d.leastRadius->t != d.curTime) return std::nullopt;
  return d.leastRadius->value;
}

void RecomputeBrushMinimum(Distribution& d, std::optional<float> leastBefore) {
  if (leastBefore) {
    AddRadiusOf(d, d.LastType(), *leastBefore);
  } else {
    leastBefore = LeastRadiusOf(d);
  }
  d.brushMinimum = MinimumFor(d, *leastBefore);
  for (const Param id : {Brush_LineSize, Brush_Size})
    if (d.block->GetFloat(id, d.curTime) < d.brushMinimum)
      d.block->SetValue(id, d.curTime, d.brushMinimum);
  d.Tell(Event::BrushLimitsChanged);
}

void AddToObjectsLayer(INode* node) {
  static const WStr kName = L"Vorn_Sowfield_Objects";
  ILayerManager& layers = GetCOREInterface()->GetLayerManager();
  const WStr current = layers.GetCurrentLayer()->GetName();
  if (!layers.GetLayer(kName)) layers.CreateLayer(kName);
  layers.SetCurrentLayer(kName);
  layers.GetCurrentLayer()->AddToLayer(node);
  layers.SetCurrentLayer(current);
}

}  // namespace sowfield
