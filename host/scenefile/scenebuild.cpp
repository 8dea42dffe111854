#include "host/scenefile/scenebuild.h"

#include <algorithm>
#include <climits>
#include <nlohmann/json.hpp>
#include <unordered_map>

#include "host/core/progress.h"
#include "host/core/session.h"
#include "host/scene/modifier.h"
#include "host/scene/node.h"
#include "host/scenefile/sceneclasses.h"
#include "host/scenefile/scenefile.h"
#include "host/scenefile/scenerings.h"

namespace host {

using nlohmann::json;

namespace {

// Holds what has been made until the scene refers to it; what it never refers to goes with this.
class Nursery : public ReferenceTarget {
 public:
  ~Nursery() override {
    if (!finished_) TakeApart();
    for (size_t i = children_.size(); i-- > 0;) LetGo(children_[i]);
  }
  void Take(ReferenceTarget* child) {
    children_.push_back(child);
    ReferTo(child);
  }
  /// The scene is whole, and its things may refer to one another.
  void Finish() { finished_ = true; }
  /// All who refer to it let go. What an unknown thing keeps of it stays until that goes.
  void Drop(ReferenceTarget* child) {
    child->DeleteAllRefsToMe();
    ReferTo(child);
    LetGo(child);
  }
  RefResult NotifyRefChanged(const Interval&, ReferenceTarget*, PartID&, RefMessage) override {
    return REF_FAIL;
  }
  void ForgetTarget(ReferenceTarget* target) override {
    for (ReferenceTarget*& c : children_)
      if (c == target) LetGo(std::exchange(c, nullptr));
  }

 private:
  // A ring that ended the reading would keep itself alive.
  void TakeApart() {
    std::vector<Pin<ReferenceTarget>> alive;
    for (ReferenceTarget* c : children_) alive.emplace_back(c);
    for (const Pin<ReferenceTarget>& c : alive)
      if (c) c->DeleteAllRefsFromMe();
  }

  std::vector<ReferenceTarget*> children_;
  bool finished_ = false;
};

// The phases in which things are filled. A stack finds its modifiers filled, since one that is
// dropped can't leave it. Things of plug-ins come last: they would hear of each change of what they
// refer to.
enum class Filled { Modifiers, Others, Plugins };

class SceneBuilder {
 public:
  SceneBuilder(SceneIn& in, const json& value) : in_(in), value_(value) {}

  OpenedScene Build() {
    opened_.scene.reset(new Scene);
    ReadWhole();
    in_.Try([&] { MakeNodes(); });
    in_.Try([&] { MakeThings(); });
    for (const Made& m : nodes_)
      Within(*m.value, [&] { FillNode(static_cast<INode&>(*m.thing), *m.value); });
    for (const Filled phase : {Filled::Modifiers, Filled::Others, Filled::Plugins})
      for (Made& m : things_)
        if (m.thing && PhaseOf(*m.thing) == phase) DropUnless(m, [&] { FillThing(m); });
    CheckRings();
    AskClasses();
    in_.Try([&] { ReadSelection(); });
    in_.Try([&] {
      opened_.scene->SetRenderer(in_.RefTo<Renderer>(MemberOf(value_, "renderer"), "the renderer"));
    });
    opened_.scene->CountNames();
    nursery_.Finish();
    return std::move(opened_);
  }

 private:
  struct Made {
    ReferenceTarget* thing;
    const json* value;
  };

  // Faults name the thing. False as Try.
  template <class F>
  bool Within(const json& value, F work) {
    const Losses::Naming naming(in_.GetLosses(), [&] { return LabelOf(value); });
    try {
      work();
      return true;
    } catch (const SceneFault& f) {
      if (!in_.GetLosses()) throw SceneFault(LabelOf(value) + ": " + f.what());
      in_.GetLosses()->Add(f.what());
      return false;
    }
  }

