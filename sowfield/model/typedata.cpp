#include "sowfield/model/typedata.h"

#include <algorithm>
#include <cmath>
#include <numeric>

#include "host/core/session.h"
#include "host/interface.h"

namespace sowfield {
namespace {

// 0 to n, from one draw of 15 bits or, for more than it can tell apart, two.
std::uint32_t DrawBelow(std::uint32_t n) {
  auto draw = std::uint32_t(SystemRand());
  if (n > std::uint32_t(RAND_LIMIT)) draw = draw << 15 | std::uint32_t(SystemRand());
  return draw % (n + 1);
}

}  // namespace

TypeData DataOfMesh(const Mesh& mesh) {
  TypeData data;
  data.vertices = mesh.getNumVerts();
  data.faces = mesh.getNumFaces();
  data.box = mesh.getBoundingBox();

  std::vector<std::uint32_t> order(mesh.verts.size());
  std::iota(order.begin(), order.end(), 0u);
  for (std::uint32_t i = 1; i < order.size(); ++i) std::swap(order[i], order[DrawBelow(i)]);
  order.resize(std::min(order.size(), size_t(kMostSamples)));
  for (const std::uint32_t i : order) data.samples.push_back(mesh.verts[i]);
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

Point3 TurnedBoxSize(const Distribution& d, const TypeRef& type) {
  const IParamBlock2& block = *d.block;
  const Point3 size = block.GetPoint3(Geo_BoxMax, d.curTime, type.type) -
                      block.GetPoint3(Geo_BoxMin, d.curTime, type.type);
  const INode* node = d.SourceNode(type);
  return node ? VectorTransform(size, node->GetNodeTM(d.curTime)) : size;
}

void RecomputeBrushMinimum(Distribution& d) {
  if (d.TypeCount() == 0) return;
  float smallest = std::numeric_limits<float>::max();
  for (const TypeRef& t : TypeWalk(*d.block)) {
    const Point3 s = TurnedBoxSize(d, t);
    smallest = std::min(smallest, (std::fabs(s.x) + std::fabs(s.y)) * 0.25f);
  }
  d.brushMinimum = smallest;
  for (const Param id : {Brush_LineSize, Brush_Size})
    if (d.block->GetFloat(id, d.curTime) < smallest) d.block->SetValue(id, d.curTime, smallest);
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
