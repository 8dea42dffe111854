#include <array>
#include <bit>
#include <limits>
#include <random>

#include "host/math/elementary.h"
#include "host/math/quat.h"
#include "tests/sowfield/paint_fixture.h"

namespace sowfield {
namespace {

constexpr float kToRadians = 0.017453292f, kToDegrees = 57.29578f;

/// The three stroke tools written down plainly: one list, no index, no previews.
struct Twin {
  explicit Twin(PaintScene& scene) : s(scene), rows(s.Rows()) {
    // Slot 0 and each type drew a block of 8 times 100 values.
    for (int i = 0; i < 800 * 4; ++i) Unit();
  }
  float Unit() {
    std::uint32_t a = rng[0];
    a ^= a << 16, a ^= a >> 5, a ^= a << 1;
    rng = {rng[1], rng[2], a ^ rng[1] ^ rng[2]};
    return float(rng[2]) * 2.3283064e-10f;
  }
  static Point3 Euler(const Matrix3& m) {
    float e[3];
    QuatToEuler(Quat(m), e);
    return {e[0], e[1], e[2]};
  }
  void Stroke(int tool, const std::vector<PainterEvent>& events) {
    const IParamBlock2& b = s.Block();
    collision = b.GetFloat(Brush_Collision), amount = b.GetInt(Brush_Amount);
    falloff = float(b.GetInt(Brush_Falloff)) * 0.01f;
    eraseChance = float(b.GetInt(Brush_Erase)) * 0.01f;
    selected = s.D().lists.painterRows;
    if (selected.empty()) selected = {0, 1, 2};
    started = false, travel = 0;
    for (PainterEvent e : events) {
      if (!e.hit) e.worldPoint = s.View().SnapPoint(e.mouse);
      if (tool == kLineTool) Line(e);
      if (tool == kMultiTool && e.node) Surface(e);
      if (tool == kMultiTool && !e.node) Free(e);
      if (tool == kEraseTool) Erase(e);
    }
  }
  int ChooseType() {
    float total = 0, sum = 0;
    for (const int t : selected) total += float(shares[size_t(t)]);
    const float r = Unit() * total;
    for (const int t : selected)
      if (shares[size_t(t)] && (sum += float(shares[size_t(t)])) >= r) return t;
    return 0;
  }
  bool Collides(const Point3& p) {
    for (const Placement& q : rows)
      if (Length(p - q.position) < collision) return ++refused;
    return false;
  }
  void Lay(int type, const Point3& p, float spin, const Point3* normal) {
    Matrix3 m;
    m.RotateZ(spin);
    if (normal) m = m * MatrixFromNormal(*normal);
    const auto& [x, y, z, rand, animRand] = rows.back();
    rows.push_back({p, Euler(m), type, (rand + 1) % 100, (animRand + 1) % 10000});
  }
  void Line(const PainterEvent& e) {
    if (Collides(e.worldPoint)) return;
    const int type = ChooseType();
    Lay(type, e.worldPoint, angle, e.hit ? &e.worldNormal : nullptr);
  }
  int Candidates(const PainterEvent& e) {
    travel += started ? Length(e.worldPoint - last) : 0;
    last = e.worldPoint;
    if (!std::exchange(started, true)) return amount;
    const int n = int(travel / (2 * e.radius) * float(amount));
    travel -= float(n) * (2 * e.radius / float(amount));
    return std::min(n, amount);
  }
  bool BeyondFalloff(float d, float radius) {
    return d / radius > 1 - falloff && (d - radius * (1 - falloff)) / (radius * falloff) >= Unit();
  }
  void Surface(const PainterEvent& e) {
    const int n = Candidates(e);
    const Point3 reference = Euler(MatrixFromNormal(e.worldNormal)) * kToDegrees;
    for (int attempt = 0, accepted = 0; attempt < n * 10 && accepted < n; ++attempt) {
      const int type = ChooseType();
      const PainterHit hit = used < hits.size() ? hits[used++] : PainterHit{};
      if (!hit.hit || BeyondFalloff(Length(hit.worldPoint - e.worldPoint), e.radius)) continue;
      const Point3 tilt = Euler(MatrixFromNormal(hit.worldNormal)) * kToDegrees - reference;
      const bool flat = std::fabs(tilt.x) <= 80 && std::fabs(tilt.y) <= 80 && tilt.z <= 80;
      ++(flat ? accepted : steep);
      if (flat && !Collides(hit.worldPoint))
        Lay(type, hit.worldPoint, Unit() * 360 * kToRadians, &hit.worldNormal);
    }
  }
  void Free(const PainterEvent& e) {
    for (int i = Candidates(e); i > 0; --i) {
      const int type = ChooseType();
      const float a = Unit() * 360 * kToRadians;
      float d = Unit() * e.radius;
      while (BeyondFalloff(d, e.radius)) d = Unit() * e.radius;
      const Point3 mouse = s.View().SnapPoint(e.mouse);
      const Point3 p(mouse.x + d * float(host::Cos(a)), mouse.y + d * float(host::Sin(a)), 0);
      if (!Collides(p)) Lay(type, p, Unit() * 360 * kToRadians, nullptr);
    }
  }
  void Erase(const PainterEvent& e) {
    float chance = eraseChance;
    if (started) chance *= std::min(Length(e.worldPoint - last) / e.radius, 1.0f);
    started = true, last = e.worldPoint;
    for (size_t p = rows.size(); p-- > 0;) {
      if (std::find(selected.begin(), selected.end(), rows[p].type) == selected.end()) continue;
      if (Length(rows[p].position - e.worldPoint) >= e.radius) continue;
      if (eraseChance >= 1 || Unit() < chance) rows.erase(rows.begin() + long(p)), ++erased;
    }
  }

