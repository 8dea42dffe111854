#include "studio/diff/scenediff.h"

#include <algorithm>
#include <cstring>
#include <deque>
#include <map>
#include <nlohmann/json.hpp>
#include <unordered_map>
#include <unordered_set>

#include "host/scene/node.h"
#include "host/scenefile/sceneclasses.h"
#include "studio/job/jsonout.h"

namespace studio {
namespace {

using nlohmann::json;

std::string Quoted(std::string_view text) { return JsonOut().Text(text).Str(); }

// A value of a description, for people: its floats are single precision.
std::string TextOf(const json& value) {
  if (value.is_array()) {
    std::string text = "[";
    for (const json& v : value) text += (text.size() > 1 ? "," : "") + TextOf(v);
    return text + "]";
  }
  if (value.is_number_float()) return FloatText(value.get<float>());
  return value.dump(-1, ' ', false, json::error_handler_t::replace);
}

/// One scene, described as its file would describe it.
class Side {
 public:
  explicit Side(Stage& stage)
      : stage_(stage), nodes_(stage.Ip().GetScene().AllNodes()), out_(parts_, nodes_) {
    for (INode* n : nodes_) {
      byId_[out_.Id(n).get<std::string>()] = n;
      values_[n] = NodeValue(*n);
    }
    out_.Ref(stage.Ip().GetCurrentRenderer());
    while (ReferenceTarget* thing = out_.NextThing()) {
      byId_[out_.Id(thing).get<std::string>()] = thing;
      values_[thing] = ThingValue(*thing);
      things_.push_back(thing);
    }
  }
  Side(const Side&) = delete;
  Side& operator=(const Side&) = delete;

  Stage& GetStage() const { return stage_; }
  const std::vector<INode*>& Nodes() const { return nodes_; }
  const std::vector<ReferenceTarget*>& Things() const { return things_; }
  const json& ValueOf(const ReferenceTarget* target) const { return values_.at(target); }
  /// Null for null.
  ReferenceTarget* Referred(const json& ref) const {
    return ref.is_null() ? nullptr : byId_.at(ref["ref"].get<std::string>());
  }
  std::span<const std::byte> BytesOf(const json& table) const {
    if (!table.contains("view")) return {};
    const host::BinaryParts::Part& part = parts_.All()[table["view"].get<size_t>()];
    return part.borrowed.empty() ? std::span<const std::byte>(part.owned) : part.borrowed;
  }

 private:
  json NodeValue(INode& node) {
    const INode* parent = node.GetParentNode();
    const ILayer* layer = node.GetLayer();
    return {{"parent", parent->IsRootNode() ? json() : out_.Ref(node.GetParentNode())},
            {"layer", layer ? json(ToUtf8(layer->GetName())) : json()},
            {"wire colour", host::HexValue(node.GetWireColor())},
            {"hidden", node.IsHidden()},
            {"renderable", node.Renderable()},
            {"matrix", host::MatrixValue(host::StillMatrixOf(node))},
            {"object offset", host::MatrixValue(node.GetObjectOffset())},
            {"object", out_.Ref(node.GetObjectRef())},
            {"material", out_.Ref(node.GetMtl())},
            {"controller", out_.Ref(node.GetReference(INode::kTMRef))}};
  }

  json ThingValue(ReferenceTarget& thing) {
    if (const auto* unknown = dynamic_cast<const host::UnknownThing*>(&thing))
      return out_.Kept(*unknown->kept);
    json value;
    auto* object = dynamic_cast<Object*>(&thing);
    if (const auto* known = host::FindSceneClass(thing.SuperClassID(), thing.ClassID())) {
      value = known->write(out_, thing);
    } else {
      value = PluginValue(thing);
    }
    // Which nodes show it is told of the nodes; the order in which they came to do so is its own.
    if (object) {
      json shown = json::array();
      for (ReferenceTarget* d : object->Dependents())
        if (d->SuperClassID() == BASENODE_CLASS_ID)
          if (auto* node = static_cast<INode*>(d); node->InScene())
            if (node->GetObjectRef() == object) shown.push_back(out_.Ref(node));
      if (shown.size() > 1) value["nodes in order"] = std::move(shown);
    }
    return value;
  }

  json PluginValue(const ReferenceTarget& thing) {
    json value = host::PluginValue(out_, thing);
    for (json& block : value["blocks"]) {
      const int index = block["index"];
      block.erase("index");
      value[index == 0 ? "block" : "block " + std::to_string(index)] = std::move(block);
    }
    for (const json& ref : value["refs"]) value["reference " + ref["index"].dump()] = ref["to"];
    value.erase("blocks"), value.erase("refs");
    return value;
  }

