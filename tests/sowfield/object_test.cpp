// The object and its types: adding, deletion of sources, creation, panels, notifications, copies.

#include <gtest/gtest.h>

#include <numeric>
#include <set>

#include "sowfield/model/placement.h"
#include "sowfield/model/stats.h"
#include "sowfield/plugin/classdesc.h"
#include "sowfield/plugin/createcallback.h"
#include "tests/sowfield/fixture.h"

namespace sowfield {
namespace {

TEST(AddType, FillsAllTablesOfTheType) {
  SowfieldScene s;
  const IParamBlock2& b = s.Block();
  INode* tree = s.AddBox(L"tree", 2, 4, 6, {10, 20, 30});
  ASSERT_TRUE(s.AddAsType(tree));
  EXPECT_TRUE(b.GetINode(Geo_Nodes) == tree && b.GetStr(Geo_Names) == WStr(L"tree"));
  EXPECT_EQ(b.GetPoint3(Geo_BoxMin), Point3(-1, -2, 0));
  EXPECT_TRUE(b.GetInt(Geo_VertCount) == 8 && b.GetInt(Geo_FaceCount) == 12);
  for (const ParamEntry& e : AllParams()) {
    if (e.form != IndexForm::Slot || e.type != ParamType::Float) continue;
    EXPECT_EQ(b.GetFloat(e.id, 0, 0), e.initial);
    EXPECT_EQ(b.GetFloat(e.id, 0, 1), e.newEntry);
  }
  EXPECT_EQ(s.Ints(Tr_Unify), (std::vector{1, 1}));
  EXPECT_EQ(s.Undo().UndoNames(), (std::vector<WStr>{L"Create", L"Adding Geo"}));
  EXPECT_EQ(s.log.Count(Event::TypeListChanged) + s.log.Count(Event::VariationsDropped), 2);
  EXPECT_EQ(tree->GetLayer()->GetName(), L"Vorn_Sowfield_Objects");
  EXPECT_EQ(s.host.GetScene().Layers().GetCurrentLayer()->GetName(), L"0");
  // The painter's list grows with the types unless it is locked; a node may come again.
  for (int n = 2; n <= 9; ++n) {
    s.Set(List_Locked, int(n == 9)), s.AddAsType(tree);
    EXPECT_EQ(b.GetInt(Paint_ListExtra), std::clamp(n - 6, 0, 2));
  }
}

TEST(AddType, MovesThePivotAloneToTheFloorAndSizesTheBrush) {
  SowfieldScene s;
  INode *tall = s.AddBox(L"tall", 2, 4, 6), *child = s.AddBox(L"child", 1, 1, 1, {1, 2, 3});
  tall->AttachChild(child);
  // Turned about X the box reaches from (-1, -6, -2) to (1, 0, 2).
  Matrix3 tm({1, 0, 0}, {0, 0, 1}, {0, -1, 0}, {10, 20, 30});
  tall->SetNodeTM(0, tm), tall->SetObjectOffset(TransMatrix({0.5f, 0, 0}));
  const Matrix3 object = tall->GetObjectTM(0), ofChild = child->GetNodeTM(0);
  ASSERT_TRUE(s.AddAsType(tall));
  EXPECT_LT(Apart(tall->GetObjectTM(0), object) + Apart(child->GetNodeTM(0), ofChild), 4e-5);
  EXPECT_LT(Apart(tall->GetNodeTM(0).GetTrans(), {10.5f, 17, 28}), 2e-5);
  EXPECT_LT(Apart(SourceMatrix(tall, 0).GetTrans(), {0, 3, 2}), 2e-5);
  const auto expectBrush = [&](float line, float size, float minimum) {
    EXPECT_NEAR(s.Block().GetFloat(Brush_LineSize), line, 1e-5f);
    EXPECT_NEAR(s.Block().GetFloat(Brush_Size), size, 1e-5f);
    EXPECT_NEAR(s.Block().GetFloat(Brush_Collision), 6, 1e-5f);
    EXPECT_NEAR(s.D().brushMinimum, minimum, 1e-5f);
  };
  expectBrush(4, 14, 2);  // 2 along X, 6 along Y
  s.Set(Brush_LineSize, 0.05f);
  s.AddAsType(s.AddBox(L"small", 0.4f, 0.4f, 9));
  expectBrush(0.2f, 14, 0.2f);
  s.Undo().Undo(), s.Undo().Undo();
  EXPECT_EQ(tall->GetNodeTM(0), tm);
}

TEST(AddType, SamplesAreDistinctVerticesInRandomOrder) {
  SowfieldScene s;
  Mesh mesh;
  mesh.setNumVerts(5000);
  for (int i = 0; i < 5000; ++i) mesh.setVert(i, {float(i), float(-2 * i), 0});
  s.AddAsType(s.AddMesh(L"cloud", mesh));
  ASSERT_EQ(s.Block().GetInt(Geo_PointCount), 3000);
  std::set<float> chosen;
  for (const Point3& p : s.Block().Points(Geo_Points))
    EXPECT_TRUE(chosen.insert(p.x).second && p.y == -2 * p.x);
  EXPECT_NE(s.Block().GetPoint3(Geo_Points).x, *chosen.begin()) << "in order";
  // The mean of 3000 fairly chosen out of 5000 has a deviation of about 17.
  EXPECT_NEAR(std::accumulate(chosen.begin(), chosen.end(), 0.0) / 3000, 2499.5, 90);
}

TEST(AddType, RefusesWhatCantBeASource) {
  SowfieldScene s;
  Mesh broken;
  broken.setNumVerts(1), broken.setVert(0, {0, NAN, 0});
  const auto scaled = [&](float x, float y, float z) {
    INode* n = s.AddBox(L"box", 1, 9, 1);
    n->SetNodeTM(0, {{x, 0, 0}, {0, y, 0}, {0, 0, z}, {0, 0, 0}});
    return n;
  };
  INode *empty = s.AddNode(L"empty", nullptr), *eye = s.AddNode(L"eye", new CameraObject);
  INode *none = s.AddMesh(L"none", {}), *nan = s.AddMesh(L"nan", broken), *flat = scaled(1, 0, 1);
  INode* const refused[] = {nullptr, empty, s.node, eye, flat, none, nan, scaled(1, 1e38f, 1)};
  const char* const why[] = {"no such node", "no object",   "Sowfield", "geometry",
                             "flattens",     "no vertices", "finite",   "finite"};
  const Snapshot before = TakeSnapshot(s.Block());
  for (size_t i = 0; i < std::size(refused); ++i) {
    EXPECT_NE(WhyNotASource(refused[i], 0).find(why[i]), std::string::npos) << why[i];
    EXPECT_FALSE(s.AddAsType(refused[i])) << why[i];
  }
  EXPECT_EQ(Differences(before, TakeSnapshot(s.Block())), "");
  // A mirrored one is sound; several come with one refresh.
  INode* const several[] = {scaled(-1, 1, 1), nullptr, s.node, scaled(1, 2, 3)};
  s.redraws = 0;
  EXPECT_TRUE(AddTypesByName(s.D(), several) == 2 && s.redraws == 1);
}

TEST(NodeDeletion, TakesItsTypesAndPlacementsAlong) {
  SowfieldScene s;
  const IParamBlock2& b = s.Block();
  std::vector<INode*> nodes;
  for (int t = 0; t < 4; ++t) {
    nodes.push_back(s.AddBox(std::wstring(1, wchar_t(L'a' + t)), 1, 1, float(t + 1)));
    s.AddAsType(nodes[size_t(t)]);
    s.Set(Tr_ZPos_Min, float(10 * t), t + 1), s.Set(Tr_AnimMin, 5 * t, t);
  }
  s.AddAsType(nodes[1]);
  for (int p = 0; p < 10; ++p)
    s.AppendPlacements({{{float(p), 0, 0}, {float(p), 0, 0}, p % 5, p, p}});
  const std::vector<float> random(b.Floats(Rnd_XScale).begin(), b.Floats(Rnd_XScale).end());
  const Snapshot before = TakeSnapshot(b);
  EXPECT_TRUE(ComputeStats(s.D()).vertices == 80 && ComputeStats(s.D()).faces == 120);
  // Two nodes in one stroke: types 1, 2 and 4.
  s.host.Services().DeleteNodes(std::array{nodes[1], nodes[2]}, true);
  EXPECT_EQ(s.Breach(), "");
  EXPECT_TRUE(b.GetINode(Geo_Nodes, 0, 1) == nodes[3] && b.GetStr(Geo_Names, 0, 1) == WStr(L"d"));
  EXPECT_TRUE(b.GetPoint3(Geo_BoxMax, 0, 1).z == 4 && b.GetFloat(Tr_ZPos_Min, 0, 2) == 30);
  EXPECT_EQ(s.Ints(Tr_AnimMin), (std::vector{0, 15}));
  for (const Point3& p : b.Points(Geo_Points)) EXPECT_TRUE(p.z == 0 || p.z == 1 || p.z == 4);
  EXPECT_TRUE(std::equal(random.begin() + 400, random.begin() + 500, &b.Floats(Rnd_XScale)[200]));
  EXPECT_EQ(s.Ints(Ins_Type), (std::vector{0, 1, 0, 1}));
  EXPECT_EQ(s.Ints(Ins_AnimRand), (std::vector{0, 3, 5, 8}));
  EXPECT_EQ(s.Ints(Ins_Rand), s.Ints(Ins_AnimRand));
  EXPECT_TRUE(b.Points(Ins_Pos)[3].x == 8 && b.Points(Ins_Normal)[3].x == 8);
  // The last ones leave the logo.
  s.host.Services().DeleteNodes(std::array{nodes[0], nodes[3]}, true);
  EXPECT_TRUE(s.D().TypeCount() + s.D().PlacementCount() == 0 && b.Count(Rnd_Normal) == 100);
  EXPECT_EQ(s.object->mesh.getNumVerts(), 786);
  s.Undo().Undo(), s.Undo().Undo();
  EXPECT_EQ(Differences(before, TakeSnapshot(b)), "");
  EXPECT_TRUE(nodes[1]->InScene() && s.object->mesh.getNumVerts() == 786 + 10 * 4);
}

TEST(InitNewObject, SetsUpNodeMaterialAndLayer) {
  SowfieldScene s;
  WStr modes;
  for (unsigned i = 0; i < 7; ++i) modes += GetString(kStringDisplayModes + i);
  EXPECT_EQ(modes, L"NoneDotBounding BoxPoint CloudPyramidSquirrelOriginal");
  bool mine = false;
  const std::unique_ptr<Mesh> render(s.object->GetRenderMesh(0, s.node, nullptr, mine));
  EXPECT_TRUE(mine && render->getNumVerts() == 0) << "the logo is never rendered";
  s.node->SetNodeTM(0, {{1, 0, 0}, {0, 0, 2}, {0, -3, 0}, {4, 5, 6}});
  s.object->InitNewObject();  // a host may send the first point twice
  EXPECT_EQ(s.node->GetNodeTM(0), TransMatrix({4, 5, 6}));
  EXPECT_EQ(s.node->GetWireColor(), 0xCFFF78u);
  const int colors[27] = {0x78FFCF, 0x0012FF, 0x3B60FF, 0xA2ADFF, 0xFF7200, 0xFF9D34, 0xFFCC95,
                          0x00FF12, 0x69FF62, 0xABFFAB, 0x6B08FF, 0x9638FF, 0xBC97FF, 0x08EBFF,
                          0x53FFF1, 0xA0FFF3, 0xFFF606, 0xFFD144, 0xFFF5B4, 0x000000, 0x737373,
                          0xFF0606, 0xFF3B3B, 0xFF9393, 0xFF00BA, 0xFF4AC6, 0xF79CFF};
  ASSERT_EQ(s.node->GetMtl()->NumSubMtls(), 27);
  for (int i = 0; i < 27; ++i) {
    const auto part = [&](int shift) { return float(colors[i] >> shift & 255) / 255; };
    EXPECT_EQ(s.node->GetMtl()->GetSubMtl(i)->GetDiffuse(), (Color{part(16), part(8), part(0)}));
  }
}

TEST(CreateCallback, ADragSizesTheLogo) {
  SowfieldScene s;
  auto* made = static_cast<Sowfield*>(GetSowfieldDesc()->Create(false));
  s.host.Services().CreateObjectNode(made);
  made->BeginEditParams(&s.host.Services(), kEditCreate, nullptr);
  // Straight down on the grid, 1 unit a pixel.
  ViewExp view = ViewExp::Orthographic({0, 0, 100}, {0, 0, 0}, 200, 200, 200);
  Matrix3 mat;
  const auto expect = [&](int msg, int point, IPoint2 m, int answer, float size) {
    EXPECT_EQ(made->GetCreateMouseCallBack()->proc(&view, msg, point, 0, m, mat), answer);
    EXPECT_NEAR(made->pblock2->GetFloat(Logo_size), size, 1e-2);
  };
  expect(MOUSE_ABORT, 0, {}, -1, 0.5f);
  expect(MOUSE_POINT, 0, {120, 80}, 1, 0);
  EXPECT_EQ(made->pblock2->Count(Tr_Random), 1);
  expect(MOUSE_MOVE, 1, {150, 120}, 1, 50);  // 30, 40
  EXPECT_NEAR(made->mesh.getBoundingBox().pmax.x, 0.722872f * 50, 0.1);
  expect(MOUSE_MOVE, 1, {117, 76}, 1, 5);  // the way back counts alike
  expect(MOUSE_POINT, 1, {120, 80}, 0, 0.5f);
}

TEST(Object, ACloneIsAFullCopyWithALifeOfItsOwn) {
  SowfieldScene s;
  s.AddAsType(s.AddBox(L"box", 1, 2, 3)), s.AddAsType(s.AddSphere(L"ball", 1, 8));
  s.AppendPlacements({{{1, 2, 3}, {}, 1, 5, 6}, {{4, 5, 6}, {}, 0, 7, 8}});
  RemapDir remap;
  auto* clone = static_cast<Sowfield*>(s.object->Clone(remap));
  s.host.Services().CreateObjectNode(clone);
  EXPECT_EQ(clone->distribution.rng, Generator()) << "it draws from the start";
  const Snapshot before = TakeSnapshot(s.Block());
  EXPECT_EQ(Differences(before, TakeSnapshot(*clone->pblock2)), "");
  AddType(clone->distribution, s.AddBox(L"more", 1, 1, 1));  // a source's end reaches both
  s.host.Services().DeleteNode(s.Block().GetINode(Geo_Nodes, 0, 1), true, false);
  EXPECT_TRUE(s.D().TypeCount() == 1 && clone->distribution.TypeCount() == 2);
  s.Undo().Undo();
  EXPECT_EQ(Differences(before, TakeSnapshot(s.Block())), "");
  EXPECT_EQ(clone->mesh.getNumVerts(), 786 + 8);
}

TEST(Notifications, OfFilesMoveTheGateOfEveryObjectAndListEventsWaitForIt) {
  SowfieldScene s;
  Sowfield* other = s.AddObject();
  BroadcastNotification({NOTIFY_FILE_PRE_OPEN}), s.object->UpdateMesh(160);
  EXPECT_EQ(s.D().ListReady() + other->distribution.ListReady(), 0);
  EXPECT_NE(s.D().curTime, 160) << "the last picture stays";
  using enum Event;
  for (const Event e : {TypeListChanged, StatsChanged, TypeListChanged, BrushSizeChanged})
    s.D().Tell(e);
  for (int i = 0; i < 2; ++i) BroadcastNotification({NOTIFY_FILE_POST_OPEN});
  EXPECT_EQ(s.log.events, (std::vector{BrushSizeChanged, TypeListChanged, StatsChanged}));
  BroadcastNotification({NOTIFY_POST_RENDERFRAME, 480});
  EXPECT_EQ(s.D().curTime, 480);
}

TEST(Object, DiesCleanlyInEveryWay) {
  {  // with its host, panels open, steps on both stacks
    SowfieldScene s;
    s.AddAsType(s.AddBox(L"box", 1, 1, 1));
    s.host.Services().DeleteNode(s.Block().GetINode(Geo_Nodes), true, false);
    s.Undo().Undo();
    Sowfield* other = s.AddObject();
    EXPECT_EQ(&TheEditContext().NeedPainter()->Dist(), &other->distribution);
  }
  EXPECT_EQ(TheEditContext().currentObject, nullptr);
  SowfieldScene s;
  // Its node deleted while its panels are open: it lives on in the step.
  s.host.Services().DeleteNode(s.node, true, false);
  EXPECT_EQ(TheEditContext().currentObject, s.object);
  s.Undo().Undo();
  EXPECT_EQ(s.object->OwnNode(), s.node);
  const Snapshot made = TakeSnapshot(s.Block());
  s.CloseEdit();
  s.Undo().Undo();
  EXPECT_TRUE(!s.object->OwnNode() && s.Breach().empty());
  s.Undo().Redo();
  EXPECT_EQ(Differences(made, TakeSnapshot(s.Block())), "");
  s.Undo().Undo(), s.Undo().Clear();
  EXPECT_EQ(TheEditContext().currentObject, nullptr) << "nothing keeps the object any more";
}

}  // namespace
}  // namespace sowfield
