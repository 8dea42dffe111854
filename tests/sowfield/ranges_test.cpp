// No value that a scene may hold crashes what is done with it.

#include "host/viewport/viewexp.h"
#include "tests/sowfield/paint_fixture.h"

namespace sowfield {
namespace {

void SetAll(PaintScene& s, const ParamEntry& e, double value) {
  for (int i = 0; i < s.Block().Count(e.id); ++i)
    e.IsWhole() ? s.Set(e.id, int(value), i) : s.Set(e.id, float(value), i);
}

void ShowAndPaint(PaintScene& s) {
  Box3 box;
  for (int mode = 0; mode <= 6; ++mode) {
    s.Set(Display_Mode, mode);
    s.object->UpdateMesh(0);
    EXPECT_EQ(s.object->Display(0, s.node, &s.View(), 0), 1);
    s.object->GetLocalBoundBox(0, s.node, &s.View(), box);
  }
  s.Set(Display_Mode, 3);
  for (const int tool : {kLineTool, kMultiTool, kEraseTool}) {
    s.Drag(tool, {60, 60}, {100, 90});
    PressToolButton(kNoTool);
  }
}

TEST(HardRanges, HoldNothingThatCrashesOrHangs) {
  for (const ParamEntry& e : AllParams()) {
    if (e.role != Role::Editable || !e.IsNumber()) continue;
    for (const bool low : {true, false}) {
      SCOPED_TRACE(ToUtf8(e.name) + (low ? ", least" : ", most"));
      PaintScene s(2);
      s.AddPlane(L"field", 40, 40);
      EnsureAnimTable(s.D());
      for (int p = 0; p < 30; ++p) s.AppendPlacements({{{0.3f * float(p), 1, 0}, {}, p % 2, p, p}});
      const Range range = HardRangeIn(s.Block(), e);
      SetAll(s, *FindParam(Tr_Random), 1), SetAll(s, *FindParam(Tr_AnimOn), 1);
      SetAll(s, e, std::clamp(low ? range.low : range.high, -2147483648.0, 2147483647.0));
      ASSERT_EQ(s.Breach(), "");
      ShowAndPaint(s);
      EXPECT_EQ(s.Breach(), "");
    }
  }
}

}  // namespace
}  // namespace sowfield
