#include "sowfield/objects/proxylife.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "host/core/assets.h"
#include "host/scene/animatedmesh.h"
#include "host/scene/modifier.h"
#include "sowfield/objects/proxyfiles.h"
#include "sowfield/proxy/moksetfile.h"
#include "tests/sowfield/typelist_fixture.h"

namespace sowfield {
namespace {

namespace fs = std::filesystem;

struct ProxyLife : testing::Test, SowfieldScene {
  ProxyLife() { fs::create_directories(folder); }
  ~ProxyLife() override { fs::remove_all(folder); }
  WStr File(const char* name) const { return (folder / name).wstring(); }
  WStr Write(const char* name, const Mesh& mesh) {
    EXPECT_TRUE(WriteMoksetFile(mesh, File(name), D().rng));
    return File(name);
  }
  bool Convert(int type, const char* name) {
    bool written = false;
    return ConvertType(D(), type, File(name), written) && written;
  }
  const fs::path folder = fs::path(testing::TempDir()) / ("proxylife_" + std::to_string(getpid()));
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
    INode* source = AddNode(L"Source", making, {40, 30, 5});
    Matrix3 tm = source->GetNodeTM(0);
    tm.Scale({2, made % 2 ? -1.0f : 1.0f, 0.5f});  // mirrored every other time
    tm.RotateX(0.4f);
    tm.RotateZ(1.1f);
    source->SetNodeTM(0, tm);
    ASSERT_TRUE(AddAsType(source)) << made << ": " << WhyNotASource(source, 0);
    const int type = D().TypeCount() - 1;
    AppendPlacements({{{3, -2, 1}, {0.3f, 0.1f, 2}, type, 5, 0}});
    Set(Display_Mode, 6), Set(Display_Type, type + 1);
    Shown();
    const Mesh before = object->mesh;
    const Box3 world = [&] {
      Box3 box;
      source->EvalWorldState(0).obj->GetWorldBoundBox(0, source, nullptr, box);
      return box;
    }();
    const size_t nodes = host.GetScene().AllNodes().size();