  // The same of a thing that goes if it can't be read.
  template <class F>
  void DropUnless(Made& made, F work) {
    Within(*made.value, [&] {
      try {
        work();
      } catch (const SceneFault& f) {
        if (!in_.GetLosses()) throw;
        Drop(made);
        throw SceneFault(std::string("is dropped: ") + f.what());
      }
    });
  }

  void Drop(Made& made) {
    if (const auto id = made.value->find("id"); id != made.value->end()) in_.Drop(*id, made.thing);
    ReferenceTarget* thing = std::exchange(made.thing, nullptr);
    if (!thing) return;
    if (auto* unknown = dynamic_cast<UnknownThing*>(thing); unknown && !unknown->kept) {
      auto kept = std::make_shared<KeptValues>();
      *kept->tree = {{"super", HexValue(thing->SuperClassID())},
                     {"class", ClassValue(thing->ClassID())}};
      unknown->kept = std::move(kept);
    }
    nursery_.Drop(thing);
  }

  // `object "sow" (0x7)`, by the first node that shows it.
  std::string LabelOf(const json& value) const {
    const auto text = [&](const char* member) {
      const auto found = value.is_object() ? value.find(member) : value.end();
      return found != value.end() && found->is_string() ? found->get<std::string>() : std::string();
    };
    std::string name = text("name"), label = Short(text("className"));
    if (value.contains("nodes") && value["nodes"].is_array() && !value["nodes"].empty())
      if (const auto* node = dynamic_cast<const INode*>(in_.Find(value["nodes"][0])))
        name = ToUtf8(node->GetName());
    if (label.empty()) label = value.contains("super") ? "thing" : "node";
    if (!name.empty()) label += " \"" + Short(name) + "\"";
    if (const std::string id = Short(text("id")); !id.empty()) label += " (" + id + ")";
    return label;
  }

  // One line, of bounded length.
  static std::string Short(std::string text) {
    constexpr size_t kMost = 80;
    if (text.size() > kMost) {
      size_t end = kMost;
      while (end > 0 && (text[end] & 0xC0) == 0x80) --end;
      text = text.substr(0, end) + "...";
    }
    for (char& c : text)
      if (static_cast<unsigned char>(c) < ' ') c = ' ';
    return text;
  }

  void ReadWhole() {
    in_.Try([&] {
      const json& units = MemberOf(value_, "units");
      const int unit =
          IntOf(MemberOf(units, "type"), UNITS_INCHES, UNITS_KILOMETERS, "the type of the unit");
      opened_.unitScale = FloatOf(MemberOf(units, "scale"), "the scale of the unit");
      opened_.unit = UnitType(unit);
    });
    in_.Try([&] {
      const json& range = ListOf(value_, "range");
      if (range.size() != 2) throw SceneFault("the time range is no pair of numbers");
      opened_.range = {IntOf(range[0], INT_MIN, INT_MAX, "the time range"),
                       IntOf(range[1], INT_MIN, INT_MAX, "the time range")};
    });
    in_.Try([&] { opened_.time = IntOf(MemberOf(value_, "time"), INT_MIN, INT_MAX, "the time"); });
    ILayerManager& layers = opened_.scene->Layers();
    in_.Try([&] {
      for (const json& l : ListOf(value_, "layers")) in_.Try([&] { ReadLayer(layers, l); });
    });
    in_.Try([&] {
      const json& current = MemberOf(value_, "currentLayer");
      if (!layers.SetCurrentLayer(TextOf(current, "the current layer")))
        throw SceneFault("there is no layer " + current.dump());
    });
  }

  void ReadSelection() {
    for (const json& ref : ListOf(value_, "selection"))
      in_.Try([&] {
        if (auto* node = in_.RefTo<INode>(ref, "the selection"))
          opened_.scene->SelectNode(node, false);
      });
  }

  static void ReadLayer(ILayerManager& layers, const json& value) {
    const WStr name = TextOf(MemberOf(value, "name"), "the name of a layer");
    ILayer* layer = layers.GetLayer(name);
    if (!layer) layer = layers.CreateLayer(name);
    layer->Hide(FlagOf(MemberOf(value, "hidden"), "whether a layer is hidden"));
  }

