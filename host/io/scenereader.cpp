#include <algorithm>
#include <cstring>
#include <memory>
#include <unordered_map>

#include "host/core/notify.h"
#include "host/core/session.h"
#include "host/interface.h"
#include "host/io/sceneclasses.h"
#include "host/io/scenefile.h"
#include "host/scene/modifier.h"
#include "host/scene/node.h"

namespace host {

using nlohmann::json;

namespace {

// Holds what has been made until the scene refers to it; what it never refers to goes with this.
class Nursery : public ReferenceTarget {
 public:
  ~Nursery() override {
    for (size_t i = children_.size(); i-- > 0;) LetGo(children_[i]);
  }
  void Take(ReferenceTarget* child) {
    children_.push_back(child);
    ReferTo(child);
  }
  RefResult NotifyRefChanged(const Interval&, ReferenceTarget*, PartID&, RefMessage) override {
    return REF_FAIL;
  }
  void ForgetTarget(ReferenceTarget* target) override {
    for (ReferenceTarget*& c : children_)
      if (c == target) LetGo(std::exchange(c, nullptr));
  }

 private:
  std::vector<ReferenceTarget*> children_;
};

// Nodes may refer to one another through their objects: a ring of them would keep itself alive.
void Dismantle(std::unique_ptr<Scene> scene) {
  std::vector<Pin<INode>> nodes;
  for (INode* n : scene->AllNodes()) nodes.emplace_back(n);
  for (const Pin<INode>& n : nodes) n->DeleteAllRefsFromMe();
}

struct DismantleScene {
  void operator()(Scene* scene) const { Dismantle(std::unique_ptr<Scene>(scene)); }
};

struct OpenedScene {
  std::unique_ptr<Scene, DismantleScene> scene;
  Interval range;
  TimeValue time = 0;
  UnitType unit = UNITS_METERS;
  float unitScale = 1;
};

class SceneReader {
 public:
  SceneReader(const SceneIn& in, const json& value) : in_(in), value_(value) {}

  OpenedScene Read(SceneIn& ids) {
    opened_.scene.reset(new Scene);
    ReadWhole();
    MakeNodes(ids);
    MakeThings(ids);
    // Objects with blocks come last: they would hear of each change of what they refer to.
    for (size_t i = 0; i < nodes_.size(); ++i) {
      const Made m{nodes_[i], &ListOf(value_, "nodes")[i]};
      Within(m, [&] { FillNode(*nodes_[i], *m.value); });
    }
    for (const bool blocks : {false, true})
      for (const Made& m : things_)
        if (HasBlock(m) == blocks) Within(m, [&] { FillThing(m); });
    CheckRings();
    opened_.scene->CountNames();
    return std::move(opened_);
  }

 private:
  struct Made {
    ReferenceTarget* thing;
    const json* value;
  };

  template <class F>
  void Within(const Made& m, F work) {
    try {
      work();
    } catch (const SceneFault& f) {
      throw SceneFault(LabelOf(*m.value) + ": " + f.what());
    }
  }

  // `object "sow" (0x7)`, by the first node that shows it.
  std::string LabelOf(const json& value) const {
    std::string name;
    const json* named = &value;
    if (value.contains("nodes") && value["nodes"].is_array() && !value["nodes"].empty())
      if (const auto* node = dynamic_cast<const INode*>(in_.Ref(value["nodes"][0])))
        name = ToUtf8(node->GetName());
    if (named->contains("name") && (*named)["name"].is_string()) name = (*named)["name"];
    std::string label = value.contains("className") && value["className"].is_string()
                            ? value["className"].get<std::string>()
                            : std::string(value.contains("super") ? "thing" : "node");
    if (!name.empty()) label += " \"" + name + "\"";
    if (value.contains("id") && value["id"].is_string())
      label += " (" + value["id"].get<std::string>() + ")";
    return label;
  }