  PaintScene& s;
  std::vector<Placement> rows;
  std::array<std::uint32_t, 3> rng = {123456789, 362436069, 521288629};
  float collision = 0, falloff = 0, eraseChance = 1, travel = 0, angle = 0;
  int amount = 0, steep = 0, refused = 0, erased = 0;
  std::vector<int> shares = {30, 10, 0}, selected;
  Point3 last{0, 0, 0};
  bool started = false;
  std::vector<PainterHit> hits;
  size_t used = 0;
};

/// Two normals that differ in the sign of x. With k = 1 / (1 - 0.3) the third angle of one is
/// atan2(-k x y, 1 - k x x), +57.3 degrees at the left one and -57.3 at the right; the others
/// differ by less than 80.
Point3 Mirrored(bool left) { return Normalize({left ? -0.64f : 0.64f, 0.7074f, -0.3f}); }

/// Random hits about a way along X: some misses, some past the rim, some on steep ground.
std::vector<PainterHit> Hits(unsigned seed, INode* node) {
  std::mt19937 random(seed);
  std::uniform_real_distribution<float> uniform(-1, 1);
  std::vector<PainterHit> hits(2000);
  for (PainterHit& h : hits) {
    const float x = 5 * uniform(random), y = 2.2f * uniform(random), z = 0.2f * uniform(random);
    const float tilt = random() % 4 == 0 ? 8.0f : 0.5f, to = tilt * uniform(random);
    h = {random() % 8 != seed % 3, {x, y, z}, Normalize({to, tilt * uniform(random), 1}), node};
    if (seed % 4 == 0) h.hit = !h.hit;  // most attempts are in vain
    if (seed % 5 < 2) h.worldNormal = Mirrored(random() % 2);
  }
  return hits;
}

TEST(PaintStroke, AllToolsDoAsThePlainMethodThroughUndoAndRedo) {
  PaintScene s(3, PaintScene::kScripted);
  INode* ground = s.AddPlane(L"ground", 1, 1, 1, 1, {900, 900, 0});
  s.AppendPlacements({{{-9, 0, 0}, {0, 0, 0}, 0, 97, 9997}});
  s.Brush(2, 0);
  Twin twin(s);
  for (const int t : {0, 1, 2}) s.Block().SetValue(Geo_PaintPct, 0, twin.shares[size_t(t)], t);
  // Tool, on surfaces, falloff, erase chance, distance, selected types.
  const std::vector<std::tuple<int, bool, int, int, float, std::vector<int>>> cases = {
      {kLineTool, true, 0, 100, 0.5f, {}},     {kLineTool, false, 0, 100, 0.5f, {}},
      {kLineTool, true, 0, 100, 0, {2}},       {kMultiTool, true, 0, 100, 0, {}},
      {kEraseTool, true, 0, 40, 0, {}},        {kMultiTool, true, 50, 100, 0.4f, {1, 2}},
      {kMultiTool, true, 100, 100, 0.1f, {}},  {kMultiTool, false, 50, 100, 0.3f, {}},
      {kEraseTool, true, 0, 70, 0, {0, 2}},    {kMultiTool, false, 100, 100, 0.2f, {0}},
      {kMultiTool, false, 0, 100, 0, {}},      {kEraseTool, false, 0, 100, 0, {0, 2}},
      {kLineTool, true, 0, 100, 0.7f, {0, 1}}, {kEraseTool, true, 0, 0, 0, {}},
      {kMultiTool, true, 20, 100, 0.05f, {}},  {kEraseTool, false, 0, 60, 0, {0, 1, 2}}};
  for (unsigned i = 0; i < 3 * cases.size(); ++i) {
    const auto& [tool, surface, falloff, erase, collision, selected] = cases[i % cases.size()];
    SCOPED_TRACE("stroke " + std::to_string(i));
    s.Set(Brush_Falloff, falloff), s.Set(Brush_Erase, erase);
    s.Set(Brush_Collision, collision), s.Set(Brush_Amount, i < 16 ? 10 : 40);
    s.D().lists.SelectPainterRows(selected);
    s.Undo().Clear();
    ASSERT_TRUE(PressToolButton(tool));
    std::vector<PainterEvent> way;
    for (int e = 0; e < 20; ++e) {
      const Point3 at(float(e) * (0.1f + 0.05f * float(i % 5)) - 4, 0.1f * float(e % 3), 0);
      const Point3 normal = i % 5 < 2 ? Mirrored(i % 5) : Normalize({0.1f, -0.3f, 1});
      const bool hit = surface || e % 4 == 0;
      way.push_back({hit, s.Pixel(at), at, normal, 2, surface ? ground : nullptr});
    }
    s.object->paint.brushAngle = twin.angle = 0.1f * float(i);
    s.Scripted().hits = twin.hits = Hits(i, ground);
    s.Scripted().nextHit = twin.used = 0;
    const std::vector<Placement> before = twin.rows;
    s.Give(way);
    twin.Stroke(tool, way);
    ASSERT_TRUE(Bits(s.Rows()) == Bits(twin.rows));
    EXPECT_TRUE((std::bit_cast<std::array<std::uint32_t, 3>>(s.D().rng)) == twin.rng);
    EXPECT_EQ(s.Scripted().nextHit, twin.used);
    EXPECT_EQ(s.Breach(), "");
    // What was taken back is in nobody's way in the strokes that follow, what came back is.
    const bool changed = s.Undo().Undo();
    EXPECT_EQ(changed, Bits(before) != Bits(twin.rows));
    EXPECT_TRUE(Bits(s.Rows()) == Bits(before));
    if (i % 3 == 0) twin.rows = before;
    if (i % 3 != 0) s.Undo().Redo();
  }
  EXPECT_GT(std::min({twin.steep, twin.refused, twin.erased}), 100);
  EXPECT_EQ(s.Scripted().narrowQueries, 0) << "the host is asked in twice the radius";
  EXPECT_EQ(s.Scripted().radius, 2) << "and has its own back after each event";
}

TEST(PaintStroke, TheMultiToolLaysAsManyAsTheWayPaysFor) {
  PaintScene s(1);
  s.Brush(1, 0);  // 10 a brush width of 2: one per 0.2
  ASSERT_TRUE(PressToolButton(kMultiTool));
  using Row = std::tuple<std::vector<float>, float, size_t>;
  for (const auto& [way, radius, laid] :
       {Row{{0, 0.15f}, 1, 10}, Row{{0, 0.15f, 0.3f}, 1, 11}, Row{{0, 50, 50.15f}, 1, 20},
        Row{{0, 1e30f, -3e38f, 3e38f}, 1, 40}, Row{{0, 1, 1, 2}, 0, 30}}) {
    const size_t before = s.Count();
    std::vector<PainterEvent> events;
    for (const float x : way) events.push_back(PaintScene::On({x, 0, 0}, radius));
    s.Give(events);
    EXPECT_EQ(s.Count() - before, laid) << "to " << way.back() << " by " << radius;
  }
  s.host.Views().SetActive(nullptr);
  EXPECT_FALSE(s.Canvas().PaintStroke(PaintScene::On({0, 0, 0})));
  EXPECT_EQ(s.listener, (std::vector<WStr>(1, L"Invalid viewport!\n")));
}

// The object's own mesh may be among the targets, and what was laid may be painted on at once. The
// statistics follow in any case; a light mode draws from the tables and rebuilds nothing.
TEST(PaintStroke, TellsOfWhatItChanged) {
  using Case = std::tuple<int, int, int, const char*, const char*, const char*>;
  for (const auto& [tool, onSelf, mode, start, event, end] :
       {Case{kLineTool, 0, 2, "u", "", ""}, Case{kLineTool, 1, 4, "u", "", "ua"},
        Case{kMultiTool, 1, 2, "u", "", "ua"}, Case{kEraseTool, 0, 2, "u", "", ""},
        Case{kEraseTool, 0, 4, "u", "u", ""}, Case{kEraseTool, 1, 4, "u", "u", "ua"}}) {
    SCOPED_TRACE("tool " + std::to_string(tool) + ", mode " + std::to_string(mode));
    PaintScene s(1, PaintScene::kScripted);
    s.AppendPlacements({{{0, 0, 0}}, {{9, 0, 0}}});
    s.Set(Paint_On_Self, onSelf), s.Set(Display_Mode, mode);
    s.object->RefreshObject();
    ASSERT_TRUE(PressToolButton(tool));
    s.host.Services().RedrawViews(0);  // the cursor's own additions end with the pointer's rest
    const auto calls = [&] { return std::exchange(s.Scripted().calls, ""); };
    const std::uint64_t mesh = s.Seen().Stamp();
    calls(), s.log.Clear();
    EXPECT_EQ((s.Canvas().StartStroke(), calls()), start);
    EXPECT_EQ((s.Canvas().PaintStroke(PaintScene::On({0, 0.7f, 0})), calls()), event);
    EXPECT_EQ((s.Canvas().EndStroke(), calls()), end);
    EXPECT_GT(s.log.Count(Event::StatsChanged), 0);
    EXPECT_NE(s.Count(), 2u);
    EXPECT_EQ(s.Seen().Stamp() != mesh, mode >= 4) << "rebuilt";
  }
}

// Half of the queries lie a distance from a position along an axis, where rounding decides.
TEST(Collision, AnswersAsAPlainScan) {
  using Spread = std::array<float, 3>;  // positions are rounded to the grid, if that is above 0
  for (const auto& [size, grid, step] :
       {Spread{50, 0, 1.5f}, Spread{8, 1, 1}, Spread{3e6f, 0.25f, 6e4f}, Spread{1e12f, 0, 1e2f},
        Spread{1.5e38f, 0, 1e37f}, Spread{3e-22f, 0, 4e-23f}, Spread{1e-43f, 0, 1e-44f}})
    for (unsigned seed = 1; seed <= 4; ++seed) {
      std::mt19937 random(seed);
      std::uniform_real_distribution<float> uniform(-size, size);
      const auto point = [&, cell = grid] {
        Point3 p(uniform(random), uniform(random), uniform(random) * 0.1f);
        for (int i = 0; i < 3 && cell > 0; ++i) p[i] = std::round(p[i] / cell) * cell;
        return p;
      };
      CollisionIndex index;
      std::vector<Point3> plain;
      for (int n = 0; n < 3000; ++n) {
        const unsigned act = random() % 100;
        if (act < 45 || plain.empty()) {
          plain.push_back(point());
          index.Insert(plain.back());
        } else if (act < 60) {
          const size_t i = random() % plain.size();
          index.Remove(plain[i]);
          plain.erase(plain.begin() + long(i));
        } else if (act < 62) {
          index.Prepare(plain, step * std::exp2(float(int(random() % 13) - 6)));
        } else {
          const float distance = step * std::exp2(float(int(random() % 7) - 3));
          Point3 p = point();
          if (random() % 2) {
            p = plain[random() % plain.size()];
            p[int(random() % 3)] += random() % 2 ? distance : -distance;
          }
          const auto closer = [&](const Point3& q) { return Length(p - q) < distance; };
          ASSERT_EQ(index.AnyCloser(p, distance), std::any_of(plain.begin(), plain.end(), closer))
              << "within " << size << ", seed " << seed << ", act " << n;
        }
        ASSERT_EQ(index.Count(), plain.size());
      }
    }
}

TEST(Collision, OddDistancesAndPositions) {
  CollisionIndex index;
  const float none = std::nanf(""), inf = std::numeric_limits<float>::infinity();
  for (const Point3& p : {Point3(0, -0.0f, 0), Point3(none, 0, 0), Point3(0, inf, 0)})
    index.Insert(p);
  for (const float d : {0.0f, -1.0f, none}) EXPECT_FALSE(index.AnyCloser({0, 0, 0}, d)) << d;
  EXPECT_TRUE(index.AnyCloser({1e15f, 0, 0}, inf));
  for (const float far : {1e30f, inf}) EXPECT_FALSE(index.AnyCloser({far, 0, 0}, inf)) << far;
  for (const Point3& p : {Point3(5, 5, 5), Point3(none, 0, 0), Point3(-0.0f, 0, -0.0f)})
    index.Remove(p);
  EXPECT_EQ(index.Count(), 0u);
}

}  // namespace
}  // namespace sowfield
