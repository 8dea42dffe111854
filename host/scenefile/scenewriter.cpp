#include <algorithm>
#include <filesystem>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>

#include "host/core/progress.h"
#include "host/core/session.h"
#include "host/exchange/sceneplan.h"
#include "host/gltf/gltfwriter.h"
#include "host/interface.h"
#include "host/scene/node.h"
#include "host/scenefile/sceneclasses.h"
#include "host/scenefile/scenecontainer.h"
#include "host/scenefile/scenefile.h"
#include "host/scenefile/scenerecords.h"
#include "host/scenefile/scenerings.h"

namespace host {

using nlohmann::json;

namespace {

std::vector<INode*> NodesOf(const ReferenceTarget& object) {
  std::vector<INode*> nodes;
  for (ReferenceTarget* d : object.Dependents())
    if (d->SuperClassID() == BASENODE_CLASS_ID)
      if (auto* node = static_cast<INode*>(d); node->InScene() && node->GetObjectRef() == &object)
        nodes.push_back(node);
  return nodes;
}

json NodeValue(SceneOut& out, INode& node) {
  json value = {{"id", out.Id(&node)},
                {"name", ToUtf8(node.GetName())},
                {"wire", HexValue(node.GetWireColor())},
                {"hidden", node.IsHidden()},
                {"renderable", node.Renderable()},
                {"matrix", MatrixValue(StillMatrixOf(node))},
                {"offset", MatrixValue(node.GetObjectOffset())}};
  if (!node.GetParentNode()->IsRootNode()) value["parent"] = out.Ref(node.GetParentNode());
  if (node.GetLayer()) value["layer"] = ToUtf8(node.GetLayer()->GetName());
  // The object's own description names its nodes, in the order in which they came to show it.
  out.Ref(node.GetObjectRef());
  if (node.GetMtl()) value["material"] = out.Ref(node.GetMtl());
  if (ReferenceTarget* control = node.GetReference(INode::kTMRef))
    value["control"] = out.Ref(control);
  return value;
}

// What a thing is called in messages.
std::string LabelOf(const ReferenceTarget& thing) {
  WStr name;
  thing.GetClassName(name);
  std::string label = "\"" + ToUtf8(name) + "\"";
  if (const std::vector<INode*> nodes = NodesOf(thing); !nodes.empty())
    label += " of the node \"" + ToUtf8(nodes.front()->GetName()) + "\"";
  return label;
}

void CheckStored(const ReferenceTarget& thing) {
  ClassDesc2* desc = CoreSession::InForce().classes.Find(thing.SuperClassID(), thing.ClassID());
  if (const std::string fault = desc ? desc->FirstFault(thing) : ""; !fault.empty())
    throw SceneFault("it could not be opened again: " + fault);
}

json ThingValue(SceneOut& out, ReferenceTarget& thing) {
  WStr name;
  thing.GetClassName(name);
  json value;
  if (const auto* unknown = dynamic_cast<const UnknownThing*>(&thing)) {
    value = out.Kept(*unknown->kept);
  } else {
    value = {{"super", HexValue(thing.SuperClassID())},
             {"class", ClassValue(thing.ClassID())},
             {"className", ToUtf8(name)}};
    if (const SceneClass* known = FindSceneClass(thing.SuperClassID(), thing.ClassID())) {
      value["data"] = known->write(out, thing);
    } else {
      CheckStored(thing);
      value.update(PluginValue(out, thing));
    }
  }
  value["id"] = out.Id(&thing);
  if (dynamic_cast<Object*>(&thing)) {
    json nodes = json::array();
    for (const INode* n : NodesOf(thing)) nodes.push_back(json{{"ref", out.Id(n)}});
    value["nodes"] = std::move(nodes);
  }
  return value;
}

json SceneValue(Interface& ip, SceneOut& out, const std::vector<INode*>& nodes) {
  ILayerManager& layers = ip.GetLayerManager();
  json layerList = json::array();
  for (const ILayer* l : layers.Layers())
    layerList.push_back({{"name", ToUtf8(l->GetName())}, {"hidden", l->IsHidden()}});
  json nodeList = json::array();
  for (size_t i = 0; i < nodes.size(); ++i) {
    TheProgress().At(i, nodes.size());
    nodeList.push_back(NodeValue(out, *nodes[i]));
  }
  json selection = json::array();
  for (INode* n : ip.GetScene().Selection()) selection.push_back(out.Ref(n));
  const json renderer = out.Ref(ip.GetCurrentRenderer());
  json things = json::array();
  RingFinder rings;
  while (ReferenceTarget* thing = out.NextThing()) {
    try {
      if (rings.FirstBad(thing)) throw SceneFault("it lies within itself, or too deep");
      things.push_back(ThingValue(out, *thing));
    } catch (const SceneFault& f) {
      throw SceneFault(LabelOf(*thing) + ": " + f.what());
    }
  }
  const Interval& range = ip.GetAnimRange();
  return {
      {"version", kSceneVersion},
      {"jsonCrc", "00000000"},
      {"units", {{"type", int(ip.MasterUnitType())}, {"scale", FloatValue(ip.MasterUnitScale())}}},
      {"range", {range.Start(), range.End()}},
      {"time", ip.GetTime()},
      {"layers", std::move(layerList)},
      {"currentLayer", ToUtf8(layers.GetCurrentLayer()->GetName())},
      {"nodes", std::move(nodeList)},
      {"selection", std::move(selection)},
      {"renderer", renderer},
      {"things", std::move(things)}};
}

/// A scene that is to be written.
struct Composed {
  BinaryParts parts;
  std::string text;  // members, what viewers see last
  std::vector<std::string> warnings;

