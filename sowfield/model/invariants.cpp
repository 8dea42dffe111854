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

// Entry by entry: low <= value <= high.
std::string RangeBreach(const IParamBlock2& block, Param id, int low, int high) {
  const std::span<const int> values = block.Ints(id);
  for (size_t i = 0; i < values.size(); ++i) {
    if (values[i] >= low && values[i] <= high) continue;
    return Name(id) + "[" + std::to_string(i) + "] is " + std::to_string(values[i]) +
           ", allowed is " + std::to_string(low) + " to " + std::to_string(high);
  }
  return {};
}

std::string RandomBreach(const IParamBlock2& block, Param id) {
  const std::span<const float> values = block.Floats(id);
  for (size_t i = 0; i < values.size(); ++i)
    if (!(values[i] >= 0 && values[i] <= 100))
      return Name(id) + "[" + std::to_string(i) + "] is " + std::to_string(values[i]) +
             ", allowed is 0 to 100";
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
  // The variation tables are empty until they were first drawn.
  if (block.Count(HueRand) != 0) n.variation = n.types * block.GetInt(ColorVariation);
  n.setUp = n.types > 0 || n.placements > 0 || block.Count(Tr_Random) > 0;
  return n;
}

std::string TypeValueBreach(const IParamBlock2& block) {
  const int big = std::numeric_limits<int>::max();
  // Only choosing samples ends at 3000. A file or a scene proxy brings as many as it lists, and a
  // file's type that becomes a node again keeps them. They need to agree with Geo_Points, no more.
  for (const Param id : {Geo_PointCount, Geo_VertCount, Geo_FaceCount})
    if (std::string b = RangeBreach(block, id, 0, big); !b.empty()) return b;
  const int materials = block.Count(Proxy_Mtls);
  if (std::string b = RangeBreach(block, Proxy_MtlIndex, -1, materials - 1); !b.empty()) return b;
  for (size_t i = 0; i < block.Nodes(Geo_Nodes).size(); ++i)
    if (const INode* node = block.Nodes(Geo_Nodes)[i]; !CanBeSource(node))
      return Name(Geo_Nodes) + "[" + std::to_string(i) + "] holds " +
             (node ? "a Sowfield object, \"" + ToUtf8(node->GetName()) + "\"" : "no node");
  return {};
}

std::string PlacementValueBreach(const IParamBlock2& block, int types) {
  if (std::string b = RangeBreach(block, Ins_Type, 0, types - 1); !b.empty()) return b;
  if (std::string b = RangeBreach(block, Ins_Rand, 0, kBlockSize - 1); !b.empty()) return b;
  if (std::string b = RangeBreach(block, Ins_AnimRand, 0, kAnimTableSize - 1); !b.empty()) return b;
  for (const Param id : {Ins_Pos, Ins_Normal}) {
    const std::span<const Point3> points = block.Points(id);
    for (size_t i = 0; i < points.size(); ++i)
      if (!IsFinite(points[i]))
        return Name(id) + "[" + std::to_string(i) + "] is not a finite number";
  }
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

std::string FirstBreachIn(const IParamBlock2& block, bool normalRows) {
  if (std::string b = RangeBreach(block, Geo_Kind, 0, kTypeKinds - 1); !b.empty()) return b;
  const Counts n = CountsOf(block);
  for (const ParamEntry& e : AllParams())
    if (const long long expected = ExpectedCount(block, e, n); normalRows || !IsNormalRow(e.id))
      if (std::string b = CountBreach(block, e.id, expected); !b.empty()) return b;
  if (std::string b = TypeValueBreach(block); !b.empty()) return b;
  if (std::string b = PlacementValueBreach(block, int(n.types)); !b.empty()) return b;
  if (std::string b = AnimBreach(block); !b.empty()) return b;
  for (const Param id : kRandomTables)
    if (std::string b = RandomBreach(block, id); !b.empty()) return b;
  return RandomBreach(block, Rnd_Anim);
}

}  // namespace

bool CanBeSource(const INode* node) {
  const Object* base = node ? FindBaseObject(node->GetObjectRef()) : nullptr;
  return node && !(base && base->ClassID() == kSowfieldClassID);
}

std::string FirstBreach(const IParamBlock2& block) { return FirstBreachIn(block, true); }

std::string FirstBreachAsStored(const IParamBlock2& block) {
  const bool none = block.Count(Tr_Normal_Min) + block.Count(Tr_Normal_Max) == 0 &&
                    block.Count(Rnd_Normal) == 0 && block.Count(Tr_Random) > 0;
  return FirstBreachIn(block, !none);
}

}  // namespace sowfield
