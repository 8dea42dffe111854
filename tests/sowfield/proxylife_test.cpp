#include "sowfield/objects/proxylife.h"

#include <numeric>

#include "host/core/assets.h"
#include "host/scene/animatedmesh.h"
#include "host/scene/modifier.h"
#include "sowfield/model/repair.h"
#include "sowfield/proxy/moksetfile.h"
#include "sowfield/sources/proxyfiles.h"
#include "tests/host/tempfolder.h"
#include "tests/sowfield/moksetbytes.h"
#include "tests/sowfield/typelist_fixture.h"

namespace sowfield {
namespace {

namespace fs = std::filesystem;

struct ProxyLife : TempFolder, SowfieldScene {
  WStr File(const char* name) const { return FromUtf8(Path(name)); }
  WStr Write(const char* name, const Mesh& mesh) {
    EXPECT_TRUE(WriteMoksetFile(mesh, File(name), D().rng));
    return File(name);
  }
  bool Convert(int type, const char* name) {
    bool written = false;
    return ConvertType(D(), type, File(name), written) && written;
  }
};

// Sources of every making: plain, a proxy object, under a modifier, animated, without faces.
std::vector<Object*> Makings() {
  TriObject* plain[3];
  for (TriObject*& p : plain) p = new TriObject, p->mesh = BoxMeshOf(1, 2, 3);
  auto* bent = new DerivedObject(plain[1]);
  auto* xform = new XFormModifier;
  xform->SetMatrix({{1, 0.5f, 0}, {0, 2, 0}, {0, 0.3f, 1}, {0.5f, 0, 1}});
  bent->AddModifier(xform);
  auto motion = std::make_shared<MeshMotion>();
  motion->base = BoxMeshOf(1, 1, 1);
  motion->frameTimes = {0, 4800};
  motion->frames.assign(2, {motion->base.verts.begin(), motion->base.verts.end()});
  for (Point3& v : motion->frames[0]) v = v * 3;
  auto* moving = new AnimatedMesh;
  moving->SetMotion(motion, host::Track({}));
  plain[2]->mesh.setNumFaces(0);
  plain[2]->mesh.setMapSupport(1, false);
  return {plain[0], ProxyOf<MoksetProxyObject>(BoxMeshOf(1, 2, 3)), bent, moving, plain[2]};
}

TEST_F(ProxyLife, AFileShowsAPlacementAsTheNodeDid) {
  int made = 0;
  for (Object* making : Makings()) {
    INode* source = AddNode(L"Source", making);
    // Mirrored every other time.
    source->SetNodeTM(0, Turned({2, made % 2 ? -1.0f : 1.0f, 0.5f}, 0.4f, {40, 30, 5}));
    ASSERT_TRUE(AddAsType(source)) << made << ": " << WhyNotASource(source, 0);
    const int type = D().TypeCount() - 1;
    AppendPlacements({{{3, -2, 1}, {0.3f, 0.1f, 2}, type, 5, 0}});
    Set(Display_Mode, 6), Set(Display_Type, type + 1);
    Shown();
    const Mesh before = object->mesh;
    Box3 world;
    const EvaluatedMesh shown = EvalMesh(source, 0);
    for (const Point3& v : shown.mesh->verts) world += v * source->GetObjectTM(0);
    const size_t nodes = host.GetScene().AllNodes().size();

    ASSERT_TRUE(Convert(type, ("made" + std::to_string(made++) + ".Vorn").c_str()));
    EXPECT_EQ(host.GetScene().AllNodes().size(), nodes) << "no working node is left";
    EXPECT_TRUE(source->InScene());
    Shown();
    ASSERT_EQ(object->mesh.getNumVerts(), before.getNumVerts());
    for (int i = 0; i < before.getNumVerts(); ++i)
      EXPECT_LT(Apart(object->mesh.getVert(i), before.getVert(i)), 1e-5);
    EXPECT_EQ(object->mesh.faces, before.faces);
    // The file's frame, as the source's pivot, is the bottom centre of what is seen.
    const Point3 floor(world.Center().x, world.Center().y, world.Min().z);
    EXPECT_LT(Apart(Records(*this)[size_t(type)].low, world.Min() - floor), 1e-5);
    EXPECT_LT(Apart(Records(*this)[size_t(type)].high, world.Max() - floor), 1e-5);
    EXPECT_LT(Apart(source->GetNodeTM(0).GetTrans(), floor), 1e-5);
  }
}

TEST_F(ProxyLife, MissingAndBrokenFilesChangeNothing) {
  for (const char* name : {"a", "b"}) ASSERT_TRUE(AddAsType(AddSphere(FromUtf8(name), 1, 12)));
  ASSERT_TRUE(Convert(0, "a.Vorn"));
  EXPECT_FALSE(Convert(0, "again.Vorn")) << "it lives in a file already";
  const WStr few = Write("few.Vorn", BoxMeshOf(1, 2, 3));
  const auto samples = Records(*this)[1].samples;
  ASSERT_TRUE(PointTypeAtFile(D(), 0, few));
  EXPECT_EQ(Records(*this)[0].samples.size(), 8u);
  EXPECT_EQ(Records(*this)[1].samples, samples) << "the run behind stays whole";

  fs::resize_file(Path("a.Vorn"), 200);
  const Snapshot before = TakeSnapshot(Block());
  EXPECT_FALSE(PointTypeAtFile(D(), 0, File("a.Vorn")));
  EXPECT_FALSE(PointTypeAtFile(D(), 1, few)) << "a scene type";
  fs::remove(few);
  EXPECT_FALSE(ExportMoksetToObject(D(), 0));
  EXPECT_EQ(Boxes().back().title, L"Missing Mokset");
  UpdateAllTypes(D());
  EXPECT_EQ(Differences(before, TakeSnapshot(Block())), "Geo_Points") << "drawn anew";
  EXPECT_EQ(Records(*this)[0].samples.size(), 8u) << "what was known of the file stays";
  // The same of one whose head could be read: an index of its last face is beyond the vertices.
  ASSERT_TRUE(PointTypeAtFile(D(), 0, Write("few.Vorn", BoxMeshOf(1, 2, 3))));
  Mesh other = BoxMeshOf(5, 5, 5);
  other.faces.back().v[2] = 99;
  Put("few.Vorn", FileOf(3, other, 1, {0, 1}));
  UpdateAllTypes(D());
  EXPECT_TRUE(Records(*this)[0].high.x == 0.5f && Records(*this)[0].samples.size() == 8u);
}

TEST_F(ProxyLife, PathsHaveEitherSeparatorAndAreToldToTheHost) {
  ASSERT_TRUE(AddAsType(AddSphere(L"a", 1, 12)));
  fs::create_directory(Path("in"));
  const WStr path = File("in") + L"\\a.Vorn";
  bool written = false;
  ASSERT_TRUE(ConvertType(D(), 0, path, written) && written);
  EXPECT_TRUE(fs::exists(Path("in/a.Vorn")));
  EXPECT_EQ(Block().GetStr(Proxy_Files, 0, 0), path);
  const auto& assets = MaxSDK::AssetManagement::IAssetManager::GetInstance()->Assets();
  ASSERT_EQ(assets.size(), 1u);
  EXPECT_TRUE(assets[0].path == path && assets[0].type == 7);
  // What is exported has the type's name and stands at the object.
  Set(Geo_Names, WStr(L"fern"));
  node->SetNodeTM(0, {{0, 2, 0}, {-3, 0, 0}, {0, 0, 4}, {5, 6, 7}});
  ASSERT_TRUE(ExportMoksetToObject(D(), 0));
  const TypeRecord r = Records(*this)[0];
  EXPECT_GT(EvalMesh(r.node, 0).mesh->verts.size(), 12u);
  EXPECT_TRUE(r.node->GetName() == L"fern" && r.name == L"fern") << ToUtf8(r.node->GetName());
  EXPECT_EQ(r.node->GetNodeTM(0), TransMatrix({5, 6, 7}));
}

TEST_F(ProxyLife, ABackslashIsPartOfANameThatIsThere) {
  const WStr plain = File("a\\b.Vorn");
  fs::create_directory(Path("a")), fs::create_directories(Path("x/y"));
  const auto vertices = [&] { return ReadMoksetInfo(plain).vertices; };
  Write("a/b.Vorn", BoxMeshOf(1, 1, 1));
  EXPECT_EQ(vertices(), 8);
  Mesh one;
  one.verts = {{1, 2, 3}};
  Put("a\\b.Vorn", FileOf(3, one, 1, {0}));
  EXPECT_EQ(vertices(), 1);
  EXPECT_TRUE(MoksetFileExists(plain));
  fs::remove(Path("a/b.Vorn"));
  EXPECT_EQ(vertices(), 1);
  EXPECT_TRUE(WriteMoksetFile(BoxMeshOf(1, 1, 1), plain, D().rng));
  EXPECT_TRUE(vertices() == 8 && fs::is_empty(Path("a")));
  fs::remove(Path("a\\b.Vorn"));
  EXPECT_FALSE(MoksetFileExists(plain));
  // What isn't there yet: folders that are keep their names.
  fs::create_directory(Path("x\\y"));
  EXPECT_EQ(NativePathOf(File("x\\y/in\\c.Vorn")), Path("x\\y/in/c.Vorn"));
  Write("x/y/c.Vorn", {});
  EXPECT_EQ(NativePathOf(File("x\\y/c.Vorn")), Path("x/y/c.Vorn"));
  EXPECT_EQ(NativePathOf(L"no\\folder\\c.Vorn"), "no/folder/c.Vorn");
}

TEST_F(ProxyLife, TypesKeepMoreSamplesThanAreChosenThroughAScene) {
  node->SetName(L"one");
  Mesh cloud;
  for (int i = 0; i < 5000; ++i) cloud.verts.push_back({float(i), float(i % 3), 1});
  std::vector<std::uint32_t> order(4000);
  std::iota(order.rbegin(), order.rend(), 0u);
  Put("many.Vorn", FileOf(3, cloud, 9, order));
  for (const int type : {0, 1}) {
    ASSERT_TRUE(AddAsType(AddBox(L"box", 1, 1, 1)) && Convert(type, "box.Vorn"));
    ASSERT_TRUE(PointTypeAtFile(D(), type, File("many.Vorn")));
  }
  ASSERT_TRUE(ExportMoksetToObject(D(), 1));
  CloseEdit();
  EXPECT_EQ(RepairTables(Block()), std::vector<std::string>());
  const Snapshot before = TakeSnapshot(Block());
  ASSERT_TRUE(host::OpenSceneBytes(host.Services(), SaveBytes(), "it", {}, error_)) << error_;
  node = Named(L"one"), object = static_cast<Sowfield*>(node->GetObjectRef());
  EXPECT_EQ(Differences(before, TakeSnapshot(Block())), "Geo_Nodes") << "other ones";
  for (const TypeRecord& r : Records(*this))
    EXPECT_TRUE(r.samples.size() == 4000 && r.samples[0].x == 3999 && r.samples[3999].x == 0);
}

TEST_F(ProxyLife, UpdateTakesWhatTheSourcesHaveBecomeInOneStepAndLeavesWhatACopyUses) {
  INode *box = AddBox(L"Box", 1, 1, 1), *proxy = AddSource(*this, 3, L"Proxy", 2, 2, 2);
  ASSERT_TRUE(AddAsType(box) && AddAsType(proxy));
  AppendPlacements({{{1, 2, 3}, {0, 0, 0}, 0, 0, 0}, {{4, 5, 6}, {0, 0, 0}, 1, 0, 0}});
  static_cast<BoxObject*>(box->GetObjectRef())->SetSize(4, 2, 6);
  static_cast<VRayProxyObject*>(proxy->GetObjectRef())->SetMesh(BoxMeshOf(8, 8, 8));
  Set(Brush_LineSize, 0.1f);
  node->SetNodeTM(0, {{0, 2, 0}, {-2, 0, 0}, {0, 0, 2}, {5, 6, 7}});
  for (const bool copied : {false, true}) {
    Sowfield* copy = copied ? Copied() : object;
    if (copied) AddNode(L"copy", copy);
    INode* const old = Records(*this)[1].node;
    const size_t nodes = host.GetScene().AllNodes().size();
    const Snapshot before = TakeSnapshot(Block());
    UpdateAllTypes(D());
    const Snapshot after = TakeSnapshot(Block());
    const std::vector<TypeRecord> now = Records(*this);
    EXPECT_EQ(now[0].high - now[0].low, Point3(4, 2, 6));
    EXPECT_EQ(now[1].high - now[1].low, Point3(8, 8, 8));
    for (const TypeRecord& r : now)  // shuffled as files are: the last one keeps its place
      EXPECT_EQ(r.samples.back(), EvalMesh(r.node, 0).mesh->verts.back());
    EXPECT_TRUE(D().brushMinimum == 1.5f && Block().GetFloat(Brush_LineSize) == 1.5f);
    EXPECT_TRUE(now[1].node != old && old->InScene() == copied);
    EXPECT_EQ(host.GetScene().AllNodes().size(), nodes + copied) << "the new replaces the old one";
    EXPECT_EQ(Differences(copied ? before : after, TakeSnapshot(*copy->pblock2)), "");
    EXPECT_EQ(Breach() + FirstBreach(*copy->pblock2), "");
    for (const bool back : {true, false, true}) {
      redraws = 0;
      ASSERT_TRUE(back ? Undo().Undo() : Undo().Redo());
      EXPECT_EQ(Differences(back ? before : after, TakeSnapshot(Block())), "");
      EXPECT_TRUE(redraws == 1 && D().ListReady() == 1) << redraws;
      EXPECT_EQ(node->GetNodeTM(0).GetRow(0), back ? Point3(0, 2, 0) : Point3(1, 0, 0));
    }
  }
}

TEST_F(ProxyLife, ConversionTakesCountsAndSamplesOfTheFile) {
  // Twice as wide and turned a quarter: 2 by 2 by 3 on the ground, far from its own frame.
  INode* box = AddMesh(L"Box", BoxMeshOf(1, 2, 3));
  box->SetNodeTM(0, {{0, 2, 0}, {-1, 0, 0}, {0, 0, 1}, {40, 30, 5}});
  auto* proxy = ProxyOf<MoksetProxyObject>(BoxMeshOf(2, 2, 3));
  const int few = 5;  // samples of its own
  proxy->GetParamBlock(0)->Delete(46, few, proxy->GetParamBlock(0)->Count(46) - few);
  Mesh cloud;
  for (int i = 0; i < 3500; ++i) cloud.verts.push_back({float(i % 2), float(i % 5), float(i)});
  ASSERT_TRUE(AddAsType(box) && AddAsType(AddNode(L"Proxy", proxy)));
  ASSERT_TRUE(AddAsType(AddMesh(L"Cloud", cloud)) && AddAsType(AddBox(L"Behind", 8, 8, 8)));
  const auto behind = Records(*this)[3].samples;
  for (int type = 0; type < 3; ++type) {
    ASSERT_TRUE(Convert(type, "a.Vorn"));
    const TypeRecord r = Records(*this)[size_t(type)];
    EXPECT_EQ(r.samples, ReadMoksetInfo(File("a.Vorn")).samples);
    EXPECT_TRUE(type == 2 || (r.samples.size() == 8 && r.vertices == 8 && r.faces == 12));
    EXPECT_TRUE(Records(*this)[3].samples == behind && Breach().empty()) << Breach();
    EXPECT_EQ(Undo().UndoNames().back(), L"Save Mokset Out");
  }
  EXPECT_EQ(Records(*this)[2].samples.size(), 3000u);
  // Where the file can't be written the type stands in its frame all the same.
  Undo().Undo(), Undo().Undo(), Undo().Undo();
  bool written = true;
  ASSERT_TRUE(ConvertType(D(), 0, File("none/a.Vorn"), written) && !written);
  const TypeRecord r = Records(*this)[0];
  EXPECT_TRUE(r.samples.size() == 8 && r.vertices == 8 && r.faces == 12) << r.samples.size();
  for (const float z : {0.0f, 3.0f})
    for (const Point3& corner : {Point3(-1, -1, z), {1, -1, z}, {-1, 1, z}, {1, 1, z}}) {
      const auto near = [&](const Point3& p) { return Apart(p, corner) < 1e-5; };
      EXPECT_EQ(std::count_if(r.samples.begin(), r.samples.end(), near), 1);
    }
}

TEST_F(ProxyLife, AFileOfNoSizeLeavesTheBrush) {
  // Without a vertex, with its box told inside out, and too large.
  Mesh far;
  far.verts = {{-3e38f, -3e38f, 0}, {3e38f, 3e38f, 0}};
  const WStr files[] = {Write("none.Vorn", {}), Write("empty.Vorn", {}), Write("far.Vorn", far)};
  const float insideOut[6] = {-1e30f, -1e30f, -1e30f, 1e30f, 1e30f, 1e30f};
  std::fstream(Path("empty.Vorn"), std::ios::in | std::ios::out | std::ios::binary)
      .seekp(15)
      .write(reinterpret_cast<const char*>(insideOut), sizeof insideOut);
  ASSERT_TRUE(AddAsType(AddBox(L"a", 4, 8, 1)) && AddAsType(AddBox(L"b", 4, 4, 1)));
  ASSERT_TRUE(Convert(1, "b.Vorn"));
  for (const WStr& file : files) {
    Set(Brush_LineSize, 0.1f), redraws = 0;
    ASSERT_TRUE(PointTypeAtFile(D(), 1, file) && redraws == 1);
    EXPECT_EQ(D().brushMinimum, 3) << ToUtf8(file);  // a quarter of 4 + 8
    EXPECT_EQ(Block().GetFloat(Brush_LineSize), 3);
    EXPECT_EQ(Undo().UndoNames().back(), L"Load Mokset");
  }
  ASSERT_TRUE(Convert(0, "a.Vorn") && PointTypeAtFile(D(), 0, files[0]));
  EXPECT_EQ(D().brushMinimum, 0) << "no type tells how large a brush should be";
}

TEST_F(ProxyLife, PreviewNodesAreHiddenAndHoldFileAndMaterial) {
  INode* box = AddBox(L"Box", 1, 2, 3);
  box->SetMtl(new StdMtl);
  ASSERT_TRUE(AddAsType(box) && AddAsType(AddBox(L"Other", 1, 1, 1)));
  ASSERT_TRUE(Convert(0, "a.Vorn") && Convert(1, "b.Vorn"));
  for (const bool found : {true, false}) {
    if (!found) fs::remove(Path("b.Vorn"));
    Shown();
    EXPECT_EQ(object->proxyFilesFound, found);
  }
  const std::vector<INode*> made = MakePreviewNodes(D());
  ASSERT_EQ(made.size(), 2u);
  EXPECT_TRUE(made[0]->IsHidden() && made[1]->IsHidden());
  EXPECT_EQ(EvalMesh(made[0], 0).mesh->getNumVerts(), 8);
  EXPECT_EQ(made[0]->GetMtl(), box->GetMtl());
  EXPECT_EQ(EvalMesh(made[1], 0).mesh->getNumVerts(), 0);
}

}  // namespace
}  // namespace sowfield