  void ReadWhole() {
    const json& units = MemberOf(value_, "units");
    opened_.unit = UnitType(
        IntOf(MemberOf(units, "type"), UNITS_INCHES, UNITS_KILOMETERS, "the type of the unit"));
    opened_.unitScale = FloatOf(MemberOf(units, "scale"), "the scale of the unit");
    const json& range = ListOf(value_, "range");
    if (range.size() != 2) throw SceneFault("the time range is no pair of numbers");
    opened_.range = {IntOf(range[0], INT_MIN, INT_MAX, "the time range"),
                     IntOf(range[1], INT_MIN, INT_MAX, "the time range")};
    opened_.time = IntOf(MemberOf(value_, "time"), INT_MIN, INT_MAX, "the time");
    ILayerManager& layers = opened_.scene->Layers();
    for (const json& l : ListOf(value_, "layers")) {
      const WStr name = TextOf(MemberOf(l, "name"), "the name of a layer");
      ILayer* layer = layers.GetLayer(name);
      if (!layer) layer = layers.CreateLayer(name);
      layer->Hide(FlagOf(MemberOf(l, "hidden"), "whether a layer is hidden"));
    }
    const json& current = MemberOf(value_, "currentLayer");
    if (!layers.SetCurrentLayer(TextOf(current, "the current layer")))
      throw SceneFault("there is no layer " + current.dump());
  }

  void MakeNodes(SceneIn& ids) {
    std::unordered_map<const INode*, int> depths;
    for (const json& value : ListOf(value_, "nodes")) {
      auto* node = new INode(L"");
      nursery_.Take(node);
      nodes_.push_back(node);
      Within({node, &value}, [&] {
        node->SetName(TextOf(MemberOf(value, "name"), "the name"));
        INode* parent = opened_.scene->GetRootNode();
        if (value.contains("parent")) parent = in_.RefTo<INode>(value["parent"], "the parent");
        if (!parent) throw SceneFault("its parent is missing");
        const int depth = depths[node] = depths[parent] + 1;
        if (depth > kDeepestSceneNode)
          throw SceneFault("it lies deeper than " + std::to_string(kDeepestSceneNode) + " nodes");
        parent->AttachChild(node, false);
        ids.Add(MemberOf(value, "id"), node);
      });
    }
  }

  void MakeThings(SceneIn& ids) {
    for (const json& value : ListOf(value_, "things")) {
      const Made made{nullptr, &value};
      Within(made, [&] {
        const SClass_ID super = HexOf(MemberOf(value, "super"), "the super class");
        const Class_ID id = ClassOf(MemberOf(value, "class"), "the class");
        ReferenceTarget* thing = nullptr;
        if (const SceneClass* known = FindSceneClass(super, id)) {
          thing = known->make();
        } else if (ClassDesc2* desc = CoreSession::InForce().classes.Find(super, id);
                   desc && value.contains("block")) {
          thing = desc->Create(true);
        } else {
          thing = MakeUnknownThing(super, id);
        }
        if (!thing) throw SceneFault("nothing here can stand for a thing of this class");
        nursery_.Take(thing);
        things_.push_back({thing, &value});
        ids.Add(MemberOf(value, "id"), thing);
      });
    }
  }

  static bool HasBlock(const Made& made) {
    const ReferenceTarget& thing = *made.thing;
    return !FindSceneClass(thing.SuperClassID(), thing.ClassID()) &&
           !dynamic_cast<const UnknownThing*>(&thing);
  }

  void FillThing(const Made& made) {
    const json& value = *made.value;
    ReferenceTarget& thing = *made.thing;
    auto* object = dynamic_cast<Object*>(&thing);
    const SceneClass* known = FindSceneClass(thing.SuperClassID(), thing.ClassID());
    if (HasBlock(made)) {
      FillBlock(object, MemberOf(value, "block"));
      for (const json& ref : ListOf(value, "refs")) FillRef(*object, ref);
    } else if (known) {
      known->read(in_, thing, MemberOf(value, "data"));
    } else {
      json rest = value;
      rest.erase("id");
      rest.erase("nodes");
      dynamic_cast<UnknownThing&>(thing).kept = in_.Keep(rest);
    }
    if (!object) return;
    for (const json& ref : ListOf(value, "nodes")) {
      INode* node = in_.RefTo<INode>(ref, "a node that shows it");
      if (!node || node->GetObjectRef())
        throw SceneFault("a node that shows it is missing, or shows another object");
      node->ReplaceReference(INode::kObjectRef, object);
    }
  }