    ASSERT_TRUE(Convert(type, ("made" + std::to_string(made++) + ".Vorn").c_str()));
    EXPECT_EQ(host.GetScene().AllNodes().size(), nodes) << "no working node is left";
    EXPECT_TRUE(source->InScene());
    Shown();
    ASSERT_EQ(object->mesh.getNumVerts(), before.getNumVerts());
    for (int i = 0; i < before.getNumVerts(); ++i)
      EXPECT_LT(Apart(object->mesh.getVert(i), before.getVert(i)), 1e-5);
    EXPECT_EQ(object->mesh.faces, before.faces);
    if (made > 2) continue;  // the host's world box is wider than what isn't a box
    // The file's frame is the bottom centre of the world box.
    const Point3 floor(world.Center().x, world.Center().y, world.Min().z);
    EXPECT_LT(Apart(Records(*this)[size_t(type)].low, world.Min() - floor), 1e-5);
    EXPECT_LT(Apart(Records(*this)[size_t(type)].high, world.Max() - floor), 1e-5);
  }
}

TEST_F(ProxyLife, FilesAndMaterialsStandInTypeOrder) {
  StdMtl* mtls[4];
  for (int i = 0; i < 4; ++i) {
    INode* source = AddBox(L"Box", 1, 1, 1);
    source->SetMtl(mtls[i] = new StdMtl);
    if (i == 2) source->SetMtl(nullptr);
    ASSERT_TRUE(AddAsType(source));
  }
  ASSERT_TRUE(Convert(3, "d.Vorn") && Convert(1, "b.Vorn") && Convert(2, "c.Vorn"));
  const auto files = Block().Strings(Proxy_Files);
  EXPECT_EQ(std::vector<WStr>(files.begin(), files.end()),
            (std::vector<WStr>{File("b.Vorn"), File("c.Vorn"), File("d.Vorn")}));
  EXPECT_EQ(Ints(Proxy_MtlIndex), (std::vector<int>{1, -1, 0}));
  ASSERT_TRUE(ExportMoksetToObject(D(), 3));
  EXPECT_EQ(Ints(Proxy_MtlIndex), (std::vector<int>{0, -1}));
  EXPECT_EQ(Records(*this)[3].node->GetMtl(), mtls[3]);
  ASSERT_TRUE(ExportMoksetToObject(D(), 2));
  EXPECT_EQ(Records(*this)[2].node->GetMtl(), nullptr);
  EXPECT_EQ(Records(*this)[1].material, mtls[1]);
  EXPECT_EQ(Breach(), "");
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

  fs::resize_file(folder / "a.Vorn", 200);
  const Snapshot before = TakeSnapshot(Block());
  EXPECT_FALSE(PointTypeAtFile(D(), 0, File("a.Vorn")));
  EXPECT_FALSE(PointTypeAtFile(D(), 1, few)) << "a scene type";
  fs::remove(few);
  EXPECT_FALSE(ExportMoksetToObject(D(), 0));
  EXPECT_EQ(Boxes().back().title, L"Missing Mokset");
  UpdateAllTypes(D());
  std::string differences = Differences(before, TakeSnapshot(Block()));
  EXPECT_EQ(differences, "Geo_Points") << "the sphere's samples are drawn anew";
  EXPECT_EQ(Records(*this)[0].samples.size(), 8u) << "what was known of the file stays";
}

TEST_F(ProxyLife, PathsHaveEitherSeparatorAndAreToldToTheHost) {
  ASSERT_TRUE(AddAsType(AddSphere(L"a", 1, 12)));
  fs::create_directory(folder / "in");
  const WStr path = File("in") + L"\\a.Vorn";
  bool written = false;
  ASSERT_TRUE(ConvertType(D(), 0, path, written) && written);
  EXPECT_TRUE(fs::exists(folder / "in" / "a.Vorn"));
  EXPECT_EQ(Block().GetStr(Proxy_Files, 0, 0), path);
  EXPECT_TRUE(MoksetFileExists(path) && ReadMoksetVersion(path) == 3);
  const auto& assets = MaxSDK::AssetManagement::IAssetManager::GetInstance()->Assets();
  ASSERT_EQ(assets.size(), 1u);
  EXPECT_TRUE(assets[0].path == path && assets[0].type == 7);
  ASSERT_TRUE(ExportMoksetToObject(D(), 0));
  EXPECT_GT(EvalMesh(Records(*this)[0].node, 0).mesh->verts.size(), 12u);
}

TEST_F(ProxyLife, UpdateTakesWhatTheSourcesHaveBecomeInOneStepAndLeavesWhatACopyUses) {
  INode *box = AddBox(L"Box", 1, 1, 1), *proxy = AddSource(*this, 3, L"Proxy", 2, 2, 2);
  ASSERT_TRUE(AddAsType(box) && AddAsType(proxy));
  AppendPlacements({{{1, 2, 3}, {0, 0, 0}, 0, 0, 0}, {{4, 5, 6}, {0, 0, 0}, 1, 0, 0}});
  static_cast<BoxObject*>(box->GetObjectRef())->SetSize(4, 2, 6);
  static_cast<VRayProxyObject*>(proxy->GetObjectRef())->SetMesh(BoxMeshOf(8, 8, 8));
  node->SetNodeTM(0, {{0, 2, 0}, {-2, 0, 0}, {0, 0, 2}, {5, 6, 7}});
  for (const bool copied : {false, true}) {
    RemapDir remap;
    auto* copy = copied ? static_cast<Sowfield*>(object->Clone(remap)) : object;
    if (copied) AddNode(L"copy", copy);
    INode* const old = Records(*this)[1].node;
    const size_t nodes = host.GetScene().AllNodes().size();
    const Snapshot before = TakeSnapshot(Block());
    UpdateAllTypes(D());
    const Snapshot after = TakeSnapshot(Block());
    const std::vector<TypeRecord> now = Records(*this);
    EXPECT_EQ(now[0].high - now[0].low, Point3(4, 2, 6));
    EXPECT_EQ(now[1].high - now[1].low, Point3(8, 8, 8));
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

TEST_F(ProxyLife, PreviewNodesAreHiddenAndHoldFileAndMaterial) {
  INode* box = AddBox(L"Box", 1, 2, 3);
  box->SetMtl(new StdMtl);
  ASSERT_TRUE(AddAsType(box) && AddAsType(AddBox(L"Other", 1, 1, 1)));
  ASSERT_TRUE(Convert(0, "a.Vorn") && Convert(1, "b.Vorn"));
  Shown();
  EXPECT_EQ(object->proxyFilesFound, 1);
  fs::remove(folder / "b.Vorn");
  Shown();
  EXPECT_EQ(object->proxyFilesFound, 0);
  const std::vector<INode*> made = MakePreviewNodes(D());
  ASSERT_EQ(made.size(), 2u);
  EXPECT_TRUE(made[0]->IsHidden() && made[1]->IsHidden());
  EXPECT_EQ(EvalMesh(made[0], 0).mesh->getNumVerts(), 8);
  EXPECT_EQ(made[0]->GetMtl(), box->GetMtl());
  EXPECT_EQ(EvalMesh(made[1], 0).mesh->getNumVerts(), 0);
}

}  // namespace
}  // namespace sowfield