  void MakeNodes() {
    std::unordered_map<const INode*, int> depths;
    for (const json& value : ListOf(value_, "nodes")) {
      TheProgress().At(nodes_.size(), value_["nodes"].size());
      if (!value.is_object()) {
        in_.Fault("a node is dropped: it is no object in braces");
        continue;
      }
      auto* node = new INode(L"Node");
      nursery_.Take(node);
      nodes_.push_back({node, &value});
      Within(value, [&] {
        in_.Try([&] { node->SetName(TextOf(MemberOf(value, "name"), "the name")); });
        INode* const root = opened_.scene->GetRootNode();
        INode* parent = root;
        in_.Try([&] { parent = ParentOf(value, root); });
        if (depths[parent] + 1 > kDeepestSceneNode) {
          in_.Fault("it lies deeper than " + std::to_string(kDeepestSceneNode) + " nodes");
          parent = root;
        }
        depths[node] = depths[parent] + 1;
        parent->AttachChild(node, false);
        in_.Add(MemberOf(value, "id"), node);
      });
    }
  }

  INode* ParentOf(const json& value, INode* root) {
    if (!value.contains("parent")) return root;
    auto* parent = in_.RefTo<INode>(value["parent"], "the parent");
    if (!parent) throw SceneFault("its parent is missing");
    return parent;
  }

  void MakeThings() {
    for (const json& value : ListOf(value_, "things")) {
      TheProgress().At(things_.size(), value_["things"].size());
      if (!value.is_object()) {
        in_.Fault("a thing is dropped: it is no object in braces");
        continue;
      }
      Made made{nullptr, &value};
      DropUnless(made, [&] {
        made.thing = MakeThing(value);
        in_.Add(MemberOf(value, "id"), made.thing);
      });
      if (made.thing) things_.push_back(made);
    }
  }

  ReferenceTarget* MakeThing(const json& value) {
    const SClass_ID super = HexOf(MemberOf(value, "super"), "the super class");
    const Class_ID id = ClassOf(MemberOf(value, "class"), "the class");
    ReferenceTarget* thing = nullptr;
    if (const SceneClass* known = FindSceneClass(super, id)) {
      thing = known->make();
    } else if (ClassDesc2* desc = CoreSession::InForce().classes.Find(super, id)) {
      thing = desc->Create(true);
    } else {
      thing = MakeUnknownThing(super, id);
    }
    if (!thing) throw SceneFault("nothing here can stand for a thing of this class");
    nursery_.Take(thing);
    return thing;
  }

  static bool IsPlugin(const ReferenceTarget& thing) {
    return !FindSceneClass(thing.SuperClassID(), thing.ClassID()) &&
           !dynamic_cast<const UnknownThing*>(&thing);
  }

  static Filled PhaseOf(const ReferenceTarget& thing) {
    if (dynamic_cast<const Modifier*>(&thing)) return Filled::Modifiers;
    return IsPlugin(thing) ? Filled::Plugins : Filled::Others;
  }

  void FillThing(const Made& made) {
    const json& value = *made.value;
    ReferenceTarget& thing = *made.thing;
    auto* object = dynamic_cast<Object*>(&thing);
    const SceneClass* known = FindSceneClass(thing.SuperClassID(), thing.ClassID());
    if (IsPlugin(thing)) {
      ReadPlugin(in_, thing, value);
    } else if (known) {
      known->read(in_, thing, MemberOf(value, "data"));
    } else {
      json rest = value;
      rest.erase("id");
      rest.erase("nodes");
      dynamic_cast<UnknownThing&>(thing).kept = in_.Keep(rest);
    }
    if (!object) return;
    in_.Try([&] {
      for (const json& ref : ListOf(value, "nodes")) in_.Try([&] { ShowIn(ref, object); });
    });
  }

