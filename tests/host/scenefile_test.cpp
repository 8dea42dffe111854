#include "host/io/scenefile.h"

#include <cstring>
#include <random>

#include "host/core/builtinclass.h"
#include "host/core/notify.h"
#include "host/host.h"
#include "host/io/glb.h"
#include "host/scene/animatedmesh.h"
#include "host/scene/camera.h"
#include "host/scene/modifier.h"
#include "host/scene/primitives.h"
#include "host/scene/proxyobjects.h"
#include "tests/host/apart.h"
#include "tests/host/tempfolder.h"

namespace {

constexpr Class_ID kTableClass{0x71, 0x72};
constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
constexpr float kInf = std::numeric_limits<float>::infinity();

// A plug-in's object. Ids from 4 on are declared by its newer version alone.
struct TableObject : Object {
  enum : ParamID { kNodes, kInts, kFloats, kNumber, kStrings, kMtls, kCamera, kPoints, kKeyed };
  explicit TableObject(bool newer) { ReplaceReference(0, new IParamBlock2(Desc(newer), this)); }
  ~TableObject() override { DeleteAllRefsFromMe(); }
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
  Class_ID ClassID() const override { return kTableClass; }
  void GetClassName(WStr& name) const override { name = L"Tables"; }
  ObjectState Eval(TimeValue) override { return ObjectState(this); }
  void GetLocalBoundBox(TimeValue, INode*, ViewExp*, Box3& box) override { box = {}; }
  int NumRefs() const override { return 1; }
  ReferenceTarget* GetReference(int) const override { return block; }
  IParamBlock2* GetParamBlock(int) override { return block; }
  RefResult NotifyRefChanged(const Interval&, ReferenceTarget*, PartID&, RefMessage) override {
    ++messages;
    return REF_SUCCEED;
  }
  void SetReference(int, ReferenceTarget* t) override { block = static_cast<IParamBlock2*>(t); }
  IParamBlock2* block = nullptr;
  int messages = 0;
};

struct TableClass : host::BuiltinClass<TriObject> {
  explicit TableClass(bool isNewer)
      : BuiltinClass(GEOMOBJECT_CLASS_ID, kTableClass, L"Tables"), newer(isNewer) {}
  ReferenceTarget* Create(bool) override { return new TableObject(newer); }
  const bool newer;
};

enum class Knows { Nothing, Old, New };

struct TableHost : host::Host {
  explicit TableHost(Knows knows = Knows::New) {
    static TableClass newer(true), old(false);
    if (knows != Knows::Nothing) Classes().Add(knows == Knows::New ? &newer : &old);
  }
  INode* Add(const WStr& name, Object* object, const Matrix3& tm = {}) {
    INode* node = Services().CreateObjectNode(object);
    node->SetName(name);
    node->SetNodeTM(0, tm);
    return node;
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
  auto* tables = new T(true);
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

std::string BytesOf(const auto& span) {
  return {reinterpret_cast<const char*>(span.data()), span.size() * sizeof(span[0])};
}

// What the tables hold, by plain reads; nodes and materials as the places where they stand.
std::string BlockText(host::Host& host) {
  const auto nodes = host.GetScene().AllNodes();
  const IParamBlock2& b = *nodes.back()->GetObjectRef()->GetParamBlock(0);
  std::string text = std::to_string(b.GetFloat(TableObject::kKeyed, 240));
  for (const ParamDef& def : b.GetDesc()->Params()) {
    text += BytesOf(b.Ints(def.id)) + '|' + BytesOf(b.Floats(def.id)) + '|';
    text += BytesOf(b.Points(def.id)) + '|';
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
    text += BytesOf(std::vector<Matrix3>{n.GetObjectTM(at)});
  const Object* object = n.GetObjectRef();
  const Class_ID id = object ? object->ClassID() : Class_ID();
  for (const std::uint32_t number : {n.GetWireColor(), ColorRef(n.IsHidden()), id.a, id.b,
                                     ColorRef(n.Renderable()), ColorRef(n.GetLayer()->IsHidden())})
    text += std::to_string(number) + '|';
  const EvaluatedMesh e = EvalMesh(&n, 100);
  if (!e) return text;
  text += BytesOf(e.mesh->verts) + '|' + BytesOf(e.mesh->faces);
  for (const MeshMap& map : e.mesh->maps) text += '|' + BytesOf(map.verts) + BytesOf(map.faces);
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
    return BytesOf(bytes);
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
    EXPECT_EQ(less.GetScene().AllNodes().back()->GetObjectRef()->ClassID(), kTableClass);
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
  EXPECT_EQ(host::Crc32c(std::as_bytes(std::span(digits))), 0xE3069283u);  // RFC 3720's check
  std::mt19937 random(3);
  std::string text(100, 0);
  for (char& c : text) c = char(random());
  for (size_t from = 0; from < 9; ++from)
    for (size_t n = 0; n + from <= text.size(); ++n) {
      const auto bytes = std::as_bytes(std::span(text)).subspan(from, n);
      std::uint32_t bitwise = ~0u;
      for (const std::byte b : bytes) {
        bitwise ^= std::uint32_t(b);
        for (int k = 0; k < 8; ++k)
          bitwise = bitwise & 1 ? bitwise >> 1 ^ 0x82F63B78u : bitwise >> 1;
      }
      ASSERT_EQ(host::Crc32c(bytes), ~bitwise);
      ASSERT_EQ(host::Crc32cPlain(bytes), ~bitwise);
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
  broken[broken.size() / 2] ^= 1;
  ASSERT_FALSE(Open(host, broken));
  const auto refuse = [](Scene&) { return std::string("no"); };
  ASSERT_FALSE(host::OpenScene(host.Services(), Path("a.glb"), {refuse}, error_));
  EXPECT_EQ(host.GetScene().AllNodes(), nodes);
  EXPECT_EQ(host.Undo().UndoCount(), 1u);
  ASSERT_TRUE(host.Undo().Undo());
  EXPECT_EQ(nodes[0]->GetName(), L"twin");
  ASSERT_TRUE(host::OpenScene(host.Services(), Path("a.glb"), {}, error_)) << error_;
  EXPECT_EQ(heard, (std::vector<int>{9, 10, 9, 10, 9, 10}));
  EXPECT_EQ(host.Undo().UndoCount() + host.Undo().RedoCount(), 0u);
  EXPECT_EQ(Saved(host, "b.glb"), bytes);
  for (const int code : kOpenings) UnRegisterNotification(Hear, nullptr, code);
}

TEST_F(SceneFile, ACutIsFound) {
  TableHost other, host;  // the last one is in force
  host.Add(L"box", new BoxObject);
  host.Add(L"tables", new TableObject(true));
  const int ints[] = {1, 2, 3};
  host.GetScene().AllNodes()[1]->GetObjectRef()->GetParamBlock(0)->Append(TableObject::kInts, 3,
                                                                          ints);
  const std::string bytes = Saved(host, "a.glb");
  std::uint32_t textSize;
  std::memcpy(&textSize, &bytes[12], 4);
  const size_t bin = 20 + textSize;
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
    if (!Open(other, changed)) {
      ++found;
      ASSERT_FALSE(error_.empty());
    } else {
      ASSERT_EQ(Bytes(other), bytes);
    }
  }
  EXPECT_GT(found, kChanges / 4);  // about half of the file is for viewers
}

TEST_F(SceneFile, AMeshThatCannotBeSavedLeavesTheOldFile) {
  TableHost host;
  Fill(host);
  const std::string path = Path("a.glb"), bytes = Saved(host, "a.glb");
  auto* bad = new TriObject;
  bad->mesh = Tetrahedron(true);
  bad->mesh.faces[1].v[2] = 4;
  host.Add(L"bad", bad);
  EXPECT_FALSE(host::SaveScene(host.Services(), path, {}, error_));
  EXPECT_NE(error_.find("\"bad\": its mesh can't be kept: face 1 uses vertex 4"), std::string::npos)
      << error_;
  TableHost other;
  ASSERT_TRUE(host::OpenScene(other.Services(), path, {}, error_)) << error_;
  EXPECT_EQ(Saved(other, "kept2"), bytes);
}

}  // namespace
