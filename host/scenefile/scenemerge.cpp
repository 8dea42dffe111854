#include "host/scenefile/scenemerge.h"

#include <nlohmann/json.hpp>
#include <unordered_map>
#include <unordered_set>

#include "host/scenefile/sceneclasses.h"

namespace host {

namespace {

constexpr const char* kUnitNames[] = {"inches",      "feet",   "miles",     "millimetres",
                                      "centimetres", "metres", "kilometres"};

std::string UnitText(UnitType unit, float scale) {
  return FloatValue(scale).dump() + " x " + kUnitNames[unit];
}

// Names that no node of either scene has. Each base is counted on from its last number, for names
// only ever come.
class NewNames {
 public:
  NewNames(const std::vector<INode*>& present, const std::vector<INode*>& coming) {
    for (const INode* n : present) taken_.insert(n->GetName());
    used_ = taken_;
    for (const INode* n : coming) used_.insert(n->GetName());
  }
  /// Whether a node of the present scene has it.
  bool Taken(const WStr& name) const { return taken_.contains(name); }
  WStr Make(const WStr& base) {
    for (int& number = last_[base];;) {
      const WStr name = Scene::Numbered(base, ++number);
      if (used_.insert(name).second) return name;
    }
  }

 private:
  std::unordered_set<WStr> taken_, used_;
  std::unordered_map<WStr, int> last_;
};

}  // namespace

MergedScene Adopt(Interface& ip, OpenedScene& opened) {
  Scene &present = ip.GetScene(), &coming = *opened.scene;
  const std::vector<INode*> nodes = coming.AllNodes();
  MergedScene merged;
  merged.nodes = nodes.size();
  if (opened.unit != ip.MasterUnitType() || opened.unitScale != ip.MasterUnitScale())
    merged.warning = "a scene unit of the file is " + UnitText(opened.unit, opened.unitScale) +
                     ", here " + UnitText(ip.MasterUnitType(), ip.MasterUnitScale()) +
                     ": numbers stay as they are";
  NewNames names(present.AllNodes(), nodes);
  std::vector<INode*> renamed;
  for (INode* n : nodes)
    if (names.Taken(n->GetName())) {
      merged.renamed.emplace_back(n->GetName(), names.Make(n->GetName()));
      renamed.push_back(n);
    }
  std::unordered_map<const ILayer*, ILayer*> layers;
  for (const ILayer* from : coming.Layers().Layers()) {
    ILayer* to = present.Layers().GetLayer(from->GetName());
    if (!to) {
      to = present.Layers().CreateLayer(from->GetName());
      to->Hide(from->IsHidden());
    }
    layers.emplace(from, to);
  }

  coming.ClearNodeSelection();
  for (size_t i = 0; i < renamed.size(); ++i) renamed[i]->SetName(merged.renamed[i].second);
  for (INode* n : nodes)
    if (n->GetLayer()) n->SetLayer(layers.at(n->GetLayer()));
  TakeChildren(*coming.GetRootNode(), *present.GetRootNode());
  present.CountNames();
  return merged;
}

}  // namespace host
