#include <cmath>
#include <cstring>
#include <limits>
#include <random>

#include "host/painter/painterinterface.h"
#include "host/painter/raycaster.h"
#include "tests/host/apart.h"
#include "tests/host/extras.h"

namespace {

/// Writes down what it is called for and runs `during` in each call, after writing.
class Canvas : public ReferenceTarget, public IPainterCanvasInterface_V5 {
 public:
  using ReferenceTarget::GetInterface;
  void* GetInterface(std::uint32_t id) override {
    return id == PAINTERCANVASINTERFACE_V5 ? static_cast<IPainterCanvasInterface_V5*>(this)
                                           : nullptr;
  }
  bool StartStroke() override { return Called("start") && accept; }
  bool PaintStroke(const PainterEvent& event) override {
    events.push_back(event);
    return Called("paint");
  }
  bool EndStroke(int count, const PainterEvent* all) override {
    list.assign(all, all + count);
    return Called("list");
  }
  bool EndStroke() override { return Called("end"); }
  bool CancelStroke() override { return Called("cancel"); }
  bool SystemEndPaintSession() override { return Called("over"); }
  void PainterDisplay() override { Called("display"); }

  bool accept = true;
  std::string calls;
  std::vector<PainterEvent> events, list;
  std::function<void(const std::string&)> during;

 private:
  bool Called(const std::string& what) {
    calls += calls.empty() ? what : " " + what;
    if (during) during(what);
    return true;
  }
};

/// A host with a view straight down: 200 by 200 pixels of 0.1 units, +X right and +Y up.
class PainterTest : public Staged {
 protected:
  PainterTest() {
    system.reset(CreateInstance(PAINT_SYSTEM_CLASS_ID, PAINTERINTERFACE_CLASS_ID));
    painter = static_cast<IPainterInterface_V7*>(system->GetInterface(PAINTERINTERFACE_V7));
    painter->InitializeCallback(&canvas);
    views.SetActive(
        std::make_shared<ViewExp>(ViewExp::Orthographic({0, 0, 10}, {0, 0, 0}, 20, 200, 200)));
  }
  INode* Add(Object* object, const Matrix3& tm = {}) {
    INode* node = Staged::Add(object);
    node->SetNodeTM(0, tm);
    return node;
  }
  void Targets(const std::vector<INode*>& nodes) {
    painter->InitializeNodes(0, int(nodes.size()), nodes.data());
  }
  // The newest entry of the record after a look at a pixel.
  PainterHit Look(const IPoint2& at) {
    painter->AddToStroke(at, false, false);
    const int last = painter->GetStrokePointCount() - 1;
    return {painter->GetStrokeHit(last), painter->GetStrokePointWorld(last),
            painter->GetStrokeNormalWorld(last), nullptr};
  }
  // Presses at the first pixel, moves over the others and releases at the last.
  void Stroke(const std::vector<IPoint2>& way) {
    canvas.calls.clear(), canvas.events.clear();
    views.Press(way.front());
    for (size_t i = 1; i < way.size(); ++i) views.Move(way[i]);
    views.Release(way.back());
  }

  host::Viewports& views = host_.Views();
  Canvas canvas;
  std::unique_ptr<ReferenceTarget, DeleteUnreferenced> system;
  IPainterInterface_V7* painter = nullptr;
  host::RayCaster caster;
};

/// The nearest triangle on a ray by looking at each, with signed volumes in double.
struct Judge {
  struct V {
    double x, y, z;
  };
  static V Of(const Point3& p) { return {p.x, p.y, p.z}; }
  static V Minus(V a, V b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }
  static V Cross(V b, V c) {
    return {b.y * c.z - b.z * c.y, b.z * c.x - b.x * c.z, b.x * c.y - b.y * c.x};
  }
  static double Dot(V a, V b) { return a.x * b.x + a.y * b.y + a.z * b.z; }

  bool hit = false, doubtful = false;
  INode* node = nullptr;
  double t = 0;
  Point3 point{0, 0, 0}, normal{0, 0, 0};