  void ShowIn(const json& ref, Object* object) {
    INode* node = in_.RefTo<INode>(ref, "a node that shows it");
    if (!node || node->GetObjectRef())
      throw SceneFault("a node that shows it is missing, or shows another object");
    node->ReplaceReference(INode::kObjectRef, object);
  }

  void FillNode(INode& node, const json& value) {
    in_.Try([&] { node.SetWireColor(HexOf(MemberOf(value, "wire"), "the wire colour")); });
    in_.Try([&] { node.Hide(FlagOf(MemberOf(value, "hidden"), "whether it is hidden")); });
    in_.Try([&] {
      node.SetRenderable(FlagOf(MemberOf(value, "renderable"), "whether it is renderable"));
    });
    in_.Try(
        [&] { node.SetObjectOffset(MatrixOf(MemberOf(value, "offset"), "the object offset")); });
    in_.Try([&] { SetLayer(node, value); });
    in_.Try([&] {
      if (value.contains("material"))
        node.SetMtl(in_.RefTo<Mtl>(value["material"], "the material"));
    });
    TransformControl* control = nullptr;
    in_.Try([&] {
      if (value.contains("control"))
        control = in_.RefTo<TransformControl>(value["control"], "the controller");
    });
    Matrix3 still;
    in_.Try([&] { still = MatrixOf(MemberOf(value, "matrix"), "the matrix"); });
    SetStillMatrix(node, still, control);
  }

  void SetLayer(INode& node, const json& value) {
    if (!value.contains("layer")) return;
    const json& layer = value["layer"];
    ILayer* found = opened_.scene->Layers().GetLayer(TextOf(layer, "the layer"));
    if (found) return node.SetLayer(found);
    in_.Fault("there is no layer " + layer.dump());
    node.SetLayer(opened_.scene->Layers().GetDefaultLayer());
  }

  // The one at fault goes, not those that hold it.
  void CheckRings() {
    RingFinder rings;
    for (Made& m : things_)
      while (const ReferenceTarget* bad = rings.FirstBad(m.thing))
        DropUnless(MadeOf(bad, m), [] { throw SceneFault("it lies within itself, or too deep"); });
  }

  // What only a class can know of its objects.
  void AskClasses() {
    for (Made& m : things_)
      if (ClassDesc2* desc = m.thing ? DescOf(*m.thing) : nullptr)
        DropUnless(m, [&] { AskClass(*desc, m); });
  }

  static ClassDesc2* DescOf(const ReferenceTarget& thing) {
    if (!IsPlugin(thing)) return nullptr;
    return CoreSession::InForce().classes.Find(thing.SuperClassID(), thing.ClassID());
  }

  void AskClass(ClassDesc2& desc, const Made& made) {
    if (in_.GetLosses())
      for (const std::string& line : desc.Repair(*made.thing)) in_.Fault(line);
    for (const std::string& line : desc.Settle(*made.thing))
      opened_.settled.push_back(LabelOf(*made.value) + ": " + line);
    if (const std::string fault = desc.FirstFault(*made.thing); !fault.empty())
      throw SceneFault(in_.GetLosses() ? std::string(kBeyondRepair) + ": " + fault : fault);
  }

  // What a plug-in made within `holder` stands in no description.
  Made& MadeOf(const ReferenceTarget* thing, Made& holder) {
    const auto found = std::find_if(things_.begin(), things_.end(),
                                    [&](const Made& m) { return m.thing == thing; });
    return found == things_.end() ? holder : *found;
  }

  SceneIn& in_;
  const json& value_;
  OpenedScene opened_;
  Nursery nursery_;
  std::vector<Made> nodes_, things_;
};

}  // namespace

void DismantleScene::operator()(Scene* scene) const {
  const std::unique_ptr<Scene> owned(scene);
  std::vector<Pin<INode>> nodes;
  for (INode* n : scene->AllNodes()) nodes.emplace_back(n);
  for (const Pin<INode>& n : nodes) n->DeleteAllRefsFromMe();
}

OpenedScene BuildScene(SceneIn& in, const json& description) {
  return SceneBuilder(in, description).Build();
}

}  // namespace host
