#include "sowfield/model/invariants.h"

#include <cmath>
#include <numeric>

#include "host/scene/modifier.h"
#include "host/scene/node.h"
#include "sowfield/model/classids.h"
#include "sowfield/model/distribution.h"

namespace sowfield {
namespace {

std::string Name(Param id) { return ToUtf8(FindParam(id)->name); }

std::string CountBreach(const IParamBlock2& block, Param id, long long expected) {
  const long long found = block.Count(id);
  if (found == expected) return {};
  return Name(id) + " has " + std::to_string(found) + " entries, expected " +
         std::to_string(expected);
}

template <class T>
std::string OutOfRange(const ParamEntry& e, size_t index, T value, const Range& range) {
  const std::string place = e.IsTable() ? "[" + std::to_string(index) + "]" : "";
  return Name(e.id) + place + " is " + NumberText(value) + ", allowed is " + RangeText(range);
}

// The first entry outside its hard range. What a controller stands for isn't read.
std::string ValueBreach(const IParamBlock2& block, const ParamEntry& e) {
  const Range range = HardRangeIn(block, e);
  if (range == Range{} || block.GetController(e.id)) return {};
  const std::span<const int> ints = block.Ints(e.id);
  for (size_t i = 0; i < ints.size(); ++i)
    if (!range.Contains(ints[i])) return OutOfRange(e, i, ints[i], range);
  const std::span<const float> floats = block.Floats(e.id);
  for (size_t i = 0; i < floats.size(); ++i)
    if (!range.Contains(floats[i])) return OutOfRange(e, i, floats[i], range);
  const std::span<const Point3> points = block.Points(e.id);
  for (size_t i = 0; i < points.size(); ++i)
    for (int axis = 0; axis < 3; ++axis)
      if (!range.Contains(points[i][axis])) return OutOfRange(e, i, points[i][axis], range);
  return {};
}

struct Counts {
  long long types, nodeTypes, fileTypes, rendererProxies, samples, placements, variation;
  bool setUp;  // slot 0 exists
};

long long ExpectedCount(const IParamBlock2& block, const ParamEntry& e, const Counts& n) {
  switch (e.form) {
    case IndexForm::Scalar:
      return 1;
    case IndexForm::Type:
      return n.types;
    case IndexForm::NodeType:
      return n.nodeTypes;
    case IndexForm::FileType:
      return n.fileTypes;
    case IndexForm::RendererProxyType:
      return n.rendererProxies;
    case IndexForm::Slot:
      return n.setUp ? n.types + 1 : 0;
    case IndexForm::RandomBlock:
      return n.setUp ? (n.types + 1) * kBlockSize : 0;
    case IndexForm::Placement:
      return n.placements;
    case IndexForm::Samples:
      return n.samples;
    case IndexForm::Variation:
      return n.variation;
    case IndexForm::Free:
      break;
  }
  return block.Count(e.id);
}

Counts CountsOf(const IParamBlock2& block) {
  Counts n{};
  n.types = block.Count(Geo_Kind);
  for (const TypeRef& t : TypeWalk(block)) {
    ++(t.HasNode() ? n.nodeTypes : n.fileTypes);
    if (t.HasOriginal()) ++n.rendererProxies;
  }
  const std::span<const int> samples = block.Ints(Geo_PointCount);
  n.samples = std::accumulate(samples.begin(), samples.end(), 0LL);
  n.placements = block.Count(Ins_Pos);
  // They are brought to the number of types and variants when they are needed, and not before.
  n.variation = block.Count(HueRand);
  n.setUp = n.types > 0 || n.placements > 0 || block.Count(Tr_Random) > 0;
  return n;
}

std::string SourceBreach(const IParamBlock2& block) {
  const std::span<INode* const> nodes = block.Nodes(Geo_Nodes);
  for (size_t i = 0; i < nodes.size(); ++i)
    if (!CanBeSource(nodes[i]))
      return Name(Geo_Nodes) + "[" + std::to_string(i) + "] holds " +
             (nodes[i] ? "a Sowfield object, \"" + ToUtf8(nodes[i]->GetName()) + "\"" : "no node");
  return {};
}

std::string AnimBreach(const IParamBlock2& block) {
  const int count = block.Count(Rnd_Anim);
  if (count != 0 && count != kAnimTableSize) return CountBreach(block, Rnd_Anim, kAnimTableSize);
  const std::span<const int> on = block.Ints(Tr_AnimOn);
  for (size_t t = 0; t < on.size(); ++t)
    if (on[t] && count == 0)
      return Name(Tr_AnimOn) + "[" + std::to_string(t) + "] is on, but Rnd_Anim is empty";
  return {};
}

bool IsNormalRow(Param id) {
  return id == Tr_Normal_Min || id == Tr_Normal_Max || id == Rnd_Normal;
}

bool LacksNormalRows(const IParamBlock2& block) {
  return block.Count(Tr_Normal_Min) + block.Count(Tr_Normal_Max) == 0 &&
         block.Count(Rnd_Normal) == 0 && block.Count(Tr_Random) > 0;
}

std::string FirstOf(const IParamBlock2& block, Role role) {
  for (const ParamEntry& e : AllParams())
    if (e.role == role)
      if (std::string b = ValueBreach(block, e); !b.empty()) return b;
  return {};
}

std::string TableBreachIn(const IParamBlock2& block, bool normalRows) {
  // All counts follow from the kinds.
  if (std::string b = ValueBreach(block, *FindParam(Geo_Kind)); !b.empty()) return b;
  const Counts n = CountsOf(block);
  for (const ParamEntry& e : AllParams())
    if (const long long expected = ExpectedCount(block, e, n); normalRows || !IsNormalRow(e.id))
      if (std::string b = CountBreach(block, e.id, expected); !b.empty()) return b;
  if (std::string b = SourceBreach(block); !b.empty()) return b;
  if (std::string b = FirstOf(block, Role::Kept); !b.empty()) return b;
  return AnimBreach(block);
}

}  // namespace

Range HardRangeIn(const IParamBlock2& block, const ParamEntry& e) {
  switch (e.id) {
    case Proxy_MtlIndex:
      return {e.hard.low, block.Count(Proxy_Mtls) - 1.0};
    case Ins_Type:
      return {e.hard.low, block.Count(Geo_Kind) - 1.0};
    case Display_Type:
      return {e.hard.low, double(block.Count(Geo_Kind))};
    default:
      return e.hard;
  }
}

bool CanBeSource(const INode* node) {
  const Object* base = node ? FindBaseObject(node->GetObjectRef()) : nullptr;
  return node && !(base && base->ClassID() == kSowfieldClassID);
}

std::string FirstBreach(const IParamBlock2& block) {
  const std::string tables = TableBreachIn(block, true);
  return tables.empty() ? FirstOf(block, Role::Editable) : tables;
}

std::string FirstBreachAsStored(const IParamBlock2& block) {
  return TableBreachIn(block, !LacksNormalRows(block));
}

}  // namespace sowfield
