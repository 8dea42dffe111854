#include "sowfield/paint/targets.h"

#include "host/math/quat.h"
#include "host/scene/modifier.h"
#include "tests/sowfield/paint_fixture.h"
#include "tests/sowfield/placement_twin.h"

namespace sowfield {
namespace {

using Nodes = std::vector<INode*>;

/// A walk over all nodes from one downward: what the index answers without it.
void Walk(const TargetQuery& query, INode* node, const INode* preview, Nodes& found) {
  if (node != preview && IsTarget(query, node)) found.push_back(node);
  for (int i = 0; i < node->NumberOfChildren(); ++i)
    Walk(query, node->GetChildNode(i), preview, found);
}

/// The index against the walk, and what both say.
Nodes Targets(TargetIndex& index, PaintScene& s, const TargetQuery& query, const INode* preview) {
  Nodes plain;
  Walk(query, s.host.Services().GetRootNode(), preview, plain);
  Tab<INode*> found;
  for (int twice = 0; twice < 2; ++twice) index.Collect(s.host.GetScene(), query, found);
  EXPECT_EQ(Nodes(found.begin(), found.end()), plain);
  return plain;
}

// Slabs in double: the open box has a point of the line iff the three open intervals overlap.
TEST(PaintTargets, LinesAgainstSlabs) {
  Draws draw(11);
  int met = 0;
  Point3 hit;
  for (int i = 0; i < 20000; ++i) {
    const Point3 l1 = draw.Point(-3, 3), l2 = draw.Point(-3, 3);
    Box3 box;
    box += draw.Point(-3, 3), box += draw.Point(-3, 3);
    double from = 0, to = 1;
    for (int k = 0; k < 3; ++k) {
      const double way = double(l2[k]) - l1[k];
      const double p = (double(box.pmin[k]) - l1[k]) / way, q = (double(box.pmax[k]) - l1[k]) / way;
      from = std::max(from, std::min(p, q));
      to = std::min(to, std::max(p, q));
    }
    if (std::fabs(to - from) < 1e-5) continue;  // too near a corner for rounded hits to decide
    ASSERT_EQ(CheckLineBox(box.pmin, box.pmax, l1, l2, hit), from < to) << "line " << i;
    met += from < to;
  }
  EXPECT_NEAR(met, 10000, 8000);
  const auto meets = [&](const Point3& from, const Point3& to) {
    return CheckLineBox({-1, -1, -1}, {1, 1, 1}, from, to, hit);
  };
  EXPECT_TRUE(meets({0, 0, 0.5f}, {0, 0, 0.75f}) && hit.z == 0.5f) << "starts inside";
  EXPECT_TRUE(meets({0, 0, 1}, {0, 0, -5}) && hit.z == -1) << "starts on a face";
  EXPECT_FALSE(meets({0, 0, 5}, {0, 0, 1})) << "ends on a face";
  EXPECT_FALSE(meets({1, 0, 5}, {1, 0, -5})) << "in the plane of a face";
}

TEST(PaintTargets, SowfieldObjectsByToolAndMode) {
  PaintScene s(1);
  s.AppendPlacements({{{0, 0, 0}}, {{3, 0, 0}}});
  const auto modes = [&](bool onSelf, int tool) {
    std::string of;
    for (int mode = 0; mode <= 6; ++mode) {
      s.Set(Paint_On_Self, int(onSelf)), s.Set(Display_Mode, mode);
      s.object->RefreshObject();
      EXPECT_TRUE(PressToolButton(tool));
      s.Painter().ResetTargets();
      s.MoveTo(8, 8);
      s.MoveTo(1.5f, 0);
      of += SowfieldObjectsAreTargets(onSelf, tool, mode) ? 'x' : '.';
      EXPECT_TRUE(mode < 4 || s.Targets().size() == (of.back() == 'x')) << mode;
    }
    return of;
  };
  EXPECT_EQ(modes(false, kEraseTool), ".......");
  EXPECT_EQ(modes(true, kLineTool), "...x..x");
  EXPECT_EQ(modes(true, kEraseTool), "...xxxx");
  ASSERT_TRUE(PressToolButton(kMultiTool));
  EXPECT_EQ(s.Targets(), Nodes{}) << "the multi tool may not paint on them";
  EXPECT_EQ(modes(true, kMultiTool), ".......");
}

struct OddObject : BoxObject {
  OddObject(SClass_ID superClass, Class_ID itsClass, bool toTri = true, bool toPoly = true)
      : super(superClass), id(itsClass), tri(toTri), poly(toPoly) {}
  SClass_ID SuperClassID() const override { return super; }
  Class_ID ClassID() const override { return id; }
  ObjectState Eval(TimeValue) override { return ObjectState(this); }
  bool CanConvertToType(Class_ID to) override {
    return (to == triObjectClassID && tri) || (to == polyObjectClassID && poly);
  }
  SClass_ID super;
  Class_ID id;
  bool tri, poly;
};

TEST(PaintTargets, WalkByClassVisibilityAndReach) {
  PaintScene s(0);
  INode* preview = s.AddBox(L"preview", 2, 2, 2);
  TargetIndex index([&](const INode* n) { return n == preview; });
  const auto under = [&](float x, float y) {
    const SightLine line = SightLineThrough({x, y, 50}, {x, y, 0});
    return Targets(index, s, {false, 0, &s.View(), line, {.scaled = true}}, preview);
  };
  const Class_ID plain{0x1234, 0x5678};
  s.AddNode(L"odd", new OddObject(SHAPE_CLASS_ID, plain));
  s.AddNode(L"odd", new OddObject(GEOMOBJECT_CLASS_ID, plain, false, true));
  s.AddNode(L"odd", new OddObject(GEOMOBJECT_CLASS_ID, plain, true, false));
  for (const Class_ID id : {Class_ID(0x4a93d413, 0xc235d2b7), Class_ID(0x44d601f8, 0x0f43253d),
                            Class_ID(0x44d846f8, 0x0f96323d), SowfieldScene::kSowfieldClass})
    s.AddNode(L"odd", new OddObject(GEOMOBJECT_CLASS_ID, id));
  s.AddNode(L"empty", nullptr);
  EXPECT_EQ(under(0, 0), Nodes{});
  // 10 wide and 1 long: scaled by 1.2 it reaches to x 6 and y 0.6.
  INode* box = s.AddBox(L"box", 10, 1, 2);
  INode* child = s.AddNode(L"child", new OddObject(GEOMOBJECT_CLASS_ID, plain), {0, 40, 0});
  box->AttachChild(child);
  for (const float x : {5.9f, 6.1f}) EXPECT_EQ(under(x, 0), x < 6 ? Nodes{box} : Nodes{});
  for (const float y : {0.59f, 0.61f}) EXPECT_EQ(under(0, y), y < 0.6f ? Nodes{box} : Nodes{});
  box->Hide(true);
  EXPECT_EQ(under(0, 0), Nodes{});
  EXPECT_EQ(under(0, 40), Nodes{child}) << "the child of a hidden parent counts";
}

/// Changes a scene of boxes at random, as a person might.
struct Unrest {
  INode* Any() {
    const Nodes all = s.host.GetScene().AllNodes();
    return all[size_t(draw.Int(0, int(all.size()) - 1))];
  }
  void Act() {
    INode *n = Any(), *to = Any();
    const INode* up = to;
    while (up && up != n) up = up->GetParentNode();
    auto* box = dynamic_cast<BoxObject*>(n->GetObjectRef());
    auto* stack = dynamic_cast<DerivedObject*>(n->GetObjectRef());
    const std::function<void()> acts[] = {
        [&] { s.AddBox(L"box", draw.Float(0, 4), draw.Float(0, 4), 1, draw.Point(-9, 9)); },
        [&] { n->SetNodeTM(time, TransMatrix(draw.Point(-9, 9))); },
        [&] { n->Hide(!n->IsHidden()); },
        [&] { up ? void() : to->AttachChild(n, draw.Int(0, 1)); },
        [&] { n == s.node ? void() : s.host.Services().DeleteNode(n, false, false); },
        [&] { box ? box->SetSize(draw.Float(0, 4), draw.Float(0, 4), 2) : void(); },
        [&] { n->SetObjOffsetPos(draw.Point(-3, 3)); },
        [&] {
          n->GetTMController()->SetKeys(400 * draw.Int(0, 3),
                                        host::PartsOf(TransMatrix(draw.Point(-9, 9))),
                                        TransformControl::kPosition);
        },
        [&] {
          if (n == s.node || stack) return;
          stack = new DerivedObject(n->GetObjectRef());
          stack->AddModifier(modifiers.emplace_back(new XFormModifier).get());
          n->SetObjectRef(stack);
        },
        [&] {
          if (!modifiers.empty()) modifiers.back()->SetMatrix(TransMatrix(draw.Point(-5, 5)));
        },
        [&] { s.host.Services().SetTime(time = 400 * draw.Int(0, 3)); },
        [&] { n == s.node ? void() : n->SetObjectRef(to->GetObjectRef()); }};
    acts[draw.Int(0, 11)]();
  }
  PaintScene& s;
  Draws draw;
  TimeValue time = 0;
  std::vector<Pin<XFormModifier>> modifiers;
};

TEST(PaintTargets, TheIndexAnswersAsTheWalkThroughAllChanges) {
  size_t met = 0;
  for (std::uint32_t seed = 1; seed <= 4; ++seed) {
    PaintScene s(1);
    INode* preview = s.AddBox(L"preview", 9, 9, 9);
    const Pin<INode> kept(preview);
    s.AppendPlacements({{{2, 2, 0}}, {{-6, 3, 0}}});
    Unrest unrest{s, Draws(seed), 0, {}};
    for (int i = 0; i < 60; ++i) s.AddBox(L"box", 1, 2, 1, unrest.draw.Point(-9, 9));
    TargetIndex index([&](const INode* n) { return n == preview; });
    for (int act = 0; act < 250; ++act) {
      theHold.Begin();
      unrest.Act();
      theHold.Accept(L"act");
      for (int k = unrest.draw.Int(0, 3); k > 0; --k)
        unrest.draw.Int(0, 1) ? s.Undo().Undo() : s.Undo().Redo();
      const Point3 eye = unrest.draw.Point(-30, 30), to = unrest.draw.Point(-9, 9);
      for (const Reach reach : {Reach{.scaled = true}, Reach{.radius = 0.5f}})
        met += Targets(index, s,
                       {act % 3 == 0, unrest.time, &s.View(), SightLineThrough(eye, to), reach},
                       preview)
                   .size();
      ASSERT_FALSE(testing::Test::HasFailure()) << "seed " << seed << ", act " << act;
    }
  }
  EXPECT_GT(met, 200u);
}

TEST(PaintTargets, TheListFollowsTheCursor) {
  PaintScene s(1, PaintScene::kScripted);
  INode* a = s.AddBox(L"a", 2, 2, 1, {-5, 0, 0});
  INode* b = s.AddBox(L"b", 2, 2, 1, {5, 0, 0});
  ASSERT_TRUE(PressToolButton(kLineTool));
  std::vector<Nodes>& sent = s.Scripted().sent;
  // A new node replaces the list; it stays over empty space, and nothing is sent on coming back.
  const Nodes all[] = {{a}, {b}, {a}};
  const float way[] = {0, -5, -4.8f, 5, 0, 5, -5};
  const size_t count[] = {0, 1, 1, 2, 2, 2, 3};
  for (const size_t i : {0, 1, 2, 3, 4, 5, 6}) {
    s.MoveTo(way[i], 0);
    EXPECT_EQ(sent, std::vector<Nodes>(all, all + count[i])) << i;
  }
  ASSERT_TRUE(PressToolButton(kMultiTool));
  s.Give({PaintScene::On({2.4f, 2.4f, 1}, 1.5f, a)});
  EXPECT_EQ(sent.size(), 3u) << "beyond the radius";
  s.Give({PaintScene::On({2.6f, 2.4f, 1}, 1.5f, a)});
  EXPECT_EQ(sent.back(), (Nodes{a, b})) << "a stroke widens the list and loses nothing";
  s.Painter().ResetTargets();
  EXPECT_EQ(sent.back(), Nodes{});
}

constexpr double kDegree = 3.14159265358979323846 / 180;

/// Where RotateZ(angle) takes +Y.
Point3 Arrow(double angle) { return {float(-std::sin(angle)), float(std::cos(angle)), 0}; }

TEST(LineBrushAngle, TheArrowFollowsTheDirectionAndSnapsToTheNearestMultiple) {
  for (double d = -179.7; d < 180; d += 3.1) {
    const Point3 flat(float(std::cos(d * kDegree)), float(std::sin(d * kDegree)), 0);
    for (const float length : {0.001f, 5000.0f}) {
      const Point3 rising = Point3(flat.x, flat.y, float(d * 0.01)) * length;
      EXPECT_LT(Length(Arrow(LineBrushAngle(rising, 0)) - flat), 2e-6f) << d;
    }
    const double free = LineBrushAngle(flat, 0) / kDegree;
    for (const float snap : {1.0f, 7.0f, 45.0f, 90.0f, 100.0f, 180.0f})
      if (std::fabs(std::fmod(free, snap) - snap * 0.5) > 1e-3) {  // not at a tie
        const double nearest = std::floor(free / snap + 0.5) * snap;
        EXPECT_NEAR(LineBrushAngle(flat, snap) / kDegree, nearest, 1e-3) << d << " by " << snap;
      }
  }
}

Point3 Spiral(int i) { return Arrow(0.15 * i) * (0.1f * float(i)); }

TEST(PaintCursor, TheLineDirectionComesFromTwentyEntriesBack) {
  for (const Point3& leaning : {Point3(0, 0, 1), Point3(0.3f, -0.4f, 1), Point3(-1, 0.2f, 0.6f)}) {
    PaintScene s(1, PaintScene::kScripted);
    ASSERT_TRUE(PressToolButton(kLineTool));
    const Point3 normal = Normalize(leaning);
    const Matrix3 surface = MatrixFromNormal(normal);
    s.Scripted().cast = [&](const IPoint2& m) {
      return ScriptedPaintSystem::WayPoint{m, true, Spiral(m.x) * surface, normal};
    };
    const float& angle = s.object->paint.brushAngle;
    for (int i = 0; i < 60; ++i) {
      s.host.Views().Move({i, 0});
      s.host.Services().RedrawViews(0);
      ASSERT_EQ(s.Scripted().way.size(), size_t(i + 1)) << "each move adds one entry";
      if (i == 0) continue;
      const Point3 from = Spiral(i < 20 ? 0 : i + 1 - 20);  // 21 entries and more: count - 20
      EXPECT_LT(Length(Arrow(angle) - Normalize(Spiral(i) - from)), 1e-5f) << i;
    }
    const float held = angle;
    s.host.Views().Move({30, 0}, {true, false, false});
    EXPECT_EQ(angle, held) << "Ctrl holds the direction";
    ASSERT_TRUE(PressToolButton(kMultiTool));
    s.host.Views().Move({12, 0});
    EXPECT_EQ(angle, held) << "so does another tool";
    s.Set(Brush_Snap, 90);
    ASSERT_TRUE(PressToolButton(kLineTool));
    s.host.Views().Move({14, 0});
    EXPECT_NEAR(std::remainder(angle, 90 * kDegree), 0, 1e-5);
  }
}

TEST(PaintCursor, OffTheSurfacesTheGroundCounts) {
  PaintScene s(1, PaintScene::kScripted);
  ASSERT_TRUE(PressToolButton(kLineTool));
  for (const float y : {1.0f, 5.0f}) s.MoveTo(-4, y);
  for (const float eye : {4.0f, -4.0f})
    for (const float target : {0.0f, eye, 2 * eye}) {  // at the ground, level and at the sky
      const ViewExp view = ViewExp::Perspective({0, 0, eye}, {3, 0, target}, 0.5f, 101, 101);
      Point3 p(3, 0, 0);
      EXPECT_EQ(GroundPoint(view, {50, 50}, p), target == 0) << eye << " " << target;
      EXPECT_LT(Length(p - Point3(3, 0, 0)), 1e-4f);
    }
  EXPECT_LT(Length(Arrow(s.object->paint.brushAngle) - Point3(0, 1, 0)), 1e-4f);
}

// Ground 4 units up, seen aslant, and a wall up to 20 that stands before the sky: nothing of both
// is known when the session starts, and the ground Z 0 behind a pixel is elsewhere or nowhere.
TEST(PaintCursor, ASurfaceCountsFromTheFirstEventOn) {
  PaintScene s(1);
  s.AddPlane(L"raised", 40, 40, 1, 1, {0, 0, 4});
  s.AddBox(L"wall", 40, 1, 20, {0, 20, 0});
  s.Look(ViewExp::Perspective({0, -20, 9}, {0, 0, 9}, 1.2f, 400, 400));
  s.Brush(1, 0);
  for (const Point3& from : {Point3(-3, 0, 4), Point3(-3, 19.5f, 15)}) {
    const size_t first = s.Count();
    s.host.Views().Move(s.Pixel(from));
    ASSERT_TRUE(PressToolButton(kLineTool));
    s.host.Views().Press(s.Pixel(from));
    for (const float x : {1.0f, 4.0f}) s.host.Views().Move(s.Pixel(from + Point3(x, 0, 0)));
    s.host.Views().Release(s.host.Views().MousePosition());
    ASSERT_EQ(s.Count(), first + 3);
    for (size_t i = first; i < s.Count(); ++i) {
      const Placement p = s.Rows()[i];
      EXPECT_NEAR(p.position.z, from.z, 0.2f) << i;
      EXPECT_NEAR(p.position.y, from.y, 0.4f) << i;
      // On the ground the angle about Z is the line's own: the way went along +X.
      const bool follows = i > first && from.z == 4;
      EXPECT_TRUE(!follows || Length(Arrow(p.angles.z) - Point3(1, 0, 0)) < 0.2f) << i;
    }
    s.Painter().EndPaint();
  }
}

TEST(PaintCursor, ANewSessionLooksForTargetsWhereThePointerIs) {
  PaintScene s(1);
  INode* ground = s.AddPlane(L"ground", 18, 18);
  s.MoveTo(1, 1);
  for (int session = 0; session < 2; ++session) {
    ASSERT_TRUE(PressToolButton(kLineTool));
    s.host.Services().RedrawViews(0);
    EXPECT_EQ(s.Targets(), Nodes{ground}) << session;
    s.Painter().EndPaint();
  }
}

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
