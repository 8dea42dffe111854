#include "host/scenefile/scenefile.h"

#include <cstring>
#include <nlohmann/json.hpp>
#include <random>

#include "host/core/builtinclass.h"
#include "host/core/notify.h"
#include "host/host.h"
#include "host/scene/animatedmesh.h"
#include "host/scene/camera.h"
#include "host/scene/modifier.h"
#include "host/scene/primitives.h"
#include "host/scene/proxyobjects.h"
#include "host/scene/renderer.h"
#include "tests/host/apart.h"
#include "tests/host/sealed.h"
#include "tests/host/tempfolder.h"

namespace {

using nlohmann::json;

constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
constexpr float kInf = std::numeric_limits<float>::infinity();

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
template <class Base, std::uint32_t kId, int kBlocks, int kOthers = 0>
struct Plug : Base {
  static constexpr Class_ID kClassID{0x71, kId};
  Class_ID ClassID() const override { return kClassID; }
  Plug() {
    for (int i = 0; i < kBlocks; ++i) this->ReplaceReference(i, new IParamBlock2(Desc(i), this));
  }
  explicit Plug(ParamBlockDesc2& desc) { this->ReplaceReference(0, new IParamBlock2(desc, this)); }
  ~Plug() override { this->DeleteAllRefsFromMe(); }
  int NumRefs() const override { return kBlocks + kOthers; }
  ReferenceTarget* GetReference(int i) const override { return refs[size_t(i)]; }
  void SetReference(int i, ReferenceTarget* t) override { refs[size_t(i)] = t; }
  std::array<ReferenceTarget*, kBlocks + kOthers> refs{};
};

IParamBlock2& BlockOf(const ReferenceTarget* thing, int i = 0) {
  return *static_cast<IParamBlock2*>(thing->GetReference(i));
}

// What classes say of their objects where a scene is saved and opened.
struct Sayings {
  std::string fault, repaired, settled;
} sayings;

template <class T>
struct AskedClass : host::BuiltinClass<T> {
  using host::BuiltinClass<T>::BuiltinClass;
  std::string FirstFault(const ReferenceTarget&) override { return sayings.fault; }
  std::vector<std::string> Settle(ReferenceTarget&) override { return Line(sayings.settled); }
  std::vector<std::string> Repair(ReferenceTarget&) override {
    sayings.fault.clear();
    return Line(sayings.repaired);
  }
  static std::vector<std::string> Line(const std::string& text) {
    return text.empty() ? std::vector<std::string>() : std::vector<std::string>{text};
  }
};

// A plug-in's object. Ids from 4 on are declared by its newer version alone.
struct TableObject : Plug<Object, 0, 1> {
  enum : ParamID { kNodes, kInts, kFloats, kNumber, kStrings, kMtls, kCamera, kPoints, kKeyed };
  explicit TableObject(bool newer = true) : Plug(Desc(newer)) {}
  static ParamBlockDesc2& Desc(bool newer) {
    static const std::vector<ParamDef> all = {{kNodes, L"Nodes", ParamType::Node, true},
                                              {kInts, L"Ints", ParamType::Int, true},
                                              {kFloats, L"Floats", ParamType::Float, true},
                                              {kNumber, L"A Number", ParamType::Float},
                                              {kStrings, L"Texts", ParamType::String, true},
                                              {kMtls, L"Mtls", ParamType::Mtl, true},
                                              {kCamera, L"Camera", ParamType::Node},
                                              {kPoints, L"Points", ParamType::Point3, true},
                                              {kKeyed, L"Keyed", ParamType::Float, false, true, 3}};
    static ParamBlockDesc2 complete(0, L"Title", nullptr, all);
    static ParamBlockDesc2 old(0, L"Title", nullptr, {all.begin(), all.begin() + 4});
    return newer ? complete : old;
  }
  SClass_ID SuperClassID() const override { return GEOMOBJECT_CLASS_ID; }
  void GetClassName(WStr& name) const override { name = L"Tables"; }
  ObjectState Eval(TimeValue) override { return ObjectState(this); }
  void GetLocalBoundBox(TimeValue, INode*, ViewExp*, Box3& box) override { box = {}; }
  IParamBlock2* GetParamBlock(int) override { return &BlockOf(this); }
  RefResult NotifyRefChanged(const Interval&, ReferenceTarget*, PartID&, RefMessage) override {
    ++messages;
    return REF_SUCCEED;
  }
  int messages = 0;
};

struct OldTableObject : TableObject {
  OldTableObject() : TableObject(false) {}
};

enum class Knows { Nothing, Old, New };

struct TestHost : host::Host {
  INode* Add(const WStr& name, Object* object, const Matrix3& tm = {}) {
    INode* node = Services().CreateObjectNode(object);
    node->SetName(name);
    node->SetNodeTM(0, tm);
    return node;
  }
};

struct TableHost : TestHost {
  explicit TableHost(Knows knows = Knows::New) {
    static AskedClass<TableObject> newer(GEOMOBJECT_CLASS_ID, TableObject::kClassID, L"Tables");
    static host::BuiltinClass<OldTableObject> old(GEOMOBJECT_CLASS_ID, TableObject::kClassID,
                                                  L"Tables");
    if (knows == Knows::New) Classes().Add(&newer);
    if (knows == Knows::Old) Classes().Add(&old);
  }
};

Mesh Tetrahedron(bool finite) {
  Mesh mesh;
  mesh.setNumVerts(4);
  const Point3 at[] = {{0, -0.0f, 0}, {1, 0, 0}, {0, 2, 0}, {0, 0, finite ? 3.0f : kNan}};
  std::copy(at, at + 4, mesh.verts.begin());
  mesh.setNumFaces(4);
  const std::uint32_t corners[4][3] = {{0, 2, 1}, {0, 1, 3}, {1, 2, 3}, {2, 0, 3}};
  for (int f = 0; f < 4; ++f) {
    mesh.faces[size_t(f)].setVerts(corners[f][0], corners[f][1], corners[f][2]);
    mesh.faces[size_t(f)].setEdgeVisFlags(f != 0, true, f != 2);
    mesh.faces[size_t(f)].smGroup = f < 2 ? 0x80000001u : 0;
    mesh.setFaceMtlIndex(f, MtlID(f * 21845));
  }
  mesh.setNumMaps(4);
  for (int c : {1, 3}) {
    mesh.setMapSupport(c, true);
    mesh.setNumMapVerts(c, 3);
    for (int i = 0; i < 3; ++i)
      mesh.maps[size_t(c)].verts[size_t(i)] = Point3(0.25f, float(i), kInf);
    mesh.maps[size_t(c)].faces[2] = {{2, 1, 0}};
  }
  return mesh;
}

Object* Mover(INode* bone) {
  auto motion = std::make_shared<MeshMotion>();
  motion->base = Tetrahedron(true);
  motion->frameTimes = {-160, 0, 320};
  motion->frames.assign(3, {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {0, 0, 1}});
  motion->targets.assign(2, std::vector<Point3>(4, {0.5f, 0, 0}));
  motion->inverseBind = {TransMatrix({1, 2, 3}), Matrix3()};
  motion->vertexBones.assign(4, {{0, 1, 0, 0}, {0.25f, 0.75f, 0, 0}});
  host::Track weights({0.5f, 0});
  weights.SetKeys(host::KeyShape::Cubic, {0, 1}, std::vector<float>(12, 0.1f));
  auto* mover = new AnimatedMesh;
  mover->SetMotion(motion, weights);
  mover->SetBones({bone, nullptr});
  return mover;
}

Mtl* Painted() {
  auto* multi = new MultiMtl;
  auto* held = new StdMtl;
  held->SetName(L"held");
  held->SetDiffuse({0.1f, -0.0f, 2}, 0);
  auto* picture = new BitmapTex;
  picture->SetPicture(L"p\u00e9.png",
                      std::make_shared<const std::vector<std::byte>>(7, std::byte{9}));
  held->SetSubTexmap(StdMtl::kDiffuseMap, picture);
  auto* file = new StdMtl;
  auto* map = new BitmapTex;
  map->SetPicture(L"C:\\maps\\bark 1.JPG");
  file->SetSubTexmap(StdMtl::kDiffuseMap, map);
  multi->SetSubMtl(0, held);
  multi->SetSubMtl(3, file);
  return multi;
}

// Everything that a scene can hold, told in an order in which instances aren't found again.
void Fill(TableHost& host) {
  Interface& ip = host.Services();
  ip.SetMasterUnit(UNITS_INCHES, 2.5f);
  ip.SetAnimRange({-320, 4800});
  ip.SetTime(480, false);
  ILayer* layer = ip.GetLayerManager().CreateLayer(L"B\u00e4ume \U0001F333");
  layer->Hide(true);
  INode* top = host.Add(L"twin", new BoxObject, Turned({1, 2, -3}, 0.3f, {4, 5, 6}));
  INode* child = host.Add(L"twin", nullptr, Turned({1, 1, 1}, 1.1f, {1, 0, 0}));
  top->AttachChild(child, true);
  auto* mesh = new TriObject;
  mesh->mesh = Tetrahedron(false);
  INode* second = host.Add(L"\u6a39 \"\\\n\x01", mesh);
  INode* first = host.Add(L"", mesh, Turned({0, 1, 1}, 0, {kInf, kNan, -0.0f}));
  child->AttachChild(first, false);
  top->AttachChild(second, true);
  second->SetObjectOffset(Turned({2, 2, 2}, 0.5f, {0, 0, 1}));
  second->SetMtl(Painted()), first->SetMtl(second->GetMtl());
  first->SetWireColor(0xFEDCBA), first->Hide(true), second->SetRenderable(false);
  layer->AddToLayer(second);
  top->GetTMController()->SetKeys(0, {{1, 2, 3}, {0, 0, 0, 1}, {1, 2, 3}}, 7);
  top->GetTMController()->SetKeys(4800, {{1, 2, 3}, {0.6, 0, 0, 0.8}, {1, 2, 9}}, 7);
  top->SetNodeTM(100, Turned({1, 1, 1}, 0.2f, {0, 0, 1}));
  host.Add(L"still", nullptr)->GetTMController();
  host.Add(L"mover", Mover(child));
  auto* stack = new DerivedObject(new SphereObject);
  auto* bend = new XFormModifier;
  bend->SetMatrix(Turned({1, 2, 1}, 1, {0, 0, 0}));
  stack->AddModifier(bend);
  host.Add(L"stack", stack);
  auto* proxy = new VRayProxyObject;
  proxy->SetMesh(Tetrahedron(true));
  host.Add(L"proxy", proxy);
  auto* camera = new CameraObject;
  camera->SetFOV(0, 1.25f);
  INode* eye = host.Add(L"eye", camera);
  auto* plane = new PlaneObject;
  plane->SetSize(3, 4, 5, 6);
  host.Add(L"plane", plane);

  using T = TableObject;
  auto* tables = new T;
  INode* own = host.Add(L"tables", tables);
  IParamBlock2& b = *tables->GetParamBlock(0);
  INode* const nodes[] = {second, nullptr, own, second};
  Mtl* const mtls[] = {nullptr, second->GetMtl()->GetSubMtl(3)};
  const int ints[] = {0, -1, INT_MIN, INT_MAX};
  const float floats[] = {-0.0f, kNan, -kInf, 1e-45f, 0.1f};
  const Point3 points[] = {{kNan, -0.0f, 1}, {3, 2, kInf}};
  const WStr texts[] = {L"", L"a\tb", L"\u00fcber \U0001F333"};
  b.Append(T::kNodes, 4, nodes), b.Append(T::kMtls, 2, mtls), b.Append(T::kInts, 4, ints);
  b.Append(T::kFloats, 5, floats), b.Append(T::kPoints, 2, points);
  b.Append(T::kStrings, 3, texts);
  b.SetValue(T::kNumber, 0, kNan), b.SetValue(T::kCamera, 0, eye);
  b.SetKey(T::kKeyed, 0, 1), b.SetKey(T::kKeyed, 481, -2);
}

// What the tables hold, by plain reads; nodes and materials as the places where they stand.
std::string BlockText(host::Host& host) {
  const auto nodes = host.GetScene().AllNodes();
  const IParamBlock2& b = BlockOf(nodes.back()->GetObjectRef());
  std::string text = std::to_string(b.GetFloat(TableObject::kKeyed, 240));
  for (const ParamDef& def : b.GetDesc()->Params()) {
    text += Raw(b.Ints(def.id)) + '|' + Raw(b.Floats(def.id)) + '|';
    text += Raw(b.Points(def.id)) + '|';
    for (const WStr& s : b.Strings(def.id)) text += ToUtf8(s) + '\0';
    for (INode* n : b.Nodes(def.id))
      text += std::to_string(std::find(nodes.begin(), nodes.end(), n) - nodes.begin()) + ' ';
    for (Mtl* m : b.Mtls(def.id)) text += m ? ToUtf8(m->GetName()) + '.' : "none.";
  }
  return text;
}

// What a node shows of itself, to the bit.
std::string NodeText(INode& n) {
  std::string text = ToUtf8(n.GetName() + L'|' + n.GetLayer()->GetName() + L'|');
  for (const TimeValue at : {-50, 0, 777, 9600})
    text += Raw(std::vector<Matrix3>{n.GetObjectTM(at)});
  const Object* object = n.GetObjectRef();
  const Class_ID id = object ? object->ClassID() : Class_ID();
  for (const std::uint32_t number : {n.GetWireColor(), ColorRef(n.IsHidden()), id.a, id.b,
                                     ColorRef(n.Renderable()), ColorRef(n.GetLayer()->IsHidden())})
    text += std::to_string(number) + '|';
  const EvaluatedMesh e = EvalMesh(&n, 100);
  if (!e) return text;
  text += Raw(e.mesh->verts) + '|' + Raw(e.mesh->faces);
  for (const MeshMap& map : e.mesh->maps) text += '|' + Raw(map.verts) + Raw(map.faces);
  return text;
}

class SceneFile : public TempFolder {
 protected:
  std::string Saved(host::Host& host, const std::string& name) {
    EXPECT_TRUE(host::SaveScene(host.Services(), Path(name), {}, error_)) << error_;
    return Content(Path(name));
  }
  std::string Bytes(host::Host& host) {
    std::vector<std::byte> bytes;
    EXPECT_TRUE(host::SaveSceneBytes(host.Services(), Path("a.glb"), bytes, error_));
    return Raw(bytes);
  }
  bool Open(host::Host& host, const std::string& bytes) {
    return host::OpenSceneBytes(host.Services(), std::as_bytes(std::span(bytes)), "it", {}, error_);
  }
};

TEST_F(SceneFile, ComesBackBitForBit) {
  TableHost host;
  Fill(host);
  const std::string bytes = Saved(host, "a.glb");
  EXPECT_TRUE(host::LooksLikeScene(Path("a.glb")));
  TableHost other;
  ASSERT_TRUE(Open(other, bytes)) << error_;
  EXPECT_EQ(Saved(other, "b.glb"), bytes);

  Interface &a = host.Services(), &b = other.Services();
  EXPECT_EQ(b.GetAnimRange(), Interval(-320, 4800));
  EXPECT_EQ(b.GetTime(), 480);
  EXPECT_EQ(b.MasterUnitType(), UNITS_INCHES);
  EXPECT_EQ(b.MasterUnitScale(), 2.5f);
  const auto from = a.GetScene().AllNodes(), to = b.GetScene().AllNodes();
  ASSERT_EQ(from.size(), to.size());
  for (size_t i = 0; i < from.size(); ++i) EXPECT_EQ(NodeText(*from[i]), NodeText(*to[i])) << i;
  EXPECT_EQ(BlockText(host), BlockText(other));
  EXPECT_EQ(static_cast<TableObject*>(to.back()->GetObjectRef())->messages,
            0);  // it heard nothing while it was half-loaded
  // The mesh was shown by "second" before "first", which comes earlier in the scene.
  const auto shows = [&](INode* n) {
    return n->GetObjectRef() && n->GetObjectRef()->ClassID() == triObjectClassID;
  };
  INode* shown = *std::find_if(to.begin(), to.end(), shows);
  EXPECT_EQ(static_cast<INode*>(shown->GetObjectRef()->Dependents().front())->GetName()[0],
            L'\u6a39');
}

TEST_F(SceneFile, WhatIsUnknownIsKept) {
  TableHost host;
  Fill(host);
  const std::string bytes = Saved(host, "a.glb"), before = BlockText(host);
  std::string old;
  for (const Knows knows : {Knows::Nothing, Knows::Old}) {
    TableHost less(knows), again(knows);
    ASSERT_TRUE(Open(less, bytes)) << error_;
    EXPECT_EQ(less.GetScene().AllNodes().back()->GetObjectRef()->ClassID(), TableObject::kClassID);
    old = Saved(less, "b.glb");
    EXPECT_TRUE(knows == Knows::Old || old == bytes);
    ASSERT_TRUE(Open(again, old)) << error_;
    EXPECT_EQ(Saved(again, "c.glb"), old);
  }
  TableHost knowing;
  ASSERT_TRUE(Open(knowing, old)) << error_;
  EXPECT_EQ(BlockText(knowing), before);
}

TEST(Checksum, IsThatOfItsDefinition) {
  const std::string digits = "123456789";
  const std::uint32_t check = 0xE3069283;  // of RFC 3720
  EXPECT_EQ(host::Crc32c(std::as_bytes(std::span(digits))), check);
  std::mt19937 random(3);
  std::string text(100, 0);
  for (char& c : text) c = char(random());
  for (size_t from = 0; from < 9; ++from)
    for (size_t n = 0; n + from <= text.size(); ++n) {
      const auto bytes = std::as_bytes(std::span(text)).subspan(from, n);
      ASSERT_EQ(host::Crc32c(bytes), host::Crc32cPlain(bytes));
    }
}

constexpr int kOpenings[] = {NOTIFY_FILE_PRE_OPEN, NOTIFY_FILE_POST_OPEN};
std::vector<int> heard;
void Hear(void*, NotifyInfo* info) { heard.push_back(info->intcode); }

TEST_F(SceneFile, OpensInPlaceOfTheSceneOrNotAtAll) {
  TableHost host;
  Fill(host);
  const std::string bytes = Saved(host, "a.glb");
  const std::vector<INode*> nodes = host.GetScene().AllNodes();
  theHold.Begin();
  nodes[0]->SetName(L"renamed");
  theHold.Accept(L"Rename");
  heard.clear();
  for (const int code : kOpenings) RegisterNotification(Hear, nullptr, code);
  std::string broken = bytes;
  broken.back() ^= 1;
  broken[40] ^= 1;  // in the text
  ASSERT_FALSE(Open(host, broken));
  sayings = {"is bad", "was mended", "was settled"};
  ASSERT_FALSE(host::OpenScene(host.Services(), Path("a.glb"), {}, error_));
  EXPECT_NE(error_.find("Tables \"tables\" (0x"), std::string::npos) << error_;
  EXPECT_NE(error_.find("): is bad"), std::string::npos) << error_;
  host::MergedScene merged;
  ASSERT_FALSE(host::MergeScene(host.Services(), Path("a.glb"), {}, merged, error_));
  ASSERT_FALSE(host::SaveScene(host.Services(), Path("c.glb"), {}, error_));
  EXPECT_EQ(error_, "cannot save \"" + Path("c.glb") + "\": \"Tables\" of the node \"tables\": " +
                        "it could not be opened again: is bad");
  EXPECT_FALSE(std::filesystem::exists(Path("c.glb")));
  EXPECT_EQ(host.GetScene().AllNodes(), nodes);
  EXPECT_EQ(host.Undo().UndoCount(), 1u);
  ASSERT_TRUE(host.Undo().Undo());
  EXPECT_EQ(nodes[0]->GetName(), L"twin");
  std::vector<std::string> lost, settled;
  ASSERT_TRUE(host::OpenScene(host.Services(), Path("a.glb"), {&lost, &settled}, error_)) << error_;
  ASSERT_TRUE(lost.size() == 1 && settled.size() == 1);
  EXPECT_NE(lost[0].find("Tables \"tables\" (0x"), std::string::npos) << lost[0];
  EXPECT_NE(lost[0].find("): was mended"), std::string::npos) << lost[0];
  EXPECT_NE(settled[0].find("): was settled"), std::string::npos) << settled[0];
  sayings = {};
  EXPECT_EQ(heard, (std::vector<int>{9, 10, 9, 10, 9, 10, 9, 10}));
  EXPECT_EQ(host.Undo().UndoCount() + host.Undo().RedoCount(), 0u);
  EXPECT_EQ(Saved(host, "b.glb"), bytes);
  for (const int code : kOpenings) UnRegisterNotification(Hear, nullptr, code);
}

TEST_F(SceneFile, ACutIsFound) {
  TableHost other, host;  // the last one is in force
  host.Add(L"box", new BoxObject);
  host.Add(L"tables", new TableObject);
  const int ints[] = {1, 2, 3};
  BlockOf(host.GetScene().AllNodes()[1]->GetObjectRef()).Append(TableObject::kInts, 3, ints);
  const std::string bytes = Saved(host, "a.glb");
  const size_t bin = 20 + GlbText(bytes).size();
  for (size_t n = 0; n < bytes.size(); ++n) {
    std::string cut = bytes.substr(0, n);
    ASSERT_FALSE(Open(other, cut)) << n;
    if (n < bin + 8) continue;
    // The same with lengths that tell of the cut.
    const auto size = std::uint32_t(n), rest = std::uint32_t(n - bin - 8);
    std::memcpy(&cut[8], &size, 4);
    std::memcpy(&cut[bin], &rest, 4);
    ASSERT_TRUE(!Open(other, cut) || Bytes(other) == bytes) << n;  // what viewers need is last
  }
}

#ifdef __SANITIZE_ADDRESS__
constexpr int kChanges = 2000;
#else
constexpr int kChanges = 10000;
#endif

TEST_F(SceneFile, DamageIsFoundOrHarmless) {
  TableHost other, host;
  Fill(host);
  const std::string bytes = Saved(host, "a.glb");
  std::mt19937 random(7);
  int found = 0;
  for (int i = 0; i < kChanges; ++i) {
    std::string changed = bytes;
    changed[random() % bytes.size()] ^= char(1 + random() % 255);
    const bool opened = Open(other, changed);
    ASSERT_TRUE(opened ? Bytes(other) == bytes : !error_.empty());
    found += !opened;
  }
  EXPECT_GT(found, kChanges / 4);  // about half of the file is for viewers
}

// A bit anywhere in it, half a kilobyte, all of it, with its headers; in a scene that holds another
// one in a table.
TEST_F(SceneFile, DamageOfTheTextAloneLosesNothing) {
  TableHost other, host;
  Fill(host);
  auto* picture = new BitmapTex;
  const std::string held = Bytes(host);
  const auto inner = std::as_bytes(std::span(held));
  picture->SetPicture(L"scene",
                      std::make_shared<const std::vector<std::byte>>(inner.begin(), inner.end()));
  auto* mtl = new StdMtl;
  mtl->SetSubTexmap(StdMtl::kDiffuseMap, picture);
  for (int i = 0; i < 100; ++i) host.Add(L"box", new BoxObject)->SetMtl(mtl);  // many records
  const std::string bytes = Bytes(host);
  const size_t text = GlbText(bytes).size();
  std::vector<std::string> lost;
  const auto comesBack = [&](const std::string& damaged) {
    lost.clear();
    return host::OpenSceneBytes(other.Services(), std::as_bytes(std::span(damaged)), "it", {&lost},
                                error_) &&
           Bytes(other) == bytes && !lost.empty();
  };
  std::mt19937 random(11);
  for (int i = 0; i < kChanges / 100; ++i) {
    std::string flipped = bytes, zeroed = bytes;
    flipped[20 + random() % text] ^= char(1 << random() % 8);
    zeroed.replace(20 + random() % (text - 512), 512, 512, '\0');
    ASSERT_TRUE(comesBack(flipped)) << i << error_;
    ASSERT_TRUE(comesBack(zeroed)) << i << error_;
  }
  ASSERT_TRUE(comesBack(std::string(bytes).replace(20, text, text, '\0'))) << error_;
  EXPECT_TRUE(
      host::LooksLikeScene(Put("lost.glb", std::string(bytes).replace(20, text, text, '?'))));
  ASSERT_TRUE(comesBack(bytes.substr(20 + text))) << error_;
  // What the text has otherwise is told.
  const size_t name = bytes.find("\"eye\"", bytes.find(host::kSceneExtension));
  ASSERT_TRUE(comesBack(std::string(bytes).replace(name, 5, "\"ear\"")));
  EXPECT_NE(lost[0].find(": 1 nodes, 0 things and 0 other values are as they were saved"),
            std::string::npos)
      << lost[0];
  EXPECT_FALSE(comesBack(WithoutRecords(std::string(bytes).replace(20, text, text, '\0'))));
  EXPECT_TRUE(Open(other, WithoutRecords(held)) && Bytes(other) == held) << error_;
}

struct PaintMap : Plug<Texmap, 1, 1, 1> {
  int NumSubTexmaps() const override { return 1; }
  Texmap* GetSubTexmap(int) const override { return static_cast<Texmap*>(refs[1]); }
  void SetSubTexmap(int, Texmap* map) override { ReplaceReference(1, map); }
};

struct PaintMtl : Plug<Mtl, 2, 2, 3> {
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

struct LiftModifier : Plug<Modifier, 3, 1> {
  const wchar_t* GetObjectName() override { return L"Lift"; }
  void ModifyMesh(TimeValue, Mesh& mesh) const override {
    for (Point3& p : mesh.verts) p.z += static_cast<IParamBlock2*>(refs[0])->GetFloat(kNumbers);
  }
};

struct PaintRenderer : Plug<Renderer, 4, 1> {};

struct PluginHost : TestHost {
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
  INode* AddBox(const WStr& name) { return Add(name, new BoxObject); }
  INode* Node(int i) { return GetScene().AllNodes()[size_t(i)]; }
};

const float kFloats[] = {-0.0f, 2.5f, 1e-45f};

// Nodes a, b, c: b wears the material, c is lifted by 2.5; c and a are selected.
void Fill(PluginHost& host) {
  INode *a = host.AddBox(L"a"), *b = host.AddBox(L"b"), *c = host.AddBox(L"c");
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
  // Keys that are no numbers stand still in viewers: a reader of glTF takes no null for one.
  for (INode* n : {a, b}) {
    const Point3 first(n == a ? 0 : kNan, 1, 2);
    n->GetTMController()->SetKeys(0, {{1, 1, 1}, {0, 0, 0, 1}, first}, 7);
    n->GetTMController()->SetKeys(480, {{1, 1, 1}, {0, 0, 0, 1}, {3, kNan, 1}}, 7);
  }
  auto* renderer = new PaintRenderer;
  BlockOf(renderer).SetValue(kNode, 0, a);
  host.GetScene().SetRenderer(renderer);
  host.Services().SelectNodeTab(std::array{c, a});
}

class ScenePlugin : public SceneFile {
 protected:
  // Opens the saved pair with another description, recovering what can be read.
  std::vector<std::string> Recovered(host::Host& host, const json& root) {
    const std::string path = Put("changed.gltf", Sealed(root.dump()));
    std::vector<std::string> lost;
    EXPECT_FALSE(host::OpenScene(host.Services(), path, {}, error_));
    EXPECT_TRUE(host::OpenScene(host.Services(), path, {&lost}, error_));
    return lost;
  }
};

TEST_F(ScenePlugin, ThingsComeBackWithTheirBlocks) {
  PluginHost host;
  Fill(host);
  const std::string bytes = Saved(host, "a.glb");
  std::string kept;
  {
    PluginHost without(false);  // keeps all of it
    ASSERT_TRUE(Open(without, bytes)) << error_;
    kept = Saved(without, "a.glb");
  }
  PluginHost other;
  ASSERT_TRUE(Open(other, bytes)) << error_;
  EXPECT_TRUE(Saved(other, "a.glb") == bytes);
  const auto told = [](const std::string& glb) {
    return json::parse(GlbText(glb))["extensions"]["SOWFIELD_scene"]["things"];
  };
  EXPECT_EQ(told(kept), told(bytes));
  const json text = json::parse(GlbText(bytes));
  EXPECT_EQ(text["nodes"].dump().find("null"), std::string::npos);
  EXPECT_FALSE(text.contains("animations"));

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
  const json sound = json::parse(Saved(host, "a.gltf"));
  const auto things = [](json& root) -> json& {
    return root["extensions"]["SOWFIELD_scene"]["things"];
  };
  const auto paint = [&](json& root) -> json& {
    return *std::find_if(things(root).begin(), things(root).end(),
                         [](const json& t) { return t["className"] == "Paint"; });
  };
  const struct {
    const char *change, *lost;
    bool kept;  // the material, and what it says of itself
  } cases[] = {{R"("op": "remove", "path": "/blocks/1")",
                "is dropped: the parameter block at its reference 1 is missing", false},
               {R"("op": "replace", "path": "/blocks/1/id", "value": 7)",
                "is dropped: its block has the id 7, expected 1", false},
               {R"("op": "copy", "from": "/blocks/0", "path": "/blocks/-")",
                "it has 3 parameter blocks, expected 2", true},
               {R"("op": "add", "path": "/subMtls/-", "value": null)",
                "it has 3 sub-materials, expected 2", true},
               {R"("op": "copy", "from": "/subTexmaps/0/ref", "path": "/subMtls/1/ref")",
                "a sub-material refers to a thing that is none", true},
               {R"("op": "add", "path": "/refs", "value": [{"index": 0, "to": null}])",
                "reference 0 is a parameter block", true},
               {R"("op": "add", "path": "/refs", "value": [{"index": 2, "to": null}])",
                "reference 2 takes no mesh", true},
               {R"("op": "copy", "from": "/id", "path": "/subMtls/1/ref")",
                "is dropped: it lies within itself", false}};
  for (const auto& c : cases) {
    json changed = sound;
    paint(changed).patch_inplace(json::parse(std::string("[{") + c.change + "}]"));
    const std::vector<std::string> lost = Recovered(other, changed);
    ASSERT_FALSE(lost.empty()) << c.lost;
    EXPECT_NE(lost[0].find(c.lost), std::string::npos) << lost[0];
    EXPECT_NE(lost[0].find("Paint"), std::string::npos) << lost[0];
    EXPECT_EQ(other.Node(1)->GetMtl() != nullptr, c.kept) << c.lost;
    EXPECT_EQ(c.kept ? BlockOf(other.Node(1)->GetMtl()).Count(kNumbers) : 3, 3) << c.lost;
  }
  // A map and a stack within themselves, the selection of a thing, a renderer that is none, and a
  // thing of a kind that isn't known, which does no harm.
  json changed = sound;
  json& scene = changed["extensions"]["SOWFIELD_scene"];
  const json mtl = {{"ref", paint(changed)["id"]}};
  const json map = paint(changed)["subTexmaps"][0];
  for (json& t : things(changed))
    if (t["id"] == map["ref"]) {
      t["subTexmaps"][0] = map;
    } else if (t["className"] == "Derived Object") {
      t["data"]["base"]["ref"] = t["id"];
    }
  scene["selection"][0] = scene["renderer"] = mtl;
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
  INode* node = host.AddBox(L"a");
  const auto refused = [&](const std::string& why) {
    EXPECT_FALSE(host::SaveScene(host.Services(), Path("a.glb"), {}, error_)) << why;
    EXPECT_NE(error_.find(why), std::string::npos) << error_;
    EXPECT_FALSE(std::filesystem::exists(Path("a.glb")));
  };
  const auto saved = [&] {
    PluginHost other;
    EXPECT_TRUE(Open(other, Saved(host, "a.glb"))) << error_;
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
  mesh->mesh.setNumFaces(1);
  mesh->mesh.faces[0].setVerts(0, 1, 4);
  refused("\"a\": its mesh can't be kept: face 0 uses vertex 0, but there are only 0");
  mesh->mesh = Tetrahedron(true);
  std::vector<TVFace>& mapped = mesh->mesh.maps[1].faces;
  mapped[1].t[0] = 3;
  refused("face 1 of map channel 1 uses vertex 3, but there are only 3");
  mapped.pop_back();
  refused("map channel 1 has 3 faces, the mesh 4");
  mesh->mesh = Mesh();

  for (int depth = 1; depth < 4096; ++depth) {
    INode* parent = std::exchange(node, host.Services().CreateObjectNode(nullptr));
    parent->AttachChild(node, false);
  }
  saved();
  theHold.Begin();
  refused("an undo step is open");
  theHold.Cancel();
  node->AttachChild(host.Services().CreateObjectNode(nullptr), false);
  refused("lies deeper than 4096 nodes");
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
  host.AddBox(L"d");
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
  Saved(host, "a.glb");
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