  // Which kinds of things an object takes, only its class knows: one that holds a mesh gets one.
  void FillRef(Object& object, const json& value) {
    const int i = IntOf(MemberOf(value, "index"), 0, object.NumRefs() - 1, "a reference's index");
    auto* target = in_.RefTo<TriObject>(MemberOf(value, "to"), "a reference");
    if (object.GetReference(i) && object.GetReference(i) != target &&
        object.GetReference(i) == object.GetParamBlock(0))
      throw SceneFault("reference " + std::to_string(i) + " is its parameter block");
    object.ReplaceReference(i, target);
  }

  // The block is filled before the object gets it: no message reaches a half-loaded object.
  void FillBlock(Object* object, const json& value) {
    IParamBlock2* made = object ? object->GetParamBlock(0) : nullptr;
    if (!made) throw SceneFault("objects of its class have no parameter block");
    const int id = IntOf(MemberOf(value, "id"), 0, INT16_MAX, "the id of the block");
    if (id != made->ID())
      throw SceneFault("its block has the id " + std::to_string(id) + ", expected " +
                       std::to_string(made->ID()));
    auto* block = new IParamBlock2(*made->GetDesc(), nullptr);
    nursery_.Take(block);
    ReadBlock(in_, *block, value);
    for (int i = 0; i < object->NumRefs(); ++i)
      if (object->GetReference(i) == made) {
        object->ReplaceReference(i, block);
        return;
      }
    throw SceneFault("its parameter block can't be exchanged");
  }

  void FillNode(INode& node, const json& value) {
    node.SetWireColor(HexOf(MemberOf(value, "wire"), "the wire colour"));
    node.Hide(FlagOf(MemberOf(value, "hidden"), "whether it is hidden"));
    node.SetRenderable(FlagOf(MemberOf(value, "renderable"), "whether it is renderable"));
    node.SetObjectOffset(MatrixOf(MemberOf(value, "offset"), "the object offset"));
    if (value.contains("layer")) {
      const json& layer = value["layer"];
      ILayer* found = opened_.scene->Layers().GetLayer(TextOf(layer, "the layer"));
      if (!found) throw SceneFault("there is no layer " + layer.dump());
      node.SetLayer(found);
    }
    if (value.contains("material")) node.SetMtl(in_.RefTo<Mtl>(value["material"], "the material"));
    SetStillMatrix(node, MatrixOf(MemberOf(value, "matrix"), "the matrix"),
                   value.contains("control")
                       ? in_.RefTo<TransformControl>(value["control"], "the controller")
                       : nullptr);
  }

  // A material or a stack within itself would never end.
  void CheckRings() {
    std::unordered_map<const ReferenceTarget*, int> state;  // 1 on the way down, 2 done
    for (const Made& m : things_) {
      if (const auto* mtl = dynamic_cast<const Mtl*>(m.thing)) CheckMaterial(mtl, state, 0);
      const auto* below = dynamic_cast<const DerivedObject*>(m.thing);
      for (int depth = 0; below; ++depth) {
        if (depth > kDeepestText) throw SceneFault(LabelOf(*m.value) + ": its stack has no end");
        below = dynamic_cast<const DerivedObject*>(below->GetObjRef());
      }
    }
  }
  void CheckMaterial(const Mtl* mtl, std::unordered_map<const ReferenceTarget*, int>& state,
                     int depth) {
    int& at = state[mtl];
    if (at == 2) return;
    if (at == 1 || depth > kDeepestText)
      throw SceneFault("the material \"" + ToUtf8(mtl->GetName()) + "\" lies within itself");
    at = 1;
    for (int i = 0; i < mtl->NumSubMtls(); ++i)
      if (const Mtl* sub = mtl->GetSubMtl(i)) CheckMaterial(sub, state, depth + 1);
    state[mtl] = 2;
  }

