// What plug-ins' materials, maps, modifiers and renderers bring to a scene file; the selection.
#include <algorithm>
#include <cstring>
#include <nlohmann/json.hpp>

#include "host/core/builtinclass.h"
#include "host/host.h"
#include "host/io/glb.h"
#include "host/io/scenefile.h"
#include "host/scene/modifier.h"
#include "host/scene/primitives.h"
#include "host/scene/renderer.h"
#include "tests/host/tempfolder.h"

namespace {

using nlohmann::json;

enum : ParamID { kNumbers, kNode, kMtl };

ParamBlockDesc2& Desc(int id) {
  static const std::vector<ParamDef> params = {{kNumbers, L"Numbers", ParamType::Float, true},
                                               {kNode, L"Node", ParamType::Node},
                                               {kMtl, L"Mtl", ParamType::Mtl}};
  static ParamBlockDesc2 descs[] = {{0, L"First", nullptr, params},
                                    {1, L"Second", nullptr, params}};
  return descs[id];
}

// References: the blocks first, then whatever the class has.
template <class Base, int kBlocks, int kOthers = 0>
struct Plug : Base {
  Plug() {
    for (int i = 0; i < kBlocks; ++i) this->ReplaceReference(i, new IParamBlock2(Desc(i), this));
  }
  ~Plug() override { this->DeleteAllRefsFromMe(); }
  int NumRefs() const override { return kBlocks + kOthers; }
  ReferenceTarget* GetReference(int i) const override { return refs[size_t(i)]; }
  void SetReference(int i, ReferenceTarget* t) override { refs[size_t(i)] = t; }
  std::array<ReferenceTarget*, kBlocks + kOthers> refs{};
};

struct PaintMap : Plug<Texmap, 1, 1> {
  static constexpr Class_ID kClassID{0x81, 1};
  Class_ID ClassID() const override { return kClassID; }
  int NumSubTexmaps() const override { return 1; }
  Texmap* GetSubTexmap(int) const override { return static_cast<Texmap*>(refs[1]); }
  void SetSubTexmap(int, Texmap* map) override { ReplaceReference(1, map); }
};

struct PaintMtl : Plug<Mtl, 2, 3> {
  static constexpr Class_ID kClassID{0x81, 2};
  Class_ID ClassID() const override { return kClassID; }
  void GetClassName(WStr& name) const override { name = L"Paint"; }
  int NumSubMtls() const override { return 2; }
  Mtl* GetSubMtl(int i) const override { return static_cast<Mtl*>(refs[size_t(2 + i)]); }
  void SetSubMtl(int i, Mtl* m) override { ReplaceReference(2 + i, m); }
  int NumSubTexmaps() const override { return 1; }
  Texmap* GetSubTexmap(int) const override { return static_cast<Texmap*>(refs[4]); }
  void SetSubTexmap(int, Texmap* map) override { ReplaceReference(4, map); }
  Color GetDiffuse() const override { return {}; }
  void SetDiffuse(const Color&, TimeValue) override {}
};

struct LiftModifier : Plug<Modifier, 1> {
  static constexpr Class_ID kClassID{0x81, 3};
  Class_ID ClassID() const override { return kClassID; }
  const wchar_t* GetObjectName() override { return L"Lift"; }
  void ModifyMesh(TimeValue, Mesh& mesh) const override {
    for (Point3& p : mesh.verts) p.z += static_cast<IParamBlock2*>(refs[0])->GetFloat(kNumbers);
  }
};

struct PaintRenderer : Plug<Renderer, 1> {
  static constexpr Class_ID kClassID{0x81, 4};
  Class_ID ClassID() const override { return kClassID; }
};

struct PluginHost : host::Host {
  explicit PluginHost(bool knowing = true) {
    static host::BuiltinClass<PaintMap> map(TEXMAP_CLASS_ID, PaintMap::kClassID, L"Map");
    static host::BuiltinClass<PaintMtl> mtl(MATERIAL_CLASS_ID, PaintMtl::kClassID, L"Paint");
    static host::BuiltinClass<LiftModifier> lift(OSM_CLASS_ID, LiftModifier::kClassID, L"Lift");
    static host::BuiltinClass<PaintRenderer> renderer(RENDERER_CLASS_ID, PaintRenderer::kClassID,
                                                      L"Renderer");
    if (!knowing) return;
    for (ClassDesc2* c : std::initializer_list<ClassDesc2*>{&map, &mtl, &lift, &renderer})
      Classes().Add(c);
  }
  INode* Node(int i) { return GetScene().AllNodes()[size_t(i)]; }
};

IParamBlock2& BlockOf(const ReferenceTarget* thing, int i = 0) {
  return *static_cast<IParamBlock2*>(thing->GetReference(i));
}

const float kFloats[] = {-0.0f, 2.5f, 1e-45f};

INode* AddBox(PluginHost& host, const WStr& name) {
  INode* node = host.Services().CreateObjectNode(new BoxObject);
  node->SetName(name);
  return node;
}

// Nodes a, b, c: b wears the material, c is lifted by 2.5; c and a are selected.
void Fill(PluginHost& host) {
  INode *a = AddBox(host, L"a"), *b = AddBox(host, L"b"), *c = AddBox(host, L"c");
  auto* mtl = new PaintMtl;
  mtl->SetName(L"coat");
  b->SetMtl(mtl);
  mtl->SetSubMtl(1, new StdMtl);
  auto *outer = new PaintMap, *inner = new PaintMap;
  inner->SetName(L"inner");
  mtl->SetSubTexmap(0, outer);
  outer->SetSubTexmap(0, inner);
  BlockOf(mtl, 0).Append(kNumbers, 3, kFloats);
  BlockOf(mtl, 1).SetValue(kNode, 0, c);
  BlockOf(mtl, 1).SetValue(kMtl, 0, mtl->GetSubMtl(1));
  BlockOf(inner).Append(kNumbers, 2, kFloats);
  auto* stack = new DerivedObject(c->GetObjectRef());
  auto* lift = new LiftModifier;
  BlockOf(lift).Append(kNumbers, 1, &kFloats[1]);
  stack->AddModifier(lift);
  c->SetObjectRef(stack);
  auto* renderer = new PaintRenderer;
  BlockOf(renderer).SetValue(kNode, 0, a);
  host.GetScene().SetRenderer(renderer);
  host.Services().SelectNodeTab(std::array{c, a});
}

class ScenePlugin : public TempFolder {
 protected:
  bool Save(host::Host& host, const std::string& name) {
    return host::SaveScene(host.Services(), Path(name), {}, error_);
  }
  bool Open(host::Host& host, const std::string& name) {
    return host::OpenScene(host.Services(), Path(name), {}, error_);
  }
  // Opens the saved pair with another description, recovering what can be read.
  std::vector<std::string> Recovered(host::Host& host, const json& root) {
    std::string text = root.dump();
    const std::string mark = "\"jsonCrc\":\"";
    const size_t at = text.find(mark) + mark.size();
    text.replace(at, 8, "00000000");
    text.replace(at, 8, host::CrcText(host::Crc32c(std::as_bytes(std::span(text)))));
    Put("changed.gltf", text);
    std::vector<std::string> lost;
    EXPECT_FALSE(Open(host, "changed.gltf"));
    EXPECT_TRUE(host::OpenScene(host.Services(), Path("changed.gltf"), {{}, &lost}, error_));
    return lost;
  }
};

TEST_F(ScenePlugin, ThingsComeBackWithTheirBlocks) {
  PluginHost host;
  Fill(host);
  ASSERT_TRUE(Save(host, "a.glb")) << error_;
  {
    PluginHost without(false);  // keeps all of it
    ASSERT_TRUE(Open(without, "a.glb")) << error_;
    ASSERT_TRUE(Save(without, "c.glb")) << error_;
  }
  PluginHost other;
  ASSERT_TRUE(Open(other, "a.glb")) << error_;
  ASSERT_TRUE(Save(other, "b.glb")) << error_;
  EXPECT_TRUE(Content(Path("b.glb")) == Content(Path("a.glb")));
  const auto told = [&](const char* name) {
    const std::string bytes = Content(Path(name));
    std::uint32_t size;
    std::memcpy(&size, &bytes[12], 4);
    return json::parse(bytes.substr(20, size))["extensions"]["SOWFIELD_scene"]["things"];
  };
  EXPECT_EQ(told("c.glb"), told("a.glb"));

  const Mtl* mtl = other.Node(1)->GetMtl();
  ASSERT_TRUE(dynamic_cast<const PaintMtl*>(mtl));
  EXPECT_EQ(mtl->GetName(), L"coat");
  EXPECT_EQ(mtl->GetSubMtl(0), nullptr);
  EXPECT_EQ(std::memcmp(BlockOf(mtl).Floats(kNumbers).data(), kFloats, sizeof kFloats), 0);
  EXPECT_EQ(BlockOf(mtl, 1).GetINode(kNode), other.Node(2));
  EXPECT_EQ(BlockOf(mtl, 1).GetMtl(kMtl), mtl->GetSubMtl(1));
  const Texmap* inner = mtl->GetSubTexmap(0)->GetSubTexmap(0);
  EXPECT_EQ(inner->GetName(), L"inner");
  EXPECT_EQ(BlockOf(inner).Count(kNumbers), 2);
  EXPECT_EQ(EvalMesh(other.Node(2), 0).mesh->getBoundingBox().Min().z,
            EvalMesh(other.Node(0), 0).mesh->getBoundingBox().Min().z + 2.5f);
  const Renderer* renderer = other.Services().GetCurrentRenderer();
  ASSERT_TRUE(dynamic_cast<const PaintRenderer*>(renderer));
  EXPECT_EQ(BlockOf(renderer).GetINode(kNode), other.Node(0));
  EXPECT_EQ(other.GetScene().Selection(), (std::vector<INode*>{other.Node(2), other.Node(0)}));
}

TEST_F(ScenePlugin, DamageIsNamedAndTheRestRecovered) {
  PluginHost other, host;  // the last one is in force
  Fill(host);
  ASSERT_TRUE(Save(host, "a.gltf")) << error_;
  const json sound = json::parse(Content(Path("a.gltf")));
  const auto things = [](json& root) -> json& {
    return root["extensions"]["SOWFIELD_scene"]["things"];
  };
  const auto paint = [&](json& root) -> json& {
    return *std::find_if(things(root).begin(), things(root).end(),
                         [](const json& t) { return t["className"] == "Paint"; });
  };
  struct Case {
    std::function<void(json&)> change;
    const char* lost;
    bool kept;  // the material, and what it says of itself
  };
  const Case cases[] = {
      {[&](json& r) { paint(r)["blocks"].erase(1); },
       "is dropped: the parameter block at its reference 1 is missing", false},
      {[&](json& r) { paint(r)["blocks"][1]["id"] = 7; },
       "is dropped: its block has the id 7, expected 1", false},
      {[&](json& r) { paint(r)["blocks"].push_back(paint(r)["blocks"][0]); },
       "it has 3 parameter blocks, expected 2", true},
      {[&](json& r) { paint(r)["subMtls"].push_back(nullptr); },
       "it has 3 of its materials, expected 2", true},
      {[&](json& r) { paint(r)["subMtls"][0]["ref"] = paint(r)["subTexmaps"][0]["ref"]; },
       "its materials refers to a thing that is none", true},
      {[&](json& r) {
         paint(r)["refs"] = {{{"index", 0}, {"to", nullptr}}};
       },
       "reference 0 is a parameter block", true},
      {[&](json& r) {
         paint(r)["refs"] = {{{"index", 2}, {"to", nullptr}}};
       },
       "reference 2 takes no mesh", true},
      {[&](json& r) { paint(r)["subMtls"][0]["ref"] = paint(r)["id"]; },
       "is dropped: it lies within itself", false},
  };
  for (const Case& c : cases) {
    json changed = sound;
    c.change(changed);
    const std::vector<std::string> lost = Recovered(other, changed);
    ASSERT_FALSE(lost.empty()) << c.lost;
    EXPECT_NE(lost[0].find(c.lost), std::string::npos) << lost[0];
    EXPECT_NE(lost[0].find("Paint"), std::string::npos) << lost[0];
    EXPECT_EQ(other.Node(1)->GetMtl() != nullptr, c.kept) << c.lost;
    if (!c.kept) continue;
    EXPECT_EQ(BlockOf(other.Node(1)->GetMtl()).Count(kNumbers), 3);
  }
  // A map within itself, the selection of a thing, a renderer that is none.
  json changed = sound;
  json& scene = changed["extensions"]["SOWFIELD_scene"];
  const json mtl = {{"ref", paint(changed)["id"]}};
  const json map = paint(changed)["subTexmaps"][0];
  for (json& t : things(changed))
    if (t["id"] == map["ref"]) t["subTexmaps"][0] = map;
  scene["selection"][0] = mtl;
  scene["renderer"] = mtl;
  // A stack on itself; a thing of a kind that isn't known, which does no harm.
  for (json& t : things(changed))
    if (t["className"] == "Derived Object") t["data"]["base"]["ref"] = t["id"];
  things(changed).push_back(
      {{"id", "0xffff"}, {"super", "0x1020"}, {"class", {"0x1", "0x2"}}, {"more", 3}});
  const std::vector<std::string> lost = Recovered(other, changed);
  EXPECT_EQ(lost.size(), 4u) << testing::PrintToString(lost);
  EXPECT_FALSE(other.Node(2)->GetObjectRef());
  EXPECT_TRUE(other.Node(1)->GetMtl());
  EXPECT_FALSE(other.Node(1)->GetMtl()->GetSubTexmap(0));
  EXPECT_EQ(other.GetScene().Selection(), std::vector<INode*>{other.Node(0)});
  EXPECT_EQ(other.Services().GetCurrentRenderer(), nullptr);
}

// Whatever is saved can be opened: what can't be is named before the file is touched.
TEST_F(ScenePlugin, NothingIsSavedThatCannotBeOpened) {
  PluginHost host;
  INode* node = AddBox(host, L"a");
  const auto refused = [&](const std::string& why) {
    EXPECT_FALSE(Save(host, "a.glb")) << why;
    EXPECT_NE(error_.find(why), std::string::npos) << error_;
    EXPECT_FALSE(std::filesystem::exists(Path("a.glb")));
  };
  const auto saved = [&] {
    ASSERT_TRUE(Save(host, "a.glb")) << error_;
    PluginHost other;
    EXPECT_TRUE(Open(other, "a.glb")) << error_;
    std::filesystem::remove(Path("a.glb"));
  };
  Mtl* mtl = new StdMtl;
  Object* object = node->GetObjectRef();
  for (int depth = 1; depth < 1000; ++depth) {
    auto* outer = new PaintMtl;
    outer->SetSubMtl(0, mtl);
    mtl = outer;
    object = new DerivedObject(object);
  }
  node->SetMtl(mtl);
  node->SetObjectRef(object);
  saved();
  node->SetObjectRef(new DerivedObject(object));
  refused("\"Derived Object\" of the node \"a\": it lies within itself, or too deep");
  node->SetObjectRef(object);
  auto* outer = new MultiMtl;
  outer->SetSubMtl(2, mtl);
  node->SetMtl(outer);
  refused("\"Multi/Sub-Object\": it lies within itself, or too deep");
  node->SetMtl(nullptr);

  auto* sphere = new SphereObject;
  node->SetObjectRef(sphere);
  node->Hide(true);
  sphere->SetSize(1, 10001);
  refused("its sphere has 10001 segments, allowed are 10000");
  auto* mesh = new TriObject;
  node->SetObjectRef(mesh);
  mesh->mesh.setNumMaps(101);
  refused("its mesh has 101 map channels, allowed are 100");
  mesh->mesh.setNumMaps(100);
  saved();

  for (int depth = 1; depth < 4096; ++depth) {
    INode* child = host.Services().CreateObjectNode(nullptr);
    node->AttachChild(child, false);
    node = child;
  }
  saved();
  theHold.Begin();
  refused("an undo step is open");
  theHold.Cancel();
  node->AttachChild(host.Services().CreateObjectNode(nullptr), false);
  refused("lies deeper than 4096 nodes");
}

// A reader of glTF takes no null for a number.
TEST_F(ScenePlugin, KeysThatAreNoNumbersStandStillInViewers) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  PluginHost host;
  for (const Point3& at : {Point3(1, nan, 2), Point3(1, 2, 3)}) {
    TransformControl* control = AddBox(host, L"a")->GetTMController();
    control->SetKeys(0, {{1, 1, 1}, {0, 0, 0, 1}, at}, 7);
    control->SetKeys(480, {{1, 1, 1}, {0, 0, 0, 1}, {3, 2, 1}}, 7);
  }
  ASSERT_TRUE(Save(host, "a.gltf")) << error_;
  json root = json::parse(Content(Path("a.gltf")));
  EXPECT_EQ(root["nodes"].dump().find("null"), std::string::npos);
  EXPECT_EQ(root["animations"][0]["channels"].size(), 3u);  // the other's
}

