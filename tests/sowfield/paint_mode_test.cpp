#include "host/viewport/picture.h"
#include "sowfield/model/palette.h"
#include "sowfield/model/placement.h"
#include "sowfield/objects/proxylife.h"
#include "tests/host/tempfolder.h"
#include "tests/sowfield/paint_fixture.h"

namespace sowfield {
namespace {

void ExpectOut(PaintScene& s, size_t nodes) {
  EXPECT_EQ(s.object->paint.paintTool, kNoTool);
  EXPECT_EQ(s.host.Views().GetMouseOwner(), nullptr);
  EXPECT_EQ(s.NodeCount(), nodes) << "previews";
  EXPECT_FALSE(theHold.Holding());
  EXPECT_TRUE(s.host.Services().GetHostSwitch());
  EXPECT_EQ(s.Breach(), "");
}

TEST(PaintMode, EveryWayOutMakesOneStepOfACutOffStroke) {
  const std::vector<std::function<void(PaintScene&)>> ways = {
      [](PaintScene& s) { s.Painter().EndPaint(); },
      [](PaintScene& s) { s.host.Views().RightClick(IPoint2(50, 50)); },
      [](PaintScene& s) { s.Canvas().CancelStroke(); },
      [](PaintScene& s) { s.Canvas().SystemEndPaintSession(); },
      [](PaintScene&) { PressToolButton(kNoTool); }, [](PaintScene& s) { s.CloseEdit(); },
      // The host opens another object's panels without a word to the first.
      [](PaintScene& s) {
        auto* other = static_cast<Sowfield*>(CreateInstance(GEOMOBJECT_CLASS_ID, s.kSowfieldClass));
        other->BeginEditParams(&s.host.Services(), kEditModify, nullptr);
        EXPECT_FALSE(PressToolButton(kLineTool)) << "the other has no types";
        s.host.Services().CreateObjectNode(other);
      }};
  for (const int tool : {kLineTool, kMultiTool, kEraseTool})
    for (size_t way = 0; way < ways.size(); ++way) {
      SCOPED_TRACE("tool " + std::to_string(tool) + ", way " + std::to_string(way));
      PaintScene s(3);
      s.AppendPlacements({{{0, 5, 0}}, {{9, 9, 0}}});
      s.Undo().Clear();
      const size_t nodes = s.NodeCount();
      ASSERT_TRUE(PressToolButton(tool));
      s.Give(PaintScene::Row(2, 5), true);
      const size_t waiting = s.Painter().PendingCount();
      EXPECT_EQ(s.NodeCount(), nodes + waiting);
      s.log.Clear();
      ways[way](s);
      for (const Event e : {Event::PaintToolChanged, Event::StatsChanged})
        EXPECT_TRUE(s.log.Count(e));
      ExpectOut(s, nodes + (way == 6));
      EXPECT_EQ(s.Count(), tool == kEraseTool ? 1 : 2 + waiting);
      EXPECT_EQ(s.Undo().UndoCount(), 1u);
      EXPECT_EQ((s.Undo().Undo(), s.Count()), 2u);
    }
}

TEST(PaintMode, ToolsChangeInTheMiddleOfStrokes) {
  PaintScene s(3);
  const auto expect = [&](const char* when, size_t pending, size_t count, size_t steps, bool held) {
    EXPECT_EQ(s.Painter().PendingCount(), pending) << when;
    EXPECT_EQ(s.Count(), count) << when;
    EXPECT_EQ(s.Undo().UndoCount(), steps) << when;
    EXPECT_EQ(theHold.Holding(), held) << when;
  };
  ASSERT_TRUE(PressToolButton(kLineTool));
  s.Give(PaintScene::Row(4), true);
  ASSERT_TRUE(PressToolButton(kMultiTool));
  expect("what waits stays through other painting tools", 4, 0, 0, false);
  ASSERT_TRUE(PressToolButton(kLineTool));
  s.Give(PaintScene::Row(5), true);
  expect("a new stroke minds it and adds to it", 5, 0, 0, false);
  ASSERT_TRUE(PressToolButton(kEraseTool));
  expect("the eraser has it committed", 0, 5, 1, false);
  s.Canvas().PaintStroke(PaintScene::On({4, 0, 0}));
  expect("erasing goes on from there in a step of its own", 0, 4, 1, true);
  s.Give(PaintScene::Row(1), true);
  expect("the start of another stroke ends it", 0, 3, 2, true);
  ASSERT_TRUE(PressToolButton(kLineTool));
  expect("another tool ends it", 0, 3, 3, false);
  s.Canvas().PaintStroke(PaintScene::On({1.3f, 0, 0}));
  s.Canvas().PaintStroke(PaintScene::On({0, 0, 0}));
  s.Canvas().EndStroke();
  expect("the line tool minds what the eraser spared", 0, 4, 4, false);
  for (const size_t count : {3, 4, 5, 0}) EXPECT_EQ((s.Undo().Undo(), s.Count()), count);
}

TEST(PaintMode, IsRefusedWithoutTypesConsentPaintSystemOrView) {
  for (const int lack : {0, 1, 2, 3}) {
    PaintScene s(lack > 0, PaintScene::System(lack % 3));
    if (s.Painter().HasPaintSystem() && lack == 1) s.Scripted().accepts = false;
    if (lack == 3) s.host.Views().SetActive(nullptr);
    s.log.Clear();
    EXPECT_FALSE(PressToolButton(kLineTool)) << lack;
    EXPECT_EQ(s.object->paint.paintTool, kNoTool);
    EXPECT_EQ(s.log.Count(Event::PaintToolChanged), 1);
  }
}

TEST(PaintMode, EndsWithItsObjectOrItsHost) {
  for (const int tool : {kLineTool, kMultiTool, kEraseTool})
    for (const bool withHost : {false, true}) {
      PaintScene s(1);
      const size_t nodes = s.NodeCount();
      s.AppendPlacements({{{0, 0, 0}}, {{7, 0, 0}}});
      ASSERT_TRUE(PressToolButton(tool));
      s.Give(PaintScene::Row(2), true);
      s.D().RemoveListener(&s.log);
      if (withHost) {
        std::destroy_at(&s.host);
        std::construct_at(&s.host);
      } else {
        s.node->DeleteReference(INode::kObjectRef);  // its last dependent lets go
        EXPECT_EQ(s.NodeCount(), nodes) << "previews go with it";
        while (s.Undo().Undo()) EXPECT_LE(s.NodeCount(), nodes);
      }
      EXPECT_TRUE(!TheEditContext().currentObject && !TheEditContext().currentPainter);
      EXPECT_FALSE(theHold.Holding());
      EXPECT_EQ(s.host.Views().GetMouseOwner(), nullptr);
    }
}

TEST(PaintMode, SourcesPreviewsAndTargetsAreDeletedUnderWay) {
  PaintScene s(3);
  INode* ground = s.AddPlane(L"ground", 18, 18);
  s.Undo().Clear();
  const size_t nodes = s.NodeCount();
  const Snapshot before = TakeSnapshot(s.Block());
  ASSERT_TRUE(PressToolButton(kLineTool));
  s.MoveTo(0, 0);
  EXPECT_EQ(s.Targets(), std::vector<INode*>{ground});
  s.Give(PaintScene::Row(6), true);
  s.host.Services().DeleteNodes(std::vector{s.Painter().StrokeNodes()[1], ground}, false);
  EXPECT_TRUE(s.Targets().empty() && s.Painter().StrokeNodes().size() == 5);
  s.host.Services().DeleteNode(s.sources[1], true, false);
  EXPECT_EQ(s.Painter().PendingCount(), 0u) << "their types no longer fit";
  EXPECT_EQ(s.NodeCount(), nodes - 2);
  for (const PainterEvent& e : PaintScene::Row(40, 3)) s.Canvas().PaintStroke(e);
  ASSERT_TRUE(s.AddAsType(s.AddBox(L"more", 1, 1, 1, {700, 500, 0})));
  EXPECT_EQ((s.Canvas().EndStroke(), s.Count()), 40u) << "an added type changes nothing for them";
  while (s.Undo().Undo()) EXPECT_EQ(s.Breach(), "");
  EXPECT_EQ(Differences(TakeSnapshot(s.Block()), before), "");
  EXPECT_EQ(s.NodeCount(), nodes) << "no preview comes back with the undo";

  s.Give(PaintScene::Row(2, 6), true);
  for (INode* n : s.sources) s.host.Services().DeleteNode(n, true, false);
  ExpectOut(s, nodes - 3);  // with the last type paint mode ends
}

TEST(PaintMode, BitForBitInOneStepAndOneRefreshEach) {
  PaintScene s(2);
  s.Brush(1.5f, 0.5f);
  s.AddPlane(L"ground", 18, 18);
  // The stored count decides: 4,000,000 vertices each, and 40,000,000 are allowed in mode 6.
  for (const int t : {0, 1}) s.Block().SetValue(Geo_VertCount, 0, 4'000'000, t);
  s.AppendPlacements(std::vector<Placement>(9, {{0, 8, 0}}));
  for (const int mode : {2, 4, 6}) {
    s.Set(Display_Mode, mode);
    ASSERT_EQ(s.Block().GetInt(Display_Mode), mode);
    s.Undo().Clear();
    std::vector<Snapshot> states = {TakeSnapshot(s.Block())};
    for (const int i : {0, 1, 2, 3, 4, 5}) {  // 1 and 3 change nothing
      const int tool[] = {kLineTool, kLineTool, kMultiTool, kEraseTool, kEraseTool, kMultiTool};
      const float y[] = {0, 0, 2, -8, 1, -1};
      s.Drag(tool[i], s.Pixel({-6, y[i], 0}), s.Pixel({6, y[i], 0}));
      if (i != 1 && i != 3) states.push_back(TakeSnapshot(s.Block()));
      EXPECT_EQ(s.Block().GetInt(Display_Mode), std::min(mode, 4)) << "lowered by stroke " << i;
      EXPECT_EQ(s.Undo().UndoNames(), std::vector<WStr>(states.size() - 1, L"Vorn_Painter"));
    }
    int draws = 0;
    s.host.Views().SetPainter([&](TimeValue) { ++draws; });
    const auto expect = [&](size_t state) {
      EXPECT_EQ(Differences(TakeSnapshot(s.Block()), states[state]), "") << "state " << state;
      EXPECT_EQ(std::exchange(draws, 0), 1) << "refreshes in mode " << mode;
    };
    for (size_t i = states.size() - 1; i-- > 0; expect(i)) ASSERT_TRUE(s.Undo().Undo());
    for (size_t i = 1; i < states.size(); expect(i++)) ASSERT_TRUE(s.Undo().Redo());
    s.host.Views().SetPainter(nullptr);
    while (s.Undo().Undo()) continue;
  }
}

// A setting of the tool: undo of a stroke takes back what the stroke laid or took, no more.
TEST(PaintMode, KeysForTheSizeAreNoPartOfAStroke) {
  const host::Modifiers grow{true, false, true};
  for (const int tool : {kLineTool, kMultiTool, kEraseTool})
    for (const float at : {0.0f, 8.0f}) {  // over the placement and off it
      PaintScene s(1);
      s.AppendPlacements({{{0, 0, 0}}});
      s.Undo().Clear();
      ASSERT_TRUE(PressToolButton(tool));
      const Param id = tool == kLineTool ? Brush_LineSize : Brush_Size;
      const float before = s.Block().GetFloat(id);
      const IPoint2 pixel = s.Pixel({at, 0, 0});
      s.host.Views().Press(pixel, grow);
      for (int i = 1; i < 3; ++i) s.host.Views().Move({pixel.x, pixel.y + i}, grow);
      s.host.Views().Release(s.host.Views().MousePosition(), grow);
      s.host.Views().Move(s.host.Views().MousePosition());  // and lets the keys go
      const float after = s.Block().GetFloat(id);
      EXPECT_GT(after, before * 1.05f) << "by 1.02 a redraw, four of them at least";
      EXPECT_EQ(s.Undo().UndoCount() == 0, s.Count() == 1) << "a step for what changed alone";
      s.Undo().Undo();
      EXPECT_EQ(s.Count(), 1u);
      EXPECT_EQ(s.Block().GetFloat(id), after);
    }
}

using PaintFiles = TempFolder;

TEST_F(PaintFiles, ATypeInAFileIsShownByAHiddenNodeOrByItsBox) {
  for (const int vertices : {8, 899'999, 900'000}) {
    PaintScene s(1);
    bool written = false;
    ASSERT_TRUE(ConvertType(s.D(), 0, FromUtf8(Path("type.Vorn")), written) && written);
    s.Block().SetValue(Geo_VertCount, 0, vertices, 0);
    const size_t nodes = s.NodeCount();
    ASSERT_TRUE(PressToolButton(kLineTool));
    s.Give(PaintScene::Row(2), true);
    ASSERT_EQ(s.Painter().StrokeNodes().size(), 2u);
    ASSERT_EQ(s.NodeCount(), nodes + 3) << "two previews and what they share";
    INode* source = s.Painter().SourceNodes()[0];
    EXPECT_TRUE(source->IsHidden());
    const EvaluatedMesh shown = EvalMesh(s.Painter().StrokeNodes()[1], 0);
    EXPECT_EQ(s.Painter().StrokeNodes()[1]->GetObjectRef(), source->GetObjectRef());
    // The box of 0.2 by 0.3 by 0.5, or a pyramid of these sizes.
    EXPECT_EQ(shown.mesh->verts.size(), vertices < 900'000 ? 8u : 4u);
    EXPECT_LT(Length(shown.mesh->getBoundingBox().Width() - Point3(0.2f, 0.3f, 0.5f)), 1e-5f);
    s.Painter().EndPaint();
    EXPECT_EQ(s.NodeCount(), nodes);
  }
}

TEST(PaintMode, PreviewsStandWherePlacementsWillAndLeaveNoTrace) {
  PaintScene s(2);
  s.Brush(1.5f, 0.5f);
  s.AddPlane(L"ground", 18, 18);
  // A source that is turned, stretched and off its pivot, under rows that vary everything.
  Matrix3 tm = TransMatrix({60, 70, 5});
  tm.RotateX(0.4f);
  tm.Scale({1.5f, 0.7f, 2});
  s.sources[1]->SetNodeTM(0, tm);
  s.sources[1]->SetObjOffsetPos({0.3f, -0.2f, 0.1f});
  for (int slot = 0; slot < 3; ++slot) {
    for (const Param id : {Tr_Random, Tr_Unify}) s.Block().SetValue(id, 0, id == Tr_Random, slot);
    for (const Param id : {Tr_ZPos_Max, Tr_XRot_Max, Tr_YRot_Max, Tr_ZRot_Max, Tr_XScale_Max,
                           Tr_YScale_Max, Tr_ZScale_Max})
      s.Block().SetValue(id, 0, 125.0f, slot);
  }
  s.Undo().Clear();
  const size_t nodes = s.NodeCount();
  for (const float x : {1.0f, 9.8f}) {  // on the plane and off it
    const size_t first = s.Count();
    ASSERT_TRUE(PressToolButton(kMultiTool));
    s.MoveTo(x, 0);
    s.host.Views().Press(s.Pixel({x, 0, 0}));
    ASSERT_TRUE(PressToolButton(kLineTool));
    s.Canvas().PaintStroke(PaintScene::On({-3, x, 0}, 1, nullptr, Normalize({0.5f, -0.3f, 1})));
    std::vector<std::tuple<Matrix3, ColorRef, Object*>> shown;
    for (INode* n : s.Painter().StrokeNodes())
      shown.emplace_back(n->GetObjectTM(0), n->GetWireColor(), n->GetObjectRef());
    ASSERT_TRUE(shown.size() > 4 && s.NodeCount() == nodes + shown.size());
    s.host.Views().Release(s.host.Views().MousePosition());
    EXPECT_EQ(s.NodeCount(), nodes);
    const PlacementEvaluator placements(s.Block(), 0);
    ASSERT_GE(placements.Count(), first + shown.size());
    for (size_t i = 0; i < shown.size(); ++i) {
      const int type = placements.Type(first + i);
      INode* from = s.sources[size_t(type)];
      const auto& [shownTm, color, object] = shown[i];
      EXPECT_TRUE(color == TypeColor(type) && object == from->GetObjectRef());
      // The source's turn and stretch, with the way from its pivot to its object.
      Matrix3 expected = from->GetNodeTM(0);
      expected.SetTrans(from->GetObjectTM(0).GetTrans() - expected.GetTrans());
      EXPECT_LT(Apart(expected * placements.Matrix(first + i), shownTm), 1e-4) << i;
    }
  }
}

TEST(BrushCursor, IsSeenWhereCurvedGroundRisesOverIt) {
  PaintScene s(1);
  Mesh valley;  // |x| high
  for (const float x : {-10.0f, 0.0f, 10.0f})
    for (const float y : {-10.0f, 10.0f}) valley.verts.push_back({x, y, std::fabs(x)});
  for (const std::uint32_t i : {0u, 2u}) {
    valley.faces.push_back({{i, i + 2, i + 1}, 0, EDGE_ALL});
    valley.faces.push_back({{i + 1, i + 2, i + 3}, 0, EDGE_ALL});
  }
  s.AddMesh(L"valley", valley)->SetWireColor(PackColor(90, 90, 90));
  s.Set(Brush_Size, 3.0f);
  ASSERT_TRUE(PressToolButton(kMultiTool));
  s.MoveTo(0.6f, 0), s.MoveTo(0.3f, 0);
  std::string error;
  const auto picture = host::DrawScene(s.host.Services(), s.View(), {.grid = false}, error);
  ASSERT_TRUE(picture) << error;
  // Left of the middle the rim, on the right side's plane, lies up to 3 under the left side. The
  // line along the normal is in the middle's rows.
  int rim = 0;
  for (int y = 0; y < 200; ++y)
    for (int x = 0; x < 95; ++x) {
      const std::uint8_t* c = &picture->rgb[size_t(y * 200 + x) * 3];
      rim += std::abs(y - 100) > 8 && c[0] > 150 && c[2] < 90;
    }
  EXPECT_GT(rim, 15);
}

}  // namespace
}  // namespace sowfield