  const SceneIn& in_;
  const json& value_;
  OpenedScene opened_;
  Nursery nursery_;
  std::vector<INode*> nodes_;
  std::vector<Made> things_;
};

// Parsing copes with any depth; what walks the tree afterwards doesn't.
void CheckTextDepth(const std::string& text) {
  int depth = 0;
  bool quoted = false;
  for (size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (quoted) {
      if (c == '\\') ++i;
      if (c == '"') quoted = false;
    } else if (c == '"') {
      quoted = true;
    } else if (c == '{' || c == '[') {
      if (++depth > kDeepestText) throw SceneFault("its description lies too deep");
    } else if (c == '}' || c == ']') {
      --depth;
    }
  }
}

json ParseScene(const GlbContent& content) {
  std::string text = content.json;
  const size_t mark = text.find(kCrcMark);
  if (mark == std::string::npos || mark + kCrcMark.size() + 8 > text.size())
    throw SceneFault("it is no scene that this program saved");
  const size_t at = mark + kCrcMark.size();
  const std::string expected = text.substr(at, 8);
  text.replace(at, 8, "00000000");
  const std::string found = CrcText(Crc32c(std::as_bytes(std::span(text))));
  if (found != expected)
    throw SceneFault("its description is damaged: its checksum is " + found + ", expected " +
                     expected);
  CheckTextDepth(text);
  return json::parse(text);
}

OpenedScene ReadScene(const ByteSource& source) {
  GlbContent content;
  std::string why;
  if (!ReadGlb(source, content, why)) throw SceneFault(why);
  const json root = ParseScene(content);
  const json& scene = MemberOf(MemberOf(root, "extensions"), kSceneExtension);
  const int version = IntOf(MemberOf(scene, "version"), 1, INT_MAX, "the version");
  if (version > kSceneVersion)
    throw SceneFault("it has version " + std::to_string(version) + " of " + kSceneExtension +
                     ", this program reads up to " + std::to_string(kSceneVersion));
  SceneIn in(source, content, root);
  return SceneReader(in, scene).Read(in);
}

// Puts a scene with its time and units in force; what was there before is in `other` then.
void Exchange(Interface& ip, OpenedScene& other) {
  const OpenedScene& o = other;
  const Interval range = ip.GetAnimRange();
  const TimeValue time = ip.GetTime();
  const UnitType unit = ip.MasterUnitType();
  const float scale = ip.MasterUnitScale();
  ip.SetAnimRange(o.range);
  ip.SetTime(o.time, false);
  ip.SetMasterUnit(o.unit, o.unitScale);
  other.scene.reset(ip.ExchangeScene(std::unique_ptr<Scene>(other.scene.release())).release());
  other.range = range, other.time = time, other.unit = unit, other.unitScale = scale;
}

bool Open(Interface& ip, const ByteSource& source, const std::string& name,
          const OpenOptions& options, std::string& error) {
  if (theHold.Holding() || theHold.RestoreOrRedoing() != 0) {
    error = "cannot open \"" + name + "\": an undo step is open";
    return false;
  }
  std::string why;
  BroadcastNotification({NOTIFY_FILE_PRE_OPEN});
  OpenedScene opened;
  try {
    opened = ReadScene(source);
    Exchange(ip, opened);
  } catch (const SceneFault& f) {
    why = f.what();
  } catch (const json::exception& e) {
    why = std::string("its description can't be read: ") + e.what();
  } catch (const std::bad_alloc&) {
    why = "there isn't enough memory";
  }
  BroadcastNotification({NOTIFY_FILE_POST_OPEN});
  if (why.empty() && options.accept) {
    why = options.accept(ip.GetScene());
    if (!why.empty()) Exchange(ip, opened);
  }
  if (!why.empty()) {
    error = "cannot open \"" + name + "\": " + why;
    return false;
  }
  // The steps know the old nodes: they go first.
  CoreSession::InForce().hold.Clear();
  opened.scene.reset();
  ip.RedrawViews(ip.GetTime());
  return true;
}

}  // namespace

bool OpenScene(Interface& ip, const std::string& path, const OpenOptions& options,
               std::string& error) {
  FileSource file;
  return file.Open(path, error) && Open(ip, file, path, options, error);
}

bool OpenSceneBytes(Interface& ip, std::span<const std::byte> bytes, const std::string& name,
                    const OpenOptions& options, std::string& error) {
  return Open(ip, MemorySource(bytes), name, options, error);
}

bool LooksLikeScene(const std::string& path) {
  FileSource file;
  std::string why;
  if (!file.Open(path, why)) return false;
  // The text comes first; a broken header is no reason not to look.
  std::uint32_t head[5] = {};
  if (!file.Read(0, std::as_writable_bytes(std::span(head)))) return false;
  const size_t text = std::max(size_t(head[3]), size_t(1) << 20);
  std::string start(std::min(file.Size(), sizeof head + text), '\0');
  if (!file.Read(0, std::as_writable_bytes(std::span(start)))) return false;
  return start.find("\"generator\":\"Sowfield\"") != std::string::npos ||
         start.find(kSceneExtension) != std::string::npos;
}

}  // namespace host
