// The brush cursor: what it draws, and the keys that change its size.

#include <gtest/gtest.h>

#include "host/math/quat.h"
#include "tests/sowfield/paint_fixture.h"

namespace sowfield {
namespace {

struct CursorScene : PaintScene {
  explicit CursorScene(int tool) : PaintScene(1, kScripted) {
    EXPECT_TRUE(PressToolButton(tool));
    Set(Brush_Size, 2.0f), Set(Brush_LineSize, 3.0f);
    Surface({0, 0, 0}, {0, 0, 1});
  }
  /// A plane through `at`, on which the pointer moves a unit a pixel.
  void Surface(const Point3& at, const Point3& normal) {
    Scripted().cast = [=](const IPoint2& m) {
      const Point3 moved = at + Point3(float(m.x), float(m.y), 0) * MatrixFromNormal(normal);
      return ScriptedPaintSystem::WayPoint{m, true, moved, normal};
    };
  }
  /// Points of the lines that a redraw with the pointer there shows, two a segment, world space.
  std::vector<Point3> Lines(const IPoint2& at, host::Modifiers keys = {}) {
    host.Views().Move(at, keys);
    std::vector<Point3> all;
    for (const auto& v : View().getGW()->Lines()) {
      EXPECT_EQ(v.rgba & 0xFFFFFF, 0x0080D9u);
      all.push_back(v.at * View().getGW()->Batches().back().toWorld);
    }
    return all;
  }
};

TEST(BrushCursor, LiesOnTheSurfaceInItsToolsShape) {
  const size_t segments[] = {1 + 16 + 35 + 6, 1 + 16 + 15, 1 + 16 + 12};
  for (const int tool : {kLineTool, kMultiTool, kEraseTool}) {
    CursorScene s(tool);
    const Point3 at(3, -2, 5), normal = Normalize({0.3f, -0.4f, 1});
    const Matrix3 frame = MatrixFromNormal(normal);
    s.Surface(at, normal), s.object->paint.brushAngle = 1;
    s.Lines({-1, 9});  // the line's direction from here is the surface's +X
    const std::vector<Point3> lines = s.Lines({0, 9});
    const float r = tool == kLineTool ? 3.0f : 2.0f;
    const auto turned = [&](float x, float y) {  // a quarter turn from +Y, for the line alone
      return (tool == kLineTool ? Point3(y * r, -x * r, 0) : Point3(x * r, y * r, 0)) * frame;
    };
    const Point3 now = at + Point3(0, 9, 0) * frame;
    ASSERT_EQ(lines.size(), 2 * segments[tool]);
    EXPECT_LT(Apart(lines[2], now + turned(1, 0)), 1e-4);
    EXPECT_LT(Length(lines[1] - lines[0] - normal * (1.434803f * r)), 1e-4f);
    for (size_t i = 2; i < lines.size(); ++i)
      EXPECT_NEAR(DotProd(lines[i] - now, normal), 0, 1e-4f);
    for (size_t i = 2; i < 34; ++i) EXPECT_NEAR(Length(lines[i] - now), r, 1e-3f * r) << "the rim";
    EXPECT_TRUE(tool != kLineTool || Apart(lines[109], now + turned(0.0021f, 1.8558f)) < 1e-4);
  }
}

TEST(BrushCursor, LiesFlatOnTheGridAndVanishesAboveTheHorizon) {
  CursorScene s(kMultiTool);
  s.Scripted().cast = nullptr;
  s.Look(ViewExp::Perspective({0, -20, 5}, {0, 0, 5}, 1, 200, 200));
  const std::vector<Point3> lines = s.Lines({120, 160});
  ASSERT_EQ(lines.size(), 64u);
  for (size_t i = 2; i < lines.size(); ++i) EXPECT_EQ(lines[i].z, 0);
  EXPECT_EQ(s.Pixel((lines[2] + lines[18]) * 0.5f), (IPoint2{120, 160})) << "the rim's middle";
  EXPECT_TRUE(s.Lines({120, 40}, {true, false, true}).empty());
  EXPECT_EQ(s.Block().GetFloat(Brush_Size), 2) << "no brush, no change";
}

TEST(BrushCursor, KeysChangeTheSizeOfTheToolInHandByTwoPercent) {
  const host::Modifiers shrink{true, true, true}, grow{true, false, true};
  for (const int tool : {kLineTool, kMultiTool, kEraseTool}) {
    CursorScene s(tool);
    const float &one = s.Block().Floats(Brush_Size)[0], &line = s.Block().Floats(Brush_LineSize)[0];
    const float &mine = tool == kLineTool ? line : one, &other = tool == kLineTool ? one : line;
    const double before = mine, kept = other;
    s.log.Clear();
    // Each redraw counts, whether the pointer moved or not.
    for (int i = 0; i < 3; ++i) s.Lines({5, 5}, grow);
    EXPECT_NEAR(mine, before * 1.061208, 1e-5 * before);
    EXPECT_NEAR(Length(s.Lines({5, 5}, shrink)[2] - Point3(5, 5, 0)), before * 1.03998384, 1e-4);
    EXPECT_EQ(s.log.Count(Event::BrushSizeChanged), 4);
    for (int i = 0; i < 250; ++i) s.Lines({5, 5}, shrink);
    for (const host::Modifiers& idle : {host::Modifiers{}, {true}, {false, true, true}})
      s.Lines({6, 6}, idle);
    EXPECT_EQ(mine, s.D().brushMinimum);
    EXPECT_NEAR(mine, 0.125, 1e-6) << "a quarter of 0.2 and 0.3";
    EXPECT_EQ(other, kept);
  }
}

}  // namespace
}  // namespace sowfield