  Stage& stage_;
  std::vector<INode*> nodes_;
  host::BinaryParts parts_;
  host::SceneOut out_;
  std::vector<ReferenceTarget*> things_;
  std::unordered_map<std::string, ReferenceTarget*> byId_;
  std::unordered_map<const ReferenceTarget*, json> values_;
};

// Stages tell the present time of the newest host; this is that of their own.
TimeValue TimeOf(Stage& stage) { return stage.TheHost().Core().time; }

std::string NodeName(const INode* node) { return ToUtf8(node->GetName()); }

std::string ClassOf(const ReferenceTarget* thing) {
  WStr name;
  thing->GetClassName(name);
  return name.empty() ? "thing of an unknown class" : ToUtf8(name);
}

std::string OwnName(const ReferenceTarget* thing) {
  const auto* named = dynamic_cast<const MtlBase*>(thing);
  return named ? ToUtf8(named->GetName()) : "";
}

class Comparison {
 public:
  Comparison(Stage& a, Stage& b, const std::optional<std::string>& object)
      : a_(a), b_(b), object_(object) {
    refs_.same = [this](ReferenceTarget* x, ReferenceTarget* y, const std::string& where) {
      return Same(x, y, where);
    };
    refs_.text = [](ReferenceTarget* t) { return TargetText(t); };
  }

  SceneChange Run() {
    PairNodes();
    PairNamed();
    if (!object_) CompareWhole();
    for (const auto& [x, y] : nodes_) {
      if (!object_) {
        CompareNode(x, y);
      } else if (NodeName(x) == *object_ && (Stage::SowfieldOf(x) || Stage::SowfieldOf(y))) {
        const json &a = a_.ValueOf(x)["object"], &b = b_.ValueOf(y)["object"];
        ThingChange change{NodeName(x), {}};
        Refs(a, b, "object", change.changes);
        if (!change.changes.empty()) change_.nodes.push_back(std::move(change));
      }
    }
    while (!waiting_.empty()) {
      const Pair next = waiting_.front();
      waiting_.pop_front();
      CompareThing(next);
    }
    return std::move(change_);
  }

 private:
  struct Pair {
    ReferenceTarget *a, *b;
    std::string where;
  };

  static std::string TargetText(const ReferenceTarget* target) {
    if (!target) return "null";
    if (target->SuperClassID() == BASENODE_CLASS_ID)
      return Quoted(NodeName(static_cast<const INode*>(target)));
    const std::string name = OwnName(target);
    return Quoted(ClassOf(target) + (name.empty() ? "" : " " + name));
  }

  void PairNodes() {
    std::map<WStr, std::deque<INode*>> left;
    for (INode* n : b_.Nodes()) left[n->GetName()].push_back(n);
    for (INode* n : a_.Nodes()) {
      auto& same = left[n->GetName()];
      if (same.empty()) {
        Lone(n, change_.nodesOnlyA);
        continue;
      }
      nodes_.emplace_back(n, same.front());
      Join(n, same.front());
      same.pop_front();
    }
    for (INode* n : b_.Nodes())
      if (!partner_.contains(n)) Lone(n, change_.nodesOnlyB);
  }
  void Lone(INode* node, std::vector<std::string>& list) const {
    if (!object_ || (NodeName(node) == *object_ && Stage::SowfieldOf(node)))
      list.push_back(NodeName(node));
  }

  void Join(ReferenceTarget* x, ReferenceTarget* y) {
    partner_[x] = y;
    partner_[y] = x;
  }

  // So that another choice of a material doesn't look like a change of two.
  void PairNamed() {
    const auto named = [](const Side& side) {
      std::map<std::pair<std::string, std::string>, std::vector<ReferenceTarget*>> names;
      for (ReferenceTarget* t : side.Things())
        if (const std::string name = OwnName(t); !name.empty())
          names[{ClassOf(t), name}].push_back(t);
      return names;
    };
    const auto inA = named(a_), inB = named(b_);
    for (const auto& [name, things] : inA)
      if (const auto found = inB.find(name);
          found != inB.end() && things.size() == 1 && found->second.size() == 1)
        Join(things[0], found->second[0]);
  }