TEST_F(ScenePlugin, ASelectionIsOfTheScenesOwnNodes) {
  PluginHost host;
  Fill(host);
  Interface& ip = host.Services();
  const std::vector<INode*> nodes = host.GetScene().AllNodes();
  const auto selected = [&] { return host.GetScene().Selection(); };
  ip.SelectNode(nodes[1], false);
  ip.SelectNode(nodes[2], false);
  EXPECT_EQ(selected(), (std::vector<INode*>{nodes[2], nodes[0], nodes[1]}));
  theHold.Begin();
  ip.DeleteNode(nodes[0], false, false);
  AddBox(host, L"d");
  ip.SelectNode(host.GetScene().FindNodes(L"d")[0], false);
  theHold.Accept(L"exchange");
  EXPECT_EQ(selected().size(), 3u);
  ASSERT_TRUE(host.Undo().Undo());
  EXPECT_EQ(selected(), (std::vector<INode*>{nodes[2], nodes[1]}));
  ASSERT_TRUE(host.Undo().Redo());
  EXPECT_EQ(selected(), (std::vector<INode*>{nodes[2], nodes[1]}));
  ip.SelectNode(nodes[1]);
  EXPECT_EQ(selected(), std::vector<INode*>{nodes[1]});

  // What is merged isn't selected, and its renderer is left.
  ASSERT_TRUE(Save(host, "a.glb")) << error_;
  const Renderer* renderer = ip.GetCurrentRenderer();
  host::MergedScene merged;
  ASSERT_TRUE(host::MergeScene(ip, Path("a.glb"), {}, merged, error_)) << error_;
  EXPECT_EQ(merged.nodes, 3u);
  EXPECT_EQ(selected(), std::vector<INode*>{nodes[1]});
  EXPECT_EQ(ip.GetCurrentRenderer(), renderer);
  ip.ClearNodeSelection();
  EXPECT_TRUE(selected().empty());
}

}  // namespace
