#include <array>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

#include "sowfield/model/stats.h"
#include "sowfield/plugin/classdesc.h"
#include "sowfield/plugin/createcallback.h"
#include "sowfield/sources/sourceframe.h"
#include "tests/sowfield/typelist_fixture.h"

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
  // 2 along X, 6 along Y.
  for (const auto& [id, size] : {std::pair(Brush_LineSize, 4), {Brush_Size, 14}})
    EXPECT_NEAR(s.Block().GetFloat(id), size, 1e-5f);
  EXPECT_NEAR(s.Block().GetFloat(Brush_Collision), 6, 1e-5f);
  EXPECT_NEAR(s.D().brushMinimum, 2, 1e-5f);
  s.Set(Brush_LineSize, 0.05f);
  s.AddAsType(s.AddBox(L"small", 0.4f, 0.4f, 9));
  EXPECT_NEAR(s.Block().GetFloat(Brush_LineSize), 0.2f, 1e-5f);
  s.Undo().Undo(), s.Undo().Undo();
  EXPECT_EQ(tall->GetNodeTM(0), tm);
}

TEST(AddType, SamplesAreDistinctVerticesInRandomOrder) {
  for (const int n : {2999, 3000, 3001, 5000}) {
    SowfieldScene s;
    Mesh mesh;
    for (int i = 0; i < n; ++i) mesh.verts.push_back({float(i), float(-2 * i), 0});
    s.AddAsType(s.AddMesh(L"cloud", mesh));
    EXPECT_EQ(s.Block().GetInt(Geo_PointCount), std::min(n, 3000));
    std::set<float> chosen;
    for (const Point3& p : s.Block().Points(Geo_Points))
      EXPECT_TRUE(chosen.insert(p.x).second && p.y == -2 * p.x && p.x < float(n));
    EXPECT_NE(s.Block().GetPoint3(Geo_Points).x, *chosen.begin()) << "in order";
  }
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

TEST(NodeDeletion, OfSeveralTakesTheirTypesAndPlacementsAlong) {
  SowfieldScene s;
  std::vector<INode*> nodes;
  for (const wchar_t* name : {L"a", L"b", L"c", L"d"})
    s.AddAsType(nodes.emplace_back(s.AddBox(name, 1, 1, 1)));
  s.AddAsType(nodes[1]);
  for (int p = 0; p < 10; ++p) s.AppendPlacements({{{float(p), 0, 0}, {}, p % 5, p, p}});
  const Snapshot before = TakeSnapshot(s.Block());
  EXPECT_TRUE(ComputeStats(s.D()).vertices == 80 && ComputeStats(s.D()).faces == 120);
  // Two nodes in one stroke: types 1, 2 and 4.
  s.log.Clear();
  s.host.Services().DeleteNodes(std::array{nodes[1], nodes[2]}, true);
  EXPECT_TRUE(s.Breach().empty() && s.log.Count(Event::TypeListChanged) == 1);
  EXPECT_EQ(s.Block().GetStr(Geo_Names, 0, 1), WStr(L"d"));
  EXPECT_EQ(s.Ints(Ins_Type), (std::vector{0, 1, 0, 1}));
  EXPECT_EQ(s.Ints(Ins_AnimRand), (std::vector{0, 3, 5, 8}));
  // The last ones leave the logo.
  s.host.Services().DeleteNodes(std::array{nodes[0], nodes[3]}, true);
  EXPECT_EQ(s.D().TypeCount() + s.D().PlacementCount(), 0);
  EXPECT_EQ(s.Seen().getNumVerts(), 786);
  s.Undo().Undo(), s.Undo().Undo();
  EXPECT_EQ(Differences(before, TakeSnapshot(s.Block())), "");
  EXPECT_TRUE(nodes[1]->InScene() && s.Seen().getNumVerts() == 786 + 10 * 4);
}

TEST(NodeDeletion, UndoneShowsThePlacementsAgainBehindTheirSource) {
  SowfieldScene s;
  INode* source = s.AddBox(L"a", 1, 1, 1);
  s.AddAsType(source), s.AppendPlacements({{{1, 2, 3}}, {{4, 5, 6}}}), s.Set(Display_Mode, 6);
  // The source comes back while the object has no node, the node without a message.
  for (INode* gone : {s.node, source}) s.host.Services().DeleteNode(gone, true, false);
  s.Undo().Undo();
  EXPECT_EQ(s.Seen().getNumVerts(), 786);
  s.Undo().Undo();
  EXPECT_EQ(s.Seen().getNumVerts(), 786 + 2 * 8);
}

TEST(InitNewObject, SetsUpNodeMaterialAndLayer) {
  SowfieldScene s;
  bool mine = false;
  const std::unique_ptr<Mesh> render(s.object->GetRenderMesh(0, s.node, nullptr, mine));
  EXPECT_TRUE(mine && render->getNumVerts() == 0) << "the logo is never rendered";
  s.node->SetNodeTM(0, {{1, 0, 0}, {0, 0, 2}, {0, -3, 0}, {4, 5, 6}});
  s.object->InitNewObject();  // a host may send the first point twice
  EXPECT_EQ(s.node->GetNodeTM(0), TransMatrix({4, 5, 6}));
  EXPECT_EQ(s.node->GetWireColor(), 0xCFFF78u);
  EXPECT_STREQ(GetString(kStringAddGeo), L"Add Geo");
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
  made->UpdateMesh(0);
  EXPECT_NEAR(made->mesh.getBoundingBox().pmax.x, 0.722872f * 50, 0.1);
  expect(MOUSE_MOVE, 1, {117, 76}, 1, 5);  // the way back counts alike
  expect(MOUSE_POINT, 1, {120, 80}, 0, 0.5f);
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

// Effects by letter: refresh, gate 0 or 1, remove types, remove splines, variations, files, brush
// minimum, shown type (y), types, painter, rows, stats, size, collision, erase, colour, exclusion,
// camera.
std::string Answer(int param, bool holding, int restoring, int ready = 1, int mode = 3,
                   int message = REFMSG_CHANGE, bool follows = false) {
  std::string text;
  for (const Effect e :
       Decide({RefMessage(message), ParamID(param), holding, restoring, ready, mode, follows}))
    text += "r01XSVFbytpwszcehEC"[int(e)];
  return text;
}

// Outside a step, recording, undo, redo, and both with the gate shut; - is no answer. The gate:
// Geo_Kind comes last in an undo, Geo_Names last in a redo.
constexpr const char* kAnswers = R"(
Geo_Kind 1 - bytpr1 0 bytpr1 0 Geo_Names 1 - 0 bytpr1 0 bytpr1 Ins_Pos - - rs - - -
Ins_AnimRand - - - rs - -     Display_Mode r r r r r r     Display_Type - - trs trs trs trs
Geo_PaintPct - - p p - -      Brush_Size - - z z z z       Brush_LineSize - - z z z z
Brush_Collision - - c c c c   Brush_Erase - - e e e e      Color_Shift - - h h h h
Excl_On - - E E E E           Excl_Splines - - E E E E     CamClip C C C C C C
Cam_Radio C C C C C C         CamNode C - C C C C          Proxy_Files F F F F F F
ForceDisplay - - r r r r      Show_Logo - - r r r r        Logo_size - - r r r r
PointCloud - - r r r r        Tr_AnimOn - - wr wr - -      Tr_AnimMin - - wr wr - -
Tr_AnimMax - - wr wr - -)";

TEST(Messages, AreAnsweredByTheTable) {
  std::map<std::string, std::array<std::string, 6>> lines;
  std::istringstream text(kAnswers);
  for (std::string name; text >> name;)
    for (std::string& cell : lines[name]) text >> cell, cell = cell == "-" ? "" : cell;
  ASSERT_EQ(lines.size(), 25u);
  const std::set<std::string> always = {"Geo_Kind", "Ins_Pos", "Excl_On", "Excl_Splines"};
  const std::map<int, std::string> nulled = {{0, "X"}, {103, "X"}, {47, "C"}, {32, "SE"}};
  for (const ParamEntry& e : AllParams()) {
    auto l = lines[e.id == ColorShift ? "Color_Shift" : ToUtf8(e.name)];
    if (e.form == IndexForm::Slot) l[2] = l[3] = "wr";
    const std::array found = {Answer(e.id, false, 0),    Answer(e.id, true, 0),
                              Answer(e.id, false, 1),    Answer(e.id, false, 4),
                              Answer(e.id, false, 1, 0), Answer(e.id, false, 4, 0)};
    EXPECT_EQ(found, l) << ToUtf8(e.name);
    EXPECT_EQ(Answer(e.id, false, 2), l[0]) << "2 is neither undo nor redo";
    EXPECT_EQ(Answer(e.id, true, 1), l[1]) << "recording rules";
    // A refresh that follows is left to itself, but only while a step is restored.
    std::string left = l[2];
    if (always.count(ToUtf8(e.name)) == 0) std::erase(left, 'r');
    EXPECT_EQ(Answer(e.id, false, 1, 1, 3, REFMSG_CHANGE, true), left);
    EXPECT_EQ(Answer(e.id, false, 0, 1, 3, REFMSG_CHANGE, true), l[0]);
    const auto gone = nulled.find(e.id);
    EXPECT_EQ(Answer(e.id, true, 0, 1, 4, 0x232), gone == nulled.end() ? "" : gone->second);
    EXPECT_EQ(Answer(e.id, true, 0, 1, 4, 0x235), e.id == 0 ? "V" : "");
    EXPECT_EQ(Answer(e.id, false, 0, 1, 4, REFMSG_END_EDIT), "");
  }
  EXPECT_EQ(Answer(Excl_On, false, 1, 1, 4), "Er") << "the heavy modes are rebuilt";
}

TEST(Messages, DeletedCamerasAndSplinesLeaveTheirParameters) {
  SowfieldScene s;
  std::array<INode*, 5> nodes;
  for (INode*& n : nodes) n = s.AddNode(L"line", nullptr);
  INode* eye = s.AddNode(L"eye", new CameraObject);
  s.Set(CamNode, eye), s.Set(CamClip, 1);
  for (const size_t i : {0, 1, 2, 1, 3, 4}) s.Block().Append(Excl_Splines, 1, &nodes[i]);
  s.log.Clear();
  s.host.Services().DeleteNodes(std::array{nodes[1], eye, nodes[4], nodes[2]}, true);
  const auto left = s.Block().Nodes(Excl_Splines);
  EXPECT_EQ(std::vector<INode*>(left.begin(), left.end()), (std::vector{nodes[0], nodes[3]}));
  EXPECT_TRUE(!s.Block().GetINode(CamNode) && s.Block().GetInt(CamClip) == 1);
  EXPECT_EQ(s.log.Count(Event::CameraChanged) + s.log.Count(Event::ExclusionChanged), 2);
  s.Undo().Undo();
  EXPECT_TRUE(s.Block().GetINode(CamNode) == eye && s.Block().Count(Excl_Splines) == 6);
}

TEST(Messages, MissingFilesAreNoticedWhenThePathsChange) {
  SowfieldScene s;
  const std::string file = testing::TempDir() + "there.Vorn";
  std::ofstream(file) << "x";
  const WStr path = FromUtf8(testing::TempDir()) + L"\\there.Vorn";
  AddFileType(s, path);
  s.log.Clear();
  for (const wchar_t* ending : {L"", L".none", L".none", L""}) s.Set(Proxy_Files, path + ending);
  EXPECT_TRUE(s.object->proxyFilesFound == 1 && s.log.Count(Event::TypeListChanged) == 2);
  s.Set(Proxy_Files, FromUtf8(testing::TempDir()));
  EXPECT_EQ(s.object->proxyFilesFound, 0) << "a folder is no file";
  std::filesystem::remove(file);
}

TEST(Messages, WhatShowsInThePictureComesBackWithOneRefresh) {
  SowfieldScene s;
  s.AddAsType(s.AddBox(L"box", 1, 1, 1));
  s.AppendPlacements({{{}, {}, 0, 0, 0}});
  ASSERT_EQ(s.Shown(), 786 + 4);
  theHold.Begin();
  s.Set(Show_Logo, 0), s.Set(Tr_AnimMin, 5), s.Set(Tr_ZPos_Min, 5.0f, 1), s.Set(ForceDisplay, 1);
  s.D().RefreshObject();
  theHold.Accept(L"Set");
  const auto expect = [&](int vertices, float height) {
    EXPECT_TRUE(s.Seen().getNumVerts() == vertices && s.redraws == 1) << s.redraws;
    EXPECT_EQ(s.Seen().verts.back().z, height);
  };
  s.redraws = 0, s.Undo().Undo(), expect(786 + 4, 1);
  s.redraws = 0, s.Undo().Redo(), expect(4, 6);
}

TEST(Messages, TheTypeShownAloneIsOneThatIsThere) {
  SowfieldScene s;
  for (const wchar_t* name : {L"a", L"b", L"c"}) s.AddAsType(s.AddBox(name, 1, 1, 1));
  theHold.Begin(), s.Set(Display_Type, 1), theHold.Accept(L"Show");
  s.AddAsType(s.AddBox(L"d", 1, 1, 1));
  s.Set(Display_Type, 4);  // outside a step: it isn't taken back with the type that it names
  s.Undo().Undo();
  EXPECT_TRUE(s.D().TypeCount() == 3 && s.Block().GetInt(Display_Type) == 0 && s.Breach().empty());
  s.Set(Display_Type, 3);
  s.D().lists.SelectObjectRows({2});
  DeleteSelectedTypes(s.D());
  EXPECT_EQ(s.Block().GetInt(Display_Type), 2);
  s.host.Services().DeleteNode(s.Named(L"c"), true, false);
  EXPECT_EQ(s.Block().GetInt(Display_Type), 0);
}

// Heavy by its stored count, which the budgets go by.
struct Heavy : SowfieldScene {
  Heavy() {
    for (const wchar_t* name : {L"a", L"b"}) AddAsType(AddBox(name, 1, 1, 1));
    Set(Display_Mode, 6);
  }
  void Stroke(int count) {
    theHold.Begin();
    AppendPlacements(std::vector<Placement>(size_t(count)));
    D().RefreshObject();
    theHold.Accept(L"Stroke");
  }
  // An undo or redo refreshes once and leads to the mode.
  void Roll(bool back, int mode, int shown = 0) {
    redraws = 0;
    EXPECT_TRUE(back ? Undo().Undo() : Undo().Redo());
    EXPECT_TRUE(redraws == 1 && D().ListReady() == 1) << redraws << Breach();
    EXPECT_EQ(Block().GetInt(Display_Mode), mode);
    EXPECT_TRUE(!shown || Seen().getNumVerts() == 786 + shown) << shown;
  }
};

TEST(Messages, ABudgetedStepIsRefreshedOnceByUndoAndRedo) {
  Heavy s;
  s.Set(Geo_VertCount, 9'000'000), s.Undo().Clear();
  s.Stroke(4), s.Stroke(1);
  s.Roll(true, 6, 4 * 8), s.Roll(false, 4, 5 * 4);
  s.Undo().Undo(), s.Undo().Undo(), s.Undo().Redo();
  // The mode is lowered while a step comes back: shown by the refresh that runs, as pyramids.
  s.Set(Geo_VertCount, 20'000'000);
  s.Undo().Undo(), s.Roll(false, 4, 4 * 4);
  // A step of the mode alone refreshes as ever.
  theHold.Begin(), s.Set(Display_Mode, 5), theHold.Accept(L"Mode"), s.Roll(true, 4);
  // One that lowers the mode before it deletes the heavy type.
  s.Set(Geo_VertCount, 8), s.Set(Ins_Type, 1, 1), s.Set(Geo_VertCount, 30'000'000, 1);
  s.Set(Display_Mode, 6);
  s.D().lists.SelectObjectRows({2}), s.Undo().Clear();
  theHold.Begin(), s.Set(Display_Mode, 4), DeleteSelectedTypes(s.D()), theHold.Accept(L"Both");
  s.Roll(true, 6), s.Roll(false, 4);
  EXPECT_EQ(s.D().TypeCount(), 1);
}

}  // namespace
}  // namespace sowfield