  // Pairs what wasn't met before, and has it compared once.
  bool Same(ReferenceTarget* x, ReferenceTarget* y, const std::string& where) {
    if (!x || !y) return x == y;
    const bool isNode = x->SuperClassID() == BASENODE_CLASS_ID;
    if (const auto found = partner_.find(x); found != partner_.end()) {
      if (found->second != y) return false;
    } else {
      if (isNode || partner_.contains(y) || x->SuperClassID() != y->SuperClassID() ||
          x->ClassID() != y->ClassID())
        return false;
      Join(x, y);
    }
    if (!isNode && met_.insert(x).second) waiting_.push_back({x, y, where});
    return true;
  }

  void CompareWhole() {
    const auto put = [&](const char* what, const json& x, const json& y) {
      if (x.dump() != y.dump()) change_.scene.push_back({what, TextOf(x), TextOf(y)});
    };
    static constexpr const char* kUnits[] = {"inches",      "feet",   "miles",     "millimetres",
                                             "centimetres", "metres", "kilometres"};
    Interface &x = a_.GetStage().Ip(), &y = b_.GetStage().Ip();
    put("unit", kUnits[x.MasterUnitType()], kUnits[y.MasterUnitType()]);
    put("unit scale", host::FloatValue(x.MasterUnitScale()), host::FloatValue(y.MasterUnitScale()));
    const auto range = [](const Interval& r) { return json{r.Start(), r.End()}; };
    put("time range", range(x.GetAnimRange()), range(y.GetAnimRange()));
    put("time", TimeOf(a_.GetStage()), TimeOf(b_.GetStage()));
    for (const bool hidden : {false, true}) {
      const auto layers = [&](Interface& ip) {
        json list = json::array();
        for (const ILayer* l : ip.GetLayerManager().Layers())
          if (!hidden || l->IsHidden()) list.push_back(ToUtf8(l->GetName()));
        return list;
      };
      put(hidden ? "hidden layers" : "layers", layers(x), layers(y));
    }
    const auto current = [](Interface& ip) {
      return json(ToUtf8(ip.GetLayerManager().GetCurrentLayer()->GetName()));
    };
    put("current layer", current(x), current(y));
    const auto selection = [](Interface& ip) {
      json list = json::array();
      for (const INode* n : ip.GetScene().Selection()) list.push_back(ToUtf8(n->GetName()));
      return list;
    };
    put("selection", selection(x), selection(y));
    Renderer *const before = x.GetCurrentRenderer(), *const after = y.GetCurrentRenderer();
    if (!Same(before, after, "the scene"))
      change_.scene.push_back({"renderer", TargetText(before), TargetText(after)});
    OrderOfNodes();
  }

  // Names are told of the first place at which the order differs.
  void OrderOfNodes() {
    std::vector<INode*> inB;
    for (INode* n : b_.Nodes())
      if (partner_.contains(n)) inB.push_back(n);
    for (size_t i = 0; i < nodes_.size(); ++i)
      if (nodes_[i].second != inB[i]) {
        change_.scene.push_back(
            {"order of the nodes", Quoted(NodeName(nodes_[i].first)), Quoted(NodeName(inB[i]))});
        return;
      }
  }

  void CompareNode(INode* x, INode* y) {
    ThingChange change{NodeName(x), {}};
    where_ = "node \"" + NodeName(x) + "\"";
    const json &a = a_.ValueOf(x), &b = b_.ValueOf(y);
    for (const auto& [key, value] : a.items()) Values(value, b[key], key, change.changes);
    if (!change.changes.empty()) change_.nodes.push_back(std::move(change));
  }

  void CompareThing(const Pair& pair) {
    const std::string name = OwnName(pair.a);
    where_ = ClassOf(pair.a) + (name.empty() ? " of " + pair.where : " \"" + name + "\"");
    ThingChange change{where_, {}};
    json a = a_.ValueOf(pair.a), b = b_.ValueOf(pair.b);
    if (pair.a->SuperClassID() == GEOMOBJECT_CLASS_ID && IsSowfield(pair.a)) {
      CompareSowfield(pair);
      // Its declared parameters are compared by their meaning.
      a["block"].erase("params"), b["block"].erase("params");
    }
    Values(a, b, "", change.changes);
    if (!change.changes.empty()) change_.things.push_back(std::move(change));
  }

  static bool IsSowfield(const ReferenceTarget* thing) {
    return dynamic_cast<const sowfield::Sowfield*>(thing) != nullptr;
  }

  void CompareSowfield(const Pair& pair) {
    const auto at = [](ReferenceTarget* thing, const Side& side) {
      return BlockAt{*static_cast<sowfield::Sowfield*>(thing)->pblock2, TimeOf(side.GetStage())};
    };
    const BlockAt x = at(pair.a, a_), y = at(pair.b, b_);
    std::string name;
    for (const auto& [n, m] : nodes_)
      if (name.empty() && n->GetObjectRef() == pair.a) name = NodeName(n);
    ObjectChange change = CompareObjects(name, x, y, refs_);
    if (!change.Nothing()) change_.objects.push_back({std::move(change), x, y});
  }