  /// The whole text, still without its checksum; `uri` names the file of the bytes of a pair. What
  /// tells of the buffer stands first: no other text can be taken for it.
  std::string TextFor(const std::string& uri) const {
    const std::string buffers = GltfBuffersOf(parts, uri);
    std::string all = "{" + buffers + (buffers.empty() ? "" : ",") + text + "}";
    while (all.size() % 4 != 0) all += ' ';
    return all;
  }
};

// The text's own checksum is taken with zeros in its place.
void Seal(std::string& text) {
  const std::string crc = CrcText(Crc32c(std::as_bytes(std::span(text))));
  text.replace(text.find(kCrcMark) + kCrcMark.size(), crc.size(), crc);
}

void CheckDepth(const std::vector<INode*>& nodes) {
  for (const INode* node : nodes) {
    int depth = 0;
    for (const INode* n = node; !n->IsRootNode(); n = n->GetParentNode()) ++depth;
    if (depth > kDeepestSceneNode)
      throw SceneFault("the node \"" + ToUtf8(node->GetName()) + "\" lies deeper than " +
                       std::to_string(kDeepestSceneNode) + " nodes");
  }
}

// Composes the description and hands it to `write`, which tells its failures itself or throws them.
bool Compose(Interface& ip, const std::string& path, std::string& error,
             const std::function<bool(const Composed&)>& write) {
  const auto fail = [&](const std::string& why) {
    error = "cannot save \"" + path + "\": " + why;
    return false;
  };
  if (theHold.Holding() || theHold.RestoreOrRedoing() != 0) return fail("an undo step is open");
  try {
    const std::vector<INode*> nodes = ip.GetScene().AllNodes();
    CheckDepth(nodes);
    Composed scene;
    SceneOut out(scene.parts, nodes, path);
    json root = {{"asset", {{"version", "2.0"}, {"generator", "Sowfield"}}},
                 {"extensionsUsed", {kSceneExtension}}};
    root["extensions"][kSceneExtension] = SceneValue(ip, out, nodes);
    // A .glb stands for itself wherever it goes; the pictures of a pair stay beside it.
    GltfMembers shown = GltfMembersOf(std::make_shared<const ExportPlan>(PlanOfScene(ip, nodes)),
                                      {path, !IsPairPath(path)}, scene.parts);
    // Nothing in the text names them: who writes the file anew without knowing them drops them.
    AddRecords(root["extensions"][kSceneExtension], scene.parts);
    if (shown.hasInstances) root["extensionsUsed"].push_back(kInstancingExtension);
    scene.text = root.dump();
    scene.text = scene.text.substr(1, scene.text.size() - 2) + "," + shown.text;
    scene.warnings = std::move(shown.warnings);
    return write(scene);
  } catch (const SceneFault& f) {
    return fail(f.what());
  } catch (const std::bad_alloc&) {
    return fail("there isn't enough memory");
  }
}

constexpr const char* kTableChanged = "a table changed its size";

bool WriteOne(const std::string& path, std::string text, const BinaryParts& parts, bool backup,
              std::string& error) {
  RemoveLeftovers(path);
  SafeFile file(path);
  const auto sink = [&](std::span<const std::byte> bytes) { return file.Write(bytes); };
  Seal(text);
  if (file.Open() && WriteGlb(text, parts, sink) && file.Commit(backup)) return true;
  error = file.Error();
  if (error.empty()) throw SceneFault(kTableChanged);
  return false;
}

// What the user named makes way for the scene; what he didn't name does so if it is a scene.
void CheckFree(const std::string& path) {
  std::error_code code;
  if (std::filesystem::exists(path, code) && !LooksLikeScene(path))
    throw SceneFault("it is too large for a .glb, and \"" + path +
                     "\", where it would lie, is no scene");
}

}  // namespace

bool SaveScene(Interface& ip, const std::string& path, const SaveOptions& options,
               std::string& error, SavedScene* saved) {
  SavedScene result{path, 0, {}};
  const auto write = [&](const Composed& scene) {
    const size_t most = std::min(options.mostGlbBytes, kMostGlbBytes);
    result.warnings = scene.warnings;
    if (!IsPairPath(path)) {
      std::string text = scene.TextFor("");
      result.bytes = GlbSize(text, scene.parts);
      if (result.bytes <= most)
        return WriteOne(path, std::move(text), scene.parts, options.backup, error);
      result.path = PairPathFor(path);
      CheckFree(result.path);
    }
    const std::string uri = scene.parts.Size() > 0 ? PairUriFor(result.path) : "";
    return WritePair(result.path, scene.TextFor(uri), scene.parts, options.backup, Seal,
                     result.bytes, error);
  };
  const bool done = Compose(ip, path, error, write);
  if (done && saved) *saved = result;
  return done;
}

bool SaveSceneBytes(Interface& ip, const std::string& path, std::vector<std::byte>& bytes,
                    std::string& error) {
  return Compose(ip, path, error, [&](const Composed& scene) {
    std::string text = scene.TextFor("");
    const size_t size = GlbSize(text, scene.parts);
    if (size > kMostGlbBytes)
      throw SceneFault("it would have " + std::to_string(size) + " bytes, more than a .glb can " +
                       "hold (" + std::to_string(kMostGlbBytes) + ")");
    std::vector<std::byte> written;
    written.reserve(size);
    Seal(text);
    const bool whole = WriteGlb(text, scene.parts, [&](std::span<const std::byte> piece) {
      written.insert(written.end(), piece.begin(), piece.end());
      return true;
    });
    if (!whole) throw SceneFault(kTableChanged);
    bytes = std::move(written);
    return true;
  });
}

}  // namespace host
