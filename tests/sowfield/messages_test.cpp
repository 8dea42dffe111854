// What the object does in answer to its block, and how often it refreshes in an undo or redo.

#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "tests/sowfield/typelist_fixture.h"

namespace sowfield {
namespace {

// Effects by letter: refresh, gate 0 or 1, remove types, remove splines, variations, files, brush
// minimum, types, painter, rows, stats, size, collision, erase, colour, exclusion, camera.
std::string Answer(int param, bool holding, int restoring, int ready = 1, int mode = 3,
                   int message = REFMSG_CHANGE, bool follows = false) {
  std::string text;
  for (const Effect e :
       Decide({RefMessage(message), ParamID(param), holding, restoring, ready, mode, follows}))
    text += "r01XSVFbtpwszcehEC"[int(e)];
  return text;
}

// Outside a step, recording, undo, redo, and both with the gate shut; - is no answer. The gate:
// Geo_Kind comes last in an undo, Geo_Names last in a redo.
constexpr const char* kAnswers = R"(
Geo_Kind 1 - btpr1 0 btpr1 0  Geo_Names 1 - 0 btpr1 0 btpr1 Ins_Pos - - rs - - -
Ins_AnimRand - - - rs - -     Display_Mode r r r r r r     Display_Type - - trs trs trs trs
Geo_PaintPct - - p p - -      Brush_Size - - z z z z       Brush_LineSize - - z z z z
Brush_Collision - - c c c c   Brush_Erase - - e e e e      Color_Shift - - h h h h
Excl_On - - E E E E           Excl_Splines - - E E E E     CamClip C C C C C C
Cam_Radio C C C C C C         CamNode C - C C C C          Proxy_Files F F F F F F)";

TEST(Messages, AreAnsweredByTheTable) {
  std::map<std::string, std::array<std::string, 6>> lines;
  std::istringstream text(kAnswers);
  for (std::string name; text >> name;)
    for (std::string& cell : lines[name]) text >> cell, cell = cell == "-" ? "" : cell;
  ASSERT_EQ(lines.size(), 18u);
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
    const bool mode = e.id == Display_Mode;
    EXPECT_EQ(Answer(e.id, false, 1, 1, 3, REFMSG_CHANGE, true), mode ? "" : l[2]);
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
    EXPECT_TRUE(!shown || object->mesh.getNumVerts() == 786 + shown) << shown;
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
  theHold.Begin(), s.Set(Display_Mode, 5), theHold.Accept(L"Mode");
  s.Roll(true, 4), s.Roll(false, 5);
  // One that lowers the mode before it deletes the heavy type.
  s.Set(Geo_VertCount, 8), s.Set(Ins_Type, 1, 1), s.Set(Geo_VertCount, 30'000'000, 1);
  s.Set(Display_Mode, 6);
  s.D().lists.SelectObjectRows({2}), s.Undo().Clear();
  theHold.Begin(), s.Set(Display_Mode, 4), DeleteSelectedTypes(s.D()), theHold.Accept(L"Both");
  s.Roll(true, 6), s.Roll(false, 4);
  EXPECT_EQ(s.D().TypeCount(), 1);
  // And one that leaves the placements alone.
  INode* c = s.AddBox(L"c", 1, 1, 1);
  theHold.Begin(), s.Set(Display_Mode, 5), s.AddAsType(c), theHold.Accept(L"Both");
  s.Roll(true, 4), s.Roll(false, 5);
}

}  // namespace
}  // namespace sowfield