  static bool IsRef(const json& v) { return v.is_object() && v.contains("ref"); }
  static bool IsTable(const json& v) {
    return v.is_object() && v.contains("count") && v.contains("type");
  }
  static bool IsPlain(const json& v) {
    return !v.is_structured() ||
           (v.is_array() &&
            std::none_of(v.begin(), v.end(), [](const json& e) { return e.is_structured(); }));
  }

  void Values(const json& x, const json& y, const std::string& path, std::vector<Change>& changes) {
    if (IsRef(x) || IsRef(y)) return Refs(x, y, path, changes);
    if (IsTable(x) && IsTable(y)) return Tables(x, y, path, changes);
    if (x.is_object() && y.is_object()) {
      json keys = x;
      keys.update(y);
      for (const auto& [key, value] : keys.items())
        Values(x.value(key, json()), y.value(key, json()), Below(path, key), changes);
    } else if (x.is_array() && y.is_array() && !(IsPlain(x) && IsPlain(y))) {
      Lists(x, y, path, changes);
    } else if (x.dump() != y.dump()) {
      changes.push_back({path, TextOf(x), TextOf(y)});
    }
  }

  // Steps that mean nothing to people are left out.
  static std::string Below(const std::string& path, const std::string& key) {
    for (const char* silent : {"block", "params", "value", "table"})
      if (key == silent) return path;
    return path.empty() ? key : path + "." + key;
  }

  void Lists(const json& x, const json& y, const std::string& path, std::vector<Change>& changes) {
    if (x.size() != y.size())
      changes.push_back({path + " entries", std::to_string(x.size()), std::to_string(y.size())});
    for (size_t i = 0; i < std::min(x.size(), y.size()); ++i) {
      const bool named = x[i].is_object() && x[i].contains("name") && x[i]["name"].is_string();
      Values(x[i], y[i], named ? Below(path, x[i]["name"]) : path + "[" + std::to_string(i) + "]",
             changes);
    }
  }

  void Refs(const json& x, const json& y, const std::string& path, std::vector<Change>& changes) {
    if ((!IsRef(x) && !x.is_null()) || (!IsRef(y) && !y.is_null())) {
      changes.push_back({path, TextOf(x), TextOf(y)});
      return;
    }
    ReferenceTarget *a = a_.Referred(x), *b = b_.Referred(y);
    if (Same(a, b, where_)) return;
    std::string text = TargetText(b);
    if (text == TargetText(a)) text.insert(text.size() - 1, ", another one");
    changes.push_back({path, TargetText(a), text});
  }

  void Tables(const json& x, const json& y, const std::string& path, std::vector<Change>& changes) {
    const auto count = [](const json& t) { return std::to_string(t["count"].get<size_t>()); };
    const std::string type = x["type"];
    if (type != y["type"]) {
      changes.push_back({path, TextOf(x["type"]), TextOf(y["type"])});
    } else if (x["count"] != y["count"]) {
      changes.push_back({path + " entries", count(x), count(y)});
    } else if (const auto a = a_.BytesOf(x), b = b_.BytesOf(y);
               !std::equal(a.begin(), a.end(), b.begin(), b.end())) {
      const size_t size = host::SceneOut::ElementSize(type);
      if (size == 0) {
        changes.push_back({path, "\"" + count(x) + " texts\"", "\"other texts\""});
        return;
      }
      size_t differing = 0;
      for (size_t i = 0; i + size <= a.size(); i += size)
        differing += std::memcmp(&a[i], &b[i], size) != 0 ? 1 : 0;
      changes.push_back({path, "\"" + count(x) + " entries\"",
                         "\"" + std::to_string(differing) + " of them differ\""});
    }
  }

  Side a_, b_;
  const std::optional<std::string>& object_;
  References refs_;
  std::vector<std::pair<INode*, INode*>> nodes_;  // that belong together, in a's order
  std::unordered_map<ReferenceTarget*, ReferenceTarget*> partner_;
  std::unordered_set<ReferenceTarget*> met_;  // of a, whose comparison was asked for
  std::deque<Pair> waiting_;
  std::string where_;
  SceneChange change_;
};

}  // namespace

SceneChange CompareScenes(Stage& a, Stage& b, const std::optional<std::string>& object) {
  return Comparison(a, b, object).Run();
}

}  // namespace studio
