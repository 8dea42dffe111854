#include "sowfield/display/bounds.h"

#include <algorithm>

#include "host/scene/node.h"
#include "sowfield/display/lightmodes.h"
#include "sowfield/model/units.h"
#include "sowfield/sources/sourceframe.h"

namespace sowfield {
namespace {

// A source's box about its pivot, turned and scaled as its node is; empty while the node is gone.
Box3 SourceBox(const Distribution& d, const TypeRef& type, TimeValue t, ViewExp* view) {
  if (!type.HasNode())
    return {d.block->GetPoint3(Geo_BoxMin, t, type.type),
            d.block->GetPoint3(Geo_BoxMax, t, type.type)};
  INode* node = d.SourceNode(type);
  Object* source = node ? node->EvalWorldState(t).obj : nullptr;
  if (!source) return {};
  Box3 box;
  source->GetLocalBoundBox(t, node, view, box);
  return TransformCorners(box, SourceTurn(node, t));
}

// The boxes of the positions of each type.
std::vector<Box3> PositionsByType(const IParamBlock2& block, int types) {
  const std::span<const Point3> positions = block.Points(Ins_Pos);
  const std::span<const int> typeOf = block.Ints(Ins_Type);
  std::vector<Box3> boxes{size_t(types)};
  for (size_t p = 0; p < positions.size(); ++p) boxes[size_t(typeOf[p])] += positions[p];
  return boxes;
}

// What the Z offsets of all rows can add together above and below.
void AddZOffsets(const IParamBlock2& block, Box3& box) {
  const std::span<const int> random = block.Ints(Tr_Random);
  const std::span<const float> a = block.Floats(Tr_ZPos_Min), b = block.Floats(Tr_ZPos_Max);
  for (size_t row = 0; row < random.size(); ++row) {
    const float hi = random[row] ? std::max(a[row], b[row]) : a[row];
    const float lo = random[row] ? std::min(a[row], b[row]) : a[row];
    if (hi >= 0) box.pmax.z += hi;
    if (lo < 0) box.pmin.z += lo;
  }
}

}  // namespace

float ScaleMargin(const IParamBlock2& block, TimeValue t) {
  constexpr float kSpare = 0.01f;
  const auto largest = [&](int row) {
    const bool unified = block.GetInt(Tr_Unify, t, row) != 0;
    const float first = block.GetFloat(unified ? Tr_XScale_Min : Tr_ZScale_Min, t, row);
    if (!block.GetInt(Tr_Random, t, row)) return first;
    return std::max(first, block.GetFloat(unified ? Tr_XScale_Max : Tr_ZScale_Max, t, row));
  };
  float ofTypes = kSpare;
  for (int row = 1; row < block.Count(Tr_Random); ++row)
    ofTypes = std::max(ofTypes, largest(row) * kPercent - 1);
  return kSpare + largest(0) * kPercent + ofTypes;
}

Box3 LightBounds(const Distribution& d, TimeValue t, ViewExp* view, const Box3& marker,
                 const Matrix3& objectTM) {
  const IParamBlock2& block = *d.block;
  Box3 box = TransformCorners(marker, objectTM);
  // A hidden marker would stand on the object's origin.
  const Point3 center = box.IsEmpty() ? objectTM.GetTrans() : box.Center();

  if (d.TypeCount() > 0 && TablesAgree(d)) {
    const float margin = ScaleMargin(block, t);
    const std::vector<Box3> positions = PositionsByType(block, d.TypeCount());
    for (const TypeRef& type : TypeWalk(block)) {
      const Box3& at = positions[size_t(type.type)];
      if (at.IsEmpty()) continue;
      const Box3 source = SourceBox(d, type, t, view);
      if (source.IsEmpty()) continue;
      // Rounding keeps the order of sums, so the outermost positions give the very box that all
      // positions would, one by one. A margin below 0 turns the source's corners round.
      for (const Point3& corner : {source.pmin * margin, source.pmax * margin}) {
        box += at.pmin + corner;
        box += at.pmax + corner;
      }
    }
  }
  if (box.IsEmpty()) return box;
  box.pmin -= center;
  box.pmax -= center;
  if (TablesAgree(d)) AddZOffsets(block, box);
  return box;
}

}  // namespace sowfield