  /// Looks from `skip` along the ray on: from far off, the volumes would drown in rounding.
  Judge(const std::vector<INode*>& nodes, const Ray& ray, double skip) {
    const V d = Of(ray.dir), p = Of(ray.p);
    const V o = {p.x + skip * d.x, p.y + skip * d.y, p.z + skip * d.z};
    std::vector<double> bordersAt;
    for (INode* n : nodes) {
      const Mesh& mesh = static_cast<TriObject*>(n->GetObjectRef())->mesh;
      const Matrix3 tm = n->GetObjectTM(0);
      for (const Face& f : mesh.faces) {
        if (*std::max_element(f.v, f.v + 3) >= mesh.verts.size()) continue;
        V corner[3];
        for (int k = 0; k < 3; ++k) corner[k] = Minus(Of(mesh.verts[f.v[k]] * tm), o);
        const auto [a, b, c] = corner;
        const double wa = Dot(d, Cross(b, c)), wb = Dot(d, Cross(c, a)), wc = Dot(d, Cross(a, b));
        const double sum = wa + wb + wc;
        // The smallest barycentric coordinate: negative outside.
        const double inside = std::min({wa / sum, wb / sum, wc / sum});
        const double at = Dot(a, Cross(b, c)) / sum;
        if (!(inside > -1e-4 && at > -skip)) continue;
        if (inside < 1e-4) bordersAt.push_back(at);
        if (inside < 0 || (hit && at >= t)) continue;
        hit = true, node = n, t = at;
        point = {float(o.x + at * d.x), float(o.y + at * d.y), float(o.z + at * d.z)};
        const V e = Cross(Minus(b, a), Minus(c, a));
        const double k = (Dot(e, d) > 0 ? -1 : 1) / std::sqrt(Dot(e, e));
        normal = {float(e.x * k), float(e.y * k), float(e.z * k)};
      }
    }
    // Near a border, not behind the hit: a rounding decides there.
    for (const double at : bordersAt) doubtful |= !hit || at < t + 1e-3;
  }
};

TriObject* BumpyGrid(std::mt19937& random) {
  std::uniform_real_distribution<float> height(-0.4f, 0.4f);
  PlaneObject plane;
  plane.SetSize(16, 16, 16, 16);
  plane.UpdateMesh(0);
  auto* object = new TriObject;
  object->mesh = plane.mesh;
  for (Point3& v : object->mesh.verts) v.z = height(random);
  object->mesh.InvalidateGeomCache();
  return object;
}

TEST_F(PainterTest, RaysAgreeWithALookAtEachUsableTriangle) {
  std::mt19937 random(20240607);
  std::vector<INode*> nodes;
  for (int i = 0; i < 3; ++i) {
    // The second one mirrors.
    const Matrix3 tm = Turned({i == 1 ? -0.7f : 1.1f, 0.9f, 1.3f}, 0.5f * float(i),
                              {float(i), -0.5f * float(i), 1.5f * float(i)});
    nodes.push_back(Add(BumpyGrid(random), tm));
  }
  Mesh& broken = static_cast<TriObject*>(nodes[2]->GetObjectRef())->mesh;
  broken.verts[20].x = std::numeric_limits<float>::quiet_NaN();
  broken.verts[40].z = std::numeric_limits<float>::infinity();
  broken.faces[60].v[1] = 1000000;
  broken.faces[61].v[1] = broken.faces[61].v[0];
  caster.SetTargets(nodes, 0);
  std::uniform_real_distribution<float> place(-10, 10);
  int hits = 0, doubtful = 0;
  constexpr int kRays = 3000;
  for (int i = 0; i < kRays; ++i) {
    // Every other ray comes from far off, as those of an orthographic view do.
    const Point3 through(place(random), place(random), place(random) * 0.3f);
    const Point3 dir = Normalize({place(random), place(random), place(random)});
    const float away = i % 2 ? 12.0f : 1.0e6f;
    const Ray ray{through - dir * away, dir};
    const Judge judge(nodes, ray, away - 12.0);
    doubtful += judge.doubtful;
    if (judge.doubtful) continue;
    const PainterHit hit = caster.Cast(ray);
    ASSERT_EQ(hit.hit, judge.hit) << "ray " << i;
    hits += hit.hit;
    if (!hit.hit) continue;
    EXPECT_EQ(hit.node, judge.node) << "ray " << i;
    const double way = away - 12.0 + judge.t, slack = away * 1e-6;  // a single's direction
    EXPECT_FALSE(caster.Cast(ray, way - slack).hit) << "beyond the reach";
    EXPECT_TRUE(caster.Cast(ray, way + slack).hit) << "within the reach";
    EXPECT_LT(Apart(hit.worldPoint, judge.point), 4e-6) << "ray " << i;
    EXPECT_LT(Apart(hit.worldNormal, judge.normal), 1e-6) << "ray " << i;
  }
  EXPECT_GT(hits, kRays / 3);
  EXPECT_LT(doubtful, kRays / 50);
}

TEST_F(PainterTest, NoRaySlipsThroughEdgesOrVertices) {
  std::mt19937 random(3);
  caster.SetTargets({{Add(BumpyGrid(random))}}, 0);
  for (int y = -15; y <= 15; ++y)
    for (int x = -15; x <= 15; ++x) {  // vertices, and middles of all sides
      const Point3 over(0.5f * float(x), 0.5f * float(y), 9);
      const PainterHit hit = caster.Cast({over, {0, 0, -1}});
      ASSERT_TRUE(hit.hit) << x << " " << y;
      EXPECT_LT(Apart(hit.worldPoint, {over.x, over.y, hit.worldPoint.z}), 1e-6);
    }
}

TEST_F(PainterTest, ChangesOfATargetCountFromTheNextUpdate) {
  INode* node = Plane({0, 0, 0}, 4);
  Targets({ip_.CreateObjectNode(nullptr), nullptr, node, node});
  node->SetNodeTM(0, TransMatrix({0, 0, 3}));
  node->SetObjOffsetPos({0, 0, 0.5f});
  EXPECT_EQ(Look({100, 100}).worldPoint.z, 0.0f);
  painter->UpdateMeshes(false);
  EXPECT_EQ(Look({100, 100}).worldPoint.z, 3.5f);
  static_cast<PlaneObject*>(node->GetObjectRef())->SetSize(12, 12, 1, 1);
  EXPECT_FALSE(Look({140, 100}).hit);
  Targets({node});
  EXPECT_TRUE(Look({140, 100}).hit) << "a new list looks at the meshes too";
}

TEST_F(PainterTest, NodesThatGoAreNoTargetsAnyMore) {
  INode *low = Plane({0, 0, 0}, 4), *high = Plane({0, 0, 1}, 4);
  auto* loose = new INode(L"Loose");  // never in the scene
  loose->SetObjectRef(new PlaneObject);
  loose->SetNodeTM(0, TransMatrix({0, 0, 5}));
  Targets({low, high, loose});
  EXPECT_EQ(Look({100, 100}).worldPoint.z, 5.0f);
  loose->DeleteThis();
  EXPECT_EQ(Look({100, 100}).worldPoint.z, 1.0f);
  Step([&] { ip_.DeleteNode(high, false, false); });
  EXPECT_EQ(Look({100, 100}).worldPoint.z, 0.0f);
  host_.Undo().Undo();
  painter->UpdateMeshes(false);
  EXPECT_EQ(Look({100, 100}).worldPoint.z, 0.0f) << "back in the scene, but not among the targets";
}

TEST_F(PainterTest, RandomHitsFillTheDiscEvenly) {
  const Matrix3 tilt = Turned({1, 1, 1}, 0.5f, {0, 0, 0});
  auto* plane = new PlaneObject;
  plane->SetSize(60, 60, 3, 3);
  Targets({Add(plane, tilt)});
  const Point3 middle = Look({120, 90}).worldPoint;
  const Matrix3 back = Inverse(tilt);  // into the plane's own frame
  constexpr int kRings = 5, kSectors = 8, kDraws = 20000;
  constexpr float kRadius = 1.5f;
  int count[kRings][kSectors] = {};
  painter->SetBrushRadius(kRadius);
  for (int i = 0; i < kDraws; ++i) {
    const PainterHit hit = painter->RandomHit(-1);
    ASSERT_TRUE(hit.hit);
    const Point3 d = VectorTransform(hit.worldPoint - middle, back);
    EXPECT_NEAR(d.z, 0, 1e-5);
    const double r = std::hypot(d.x, d.y);
    ASSERT_LE(r, kRadius + 1e-5);
    const double turn = (std::atan2(d.y, d.x) + M_PI) / (2 * M_PI);
    ++count[std::min(kRings - 1, int(r * r / (kRadius * kRadius) * kRings))]
           [std::min(kSectors - 1, int(turn * kSectors))];
  }
  // 39 degrees of freedom: mean 39, deviation 8.8.
  constexpr double kExpected = double(kDraws) / (kRings * kSectors);
  double chi = 0;
  for (const auto& ring : count)
    for (const int n : ring) chi += (n - kExpected) * (n - kExpected) / kExpected;
  EXPECT_LT(chi, 90);
  EXPECT_GT(chi, 10);
}

TEST_F(PainterTest, RandomHitsLookOneRadiusUpAndDown) {
  painter->SetBrushRadius(1);
  INode* patch = Plane({0, 0, 0}, 0.5f);  // 0.25 of the disc's 3.14
  const auto hits = [&](const std::vector<INode*>& others) {
    // The entry is taken on the patch alone, the hits on all.
    Targets({patch});
    EXPECT_TRUE(Look({100, 100}).hit);
    std::vector<INode*> nodes = others;
    nodes.push_back(patch);
    Targets(nodes);
    int count = 0;
    for (int i = 0; i < 400; ++i) count += painter->RandomHit(-1).node == nodes[0];
    return count;
  };
  EXPECT_NEAR(hits({}), 400 * 0.25 / M_PI, 30);
  EXPECT_EQ(hits({Plane({0, 0, 0.9f}, 8)}), 400) << "a ceiling comes first";
  EXPECT_EQ(hits({Plane({0, 0, 1.1f}, 8)}), 0) << "a ceiling beyond the radius";
  EXPECT_NEAR(hits({Plane({0, 0, -0.9f}, 8)}), 400 - 400 * 0.25 / M_PI, 30);
  EXPECT_EQ(hits({Plane({0, 0, -1.1f}, 8)}), 0) << "a floor beyond the radius";
  EXPECT_FALSE(painter->RandomHit(painter->GetStrokePointCount()).hit);
  EXPECT_FALSE(Look({10, 10}).hit);
  EXPECT_FALSE(painter->RandomHit(-1).hit) << "off the surfaces";
}

TEST_F(PainterTest, ASessionReplaysToTheSameBits) {
  auto* sphere = new SphereObject;
  sphere->SetSize(6, 24);
  Targets({Add(sphere)});
  std::vector<Point3> draws[2];
  for (auto& list : draws) {
    views.Move({99, 101});
    ASSERT_TRUE(painter->StartPaintSession(nullptr));
    EXPECT_EQ(painter->GetStrokePointCount(), 1);
    EXPECT_EQ(painter->GetStrokeMouse(0), (IPoint2{99, 101}));
    painter->SetBrushRadius(2);
    for (int i = 0; i < 300; ++i) {
      if (i % 50 == 0) painter->AddToStroke({60 + i / 4, 90}, false, false);
      const PainterHit hit = painter->RandomHit(-1);
      list.push_back(hit.worldPoint), list.push_back(hit.worldNormal);
    }
    painter->EndPaintSession();
  }
  EXPECT_EQ(std::memcmp(draws[0].data(), draws[1].data(), 600 * sizeof(Point3)), 0);
  EXPECT_NE(draws[0][2], draws[0][4]) << "they aren't all one";
}

TEST_F(PainterTest, AStrokeTellsTheCanvasInOrder) {
  INode* node = Plane({0, 0, 0}, 10);
  Targets({node});
  ASSERT_TRUE(painter->StartPaintSession(nullptr));
  painter->SetBrushRadius(4);
  const std::vector<IPoint2> way = {{100, 100}, {20, 100}, {110, 100}};
  Stroke(way);
  EXPECT_EQ(canvas.calls, "start paint paint paint list end");
  ASSERT_EQ(canvas.list.size(), 3u);
  for (size_t i = 0; i < 3; ++i)
    for (const PainterEvent& e : {canvas.events[i], canvas.list[i]}) {
      EXPECT_EQ(e.mouse, way[i]);
      EXPECT_EQ(e.hit, i != 1);
      EXPECT_EQ(e.node, i != 1 ? node : nullptr);
      EXPECT_EQ(e.radius, 4.0f);
      EXPECT_NEAR(e.worldPoint.x, i == 0 ? 0.05 : i == 1 ? 0 : 1.05, 1e-6);
    }
  views.Press({100, 100}), canvas.calls.clear(), views.Release({101, 100});
  EXPECT_EQ(canvas.calls, "paint list end") << "the release is an event if it moved";
  canvas.accept = false;
  Stroke({{100, 100}, {101, 100}});
  EXPECT_EQ(canvas.calls, "start") << "a refused stroke";
  canvas.accept = true;
  painter->SetOptions(false, false);
  Stroke({{20, 100}, {100, 100}, {20, 100}});
  EXPECT_EQ(canvas.calls, "start paint list end") << "without events off the surfaces";
  views.Press({100, 100});
  ip_.DeleteNode(node, false, false);
  views.Release({100, 100});
  EXPECT_EQ(canvas.list.at(0).node, nullptr) << "it went in the stroke";
}

TEST_F(PainterTest, ASessionMayEndAndBeginAnewInsideAnyCall) {
  Targets({Plane({0, 0, 0}, 10)});
  const std::pair<std::string, const char*> cases[] = {{"start", "start over"},
                                                       {"paint", "start paint over"},
                                                       {"list", "start paint paint list over"},
                                                       {"end", "start paint paint list end over"}};
  for (const auto& [where, wanted] : cases)
    for (const bool anew : {false, true}) {
      ASSERT_TRUE(painter->StartPaintSession(nullptr));
      canvas.during = [&, where = where](const std::string& what) {
        EXPECT_EQ(painter->InPaintMode(), what != "over");
        if (what != where) return;
        painter->EndPaintSession();
        EXPECT_EQ(views.GetMouseOwner(), nullptr);
        EXPECT_EQ(anew && painter->StartPaintSession(nullptr), anew);
      };
      Stroke({{100, 100}, {101, 100}});
      EXPECT_EQ(canvas.calls, wanted);
      EXPECT_EQ(painter->InPaintMode(), anew);
      canvas.during = nullptr;
      painter->EndPaintSession();
    }
}

}  // namespace
