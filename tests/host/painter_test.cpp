#include <cmath>
#include <limits>
#include <random>
#include <valarray>

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
  using V = std::valarray<double>;
  static V Of(const Point3& p) { return {p.x, p.y, p.z}; }
  static V Cross(const V& b, const V& c) { return (b * c.cshift(1) - b.cshift(1) * c).cshift(1); }
  static double Dot(const V& a, const V& b) { return (a * b).sum(); }

  bool hit = false;
  INode* node = nullptr;
  double t = 0;
  Point3 point{0, 0, 0}, normal{0, 0, 0};

  /// Looks from `skip` along the ray on: from far off, the volumes would drown in rounding.
  Judge(const std::vector<INode*>& nodes, const Ray& ray, double skip) {
    const V d = Of(ray.dir), o = Of(ray.p) + skip * d;
    for (INode* n : nodes) {
      const Mesh& mesh = static_cast<TriObject*>(n->GetObjectRef())->mesh;
      const Matrix3 tm = n->GetObjectTM(0);
      for (const Face& f : mesh.faces) {
        if (*std::max_element(f.v, f.v + 3) >= mesh.verts.size()) continue;
        const auto corner = [&](int k) { return V(Of(mesh.verts[f.v[k]] * tm) - o); };
        const V a = corner(0), b = corner(1), c = corner(2);
        const double wa = Dot(d, Cross(b, c)), wb = Dot(d, Cross(c, a)), wc = Dot(d, Cross(a, b));
        const double sum = wa + wb + wc;
        // The smallest barycentric coordinate: negative outside.
        const double inside = std::min({wa / sum, wb / sum, wc / sum});
        const double at = Dot(a, Cross(b, c)) / sum;
        if (!(inside >= 0 && at > -skip) || (hit && at >= t)) continue;
        hit = true, node = n, t = at;
        const V e = Cross(b - a, c - a), place = o + at * d;
        const V up = e * ((Dot(e, d) > 0 ? -1 : 1) / std::sqrt(Dot(e, e)));
        point = {float(place[0]), float(place[1]), float(place[2])};
        normal = {float(up[0]), float(up[1]), float(up[2])};
      }
    }
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
  int hits = 0, others = 0;
  constexpr int kRays = 3000;
  for (int i = 0; i < kRays; ++i) {
    // Every other ray comes from far off, as those of an orthographic view do.
    const Point3 through(place(random), place(random), place(random) * 0.3f);
    const Point3 dir = Normalize({place(random), place(random), place(random)});
    const float away = i % 2 ? 12.0f : 1.0e6f;
    const Ray ray{through - dir * away, dir};
    const Judge judge(nodes, ray, away - 12.0);
    const PainterHit hit = caster.Cast(ray);
    const bool same = hit.hit == judge.hit && hit.node == judge.node;
    hits += hit.hit, others += !same;
    if (!hit.hit || !same) continue;
    const double way = away - 12.0 + judge.t, slack = away * 1e-6;  // a single's direction
    EXPECT_FALSE(caster.Cast(ray, way - slack).hit) << "beyond the reach";
    EXPECT_TRUE(caster.Cast(ray, way + slack).hit) << "within the reach";
    EXPECT_LT(Apart(hit.worldPoint, judge.point), 4e-6) << "ray " << i;
    EXPECT_LT(Apart(hit.worldNormal, judge.normal), 1e-6) << "ray " << i;
  }
  EXPECT_GT(hits, kRays / 3);
  EXPECT_LT(others, 3) << "a rounding decides at borders alone";
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

TEST_F(PainterTest, TargetsChangeWithTheNextUpdateAndGoAtOnce) {
  INode *low = Plane({0, 0, 0}, 4), *high = Plane({0, 0, 1}, 4);
  auto* loose = new INode(L"Loose");  // never in the scene
  loose->SetObjectRef(new PlaneObject);
  loose->SetNodeTM(0, TransMatrix({0, 0, 5}));
  const auto height = [&] { return Look({100, 100}).worldPoint.z; };
  Targets({low, ip_.CreateObjectNode(nullptr), nullptr, high, high, loose});
  EXPECT_EQ(height(), 5.0f);
  loose->DeleteThis();
  EXPECT_EQ(height(), 1.0f);
  Step([&] { ip_.DeleteNode(high, false, false); });
  EXPECT_EQ(height(), 0.0f);
  host_.Undo().Undo();
  low->SetNodeTM(0, TransMatrix({0, 0, -3}));
  low->SetObjOffsetPos({0, 0, 0.5f});
  EXPECT_EQ(height(), 0.0f);
  painter->UpdateMeshes(false);
  EXPECT_EQ(height(), -2.5f) << "what came back is none of the targets";
  static_cast<PlaneObject*>(low->GetObjectRef())->SetSize(12, 12, 1, 1);
  EXPECT_FALSE(Look({140, 100}).hit);
  Targets({low});
  EXPECT_TRUE(Look({140, 100}).hit) << "a new list looks at the meshes too";
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
  EXPECT_NEAR(chi, 50, 40);
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
