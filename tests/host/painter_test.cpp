#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <string>

#include "host/host.h"
#include "host/painter/painterinterface.h"
#include "host/scene/camera.h"
#include "host/scene/primitives.h"

namespace {

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kInf = std::numeric_limits<float>::infinity();

double Gap(const Point3& a, const Point3& b) {
  return std::sqrt(std::pow(double(a.x) - b.x, 2) + std::pow(double(a.y) - b.y, 2) +
                   std::pow(double(a.z) - b.z, 2));
}

bool SameBits(const PainterHit& a, const PainterHit& b) {
  return a.hit == b.hit && a.node == b.node &&
         std::memcmp(&a.worldPoint, &b.worldPoint, sizeof(Point3)) == 0 &&
         std::memcmp(&a.worldNormal, &b.worldNormal, sizeof(Point3)) == 0;
}

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

struct RightClicks : IPainterRightClickHandler {
  void RightClick() override {
    ++count;
    if (during) during();
  }
  int count = 0;
  std::function<void()> during;
};

/// A host with a view straight down: 200 by 200 pixels of 0.1 units, +X right and +Y up.
class PainterTest : public testing::Test {
 protected:
  PainterTest() {
    system.reset(CreateInstance(PAINT_SYSTEM_CLASS_ID, PAINTERINTERFACE_CLASS_ID));
    painter = static_cast<IPainterInterface_V7*>(system->GetInterface(PAINTERINTERFACE_V7));
    painter->InitializeCallback(&canvas);
    LookFrom({0, 0, 10});
  }

  void LookFrom(const Point3& eye) {
    views.SetActive(
        std::make_shared<ViewExp>(ViewExp::Orthographic(eye, Point3(0, 0, 0), 20, 200, 200)));
  }
  // The world position of a pixel's middle in the view from above.
  static double WorldX(int x) { return (x + 0.5) * 0.1 - 10.0; }
  static double WorldY(int y) { return 10.0 - (y + 0.5) * 0.1; }

  INode* Node(Object* object, const Matrix3& tm = Matrix3()) {
    INode* node = services.CreateObjectNode(object);
    node->SetNodeTM(0, tm);
    return node;
  }
  INode* Plane(float size, float z, int cells = 4) {
    auto* plane = new PlaneObject;
    plane->SetSize(size, size, cells, cells);
    return Node(plane, TransMatrix({0, 0, z}));
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

  host::Host sceneHost;
  Interface& services = sceneHost.Services();
  host::Viewports& views = sceneHost.Views();
  Canvas canvas;
  RightClicks handler;
  std::unique_ptr<ReferenceTarget, DeleteUnreferenced> system;
  IPainterInterface_V7* painter = nullptr;
};

TEST_F(PainterTest, PlaneIsHitWhereThePixelLooks) {
  Targets({Plane(10, 2)});
  for (const IPoint2 at : {IPoint2{60, 70}, {99, 100}, {51, 149}, {148, 51}, {123, 77}}) {
    const PainterHit hit = Look(at);
    ASSERT_TRUE(hit.hit) << at.x << " " << at.y;
    EXPECT_NEAR(hit.worldPoint.x, WorldX(at.x), 1e-6);
    EXPECT_NEAR(hit.worldPoint.y, WorldY(at.y), 1e-6);
    EXPECT_EQ(hit.worldPoint.z, 2.0f);
    EXPECT_EQ(hit.worldNormal, Point3(0, 0, 1));
  }
  EXPECT_FALSE(Look({48, 100}).hit);
  EXPECT_FALSE(Look({100, 151}).hit);

  LookFrom({0, 0, -10});
  const PainterHit below = Look({100, 100});
  ASSERT_TRUE(below.hit) << "the back of a face";
  EXPECT_EQ(below.worldPoint.z, 2.0f);
  EXPECT_EQ(below.worldNormal, Point3(0, 0, -1));
}

TEST_F(PainterTest, TargetsWithoutAMeshAndEmptyLists) {
  painter->InitializeNodes(0, 0, nullptr);
  EXPECT_FALSE(Look({100, 100}).hit);
  INode* empty = services.CreateObjectNode(nullptr);
  INode* camera = services.CreateObjectNode(new CameraObject);
  INode* plane = Plane(4, 0);
  Targets({empty, nullptr, camera, plane, plane});
  EXPECT_TRUE(Look({100, 100}).hit);
  plane->Hide(true);
  painter->UpdateMeshes(false);
  EXPECT_TRUE(Look({100, 100}).hit) << "which nodes are targets is the caller's choice";
  Targets({empty, camera});
  EXPECT_FALSE(Look({100, 100}).hit);
  painter->InitializeNodes(0, 0, nullptr);
  painter->UpdateMeshes(false);
  EXPECT_FALSE(Look({100, 100}).hit);
}

TEST_F(PainterTest, ChangesOfATargetCountFromTheNextUpdate) {
  INode* node = Plane(4, 0);
  auto* plane = static_cast<PlaneObject*>(node->GetObjectRef());
  Targets({node});
  node->SetNodeTM(0, TransMatrix({0, 0, 3}));
  EXPECT_EQ(Look({100, 100}).worldPoint.z, 0.0f);
  painter->UpdateMeshes(false);
  EXPECT_EQ(Look({100, 100}).worldPoint.z, 3.0f);

  EXPECT_FALSE(Look({140, 100}).hit);
  plane->SetSize(12, 12, 1, 1);
  EXPECT_FALSE(Look({140, 100}).hit);
  Targets({node});
  EXPECT_TRUE(Look({140, 100}).hit) << "a new list looks at the meshes too";

  node->SetObjOffsetPos({0, 0, 0.5f});
  painter->UpdateMeshes(false);
  EXPECT_EQ(Look({100, 100}).worldPoint.z, 3.5f) << "the object offset counts";
}

TEST_F(PainterTest, NodesThatGoAreNoTargetsAnyMore) {
  INode* low = Plane(4, 0);
  INode* high = Plane(4, 1);
  INode* child = Plane(4, 2);
  high->AttachChild(child);
  Targets({low, high, child});
  EXPECT_EQ(Look({100, 100}).worldPoint.z, 2.0f);

  sceneHost.Undo().Begin();
  services.DeleteNode(child, false, false);
  sceneHost.Undo().Accept(L"Delete");
  EXPECT_EQ(Look({100, 100}).worldPoint.z, 1.0f);
  sceneHost.Undo().Undo();
  painter->UpdateMeshes(false);
  EXPECT_EQ(Look({100, 100}).worldPoint.z, 1.0f) << "back in the scene, but not among the targets";

  services.DeleteNode(high, false, false);
  painter->UpdateMeshes(false);
  EXPECT_EQ(Look({100, 100}).worldPoint.z, 0.0f);

  auto* loose = new INode(L"Loose");  // never in the scene
  loose->SetObjectRef(new PlaneObject);
  loose->SetNodeTM(0, TransMatrix({0, 0, 5}));
  Targets({low, loose});
  EXPECT_EQ(Look({100, 100}).worldPoint.z, 5.0f);
  loose->DeleteThis();
  painter->UpdateMeshes(false);
  EXPECT_EQ(Look({100, 100}).worldPoint.z, 0.0f);
}

/// Runs something while its mesh is built.
class BusyObject : public SimpleObject2 {
 public:
  void BuildMesh(TimeValue) override {
    mesh.setNumVerts(0);
    ivalid = FOREVER;
    if (during) during();
  }
  std::function<void()> during;
};

TEST_F(PainterTest, EvaluationMayDeleteTargetsAndSetOthers) {
  INode* first = Plane(4, 1);
  auto* busy = new BusyObject;
  INode* middle = Node(busy);
  INode* last = Plane(4, 2);
  INode* other = Plane(4, -3);
  busy->during = [&] {
    for (INode* n : {first, middle, last}) services.DeleteNode(n, false, false);
    Targets({other});
  };
  Targets({first, middle, last});
  EXPECT_EQ(Look({100, 100}).worldPoint.z, -3.0f);
}

TEST_F(PainterTest, RandomHitsFillTheDiscEvenly) {
  Matrix3 tilt;
  tilt.RotateX(0.5f);
  tilt.RotateZ(0.8f);
  auto* plane = new PlaneObject;
  plane->SetSize(60, 60, 3, 3);
  INode* node = Node(plane, tilt);
  Targets({node});
  views.Move({120, 90});
  ASSERT_TRUE(painter->StartPaintSession(nullptr));
  ASSERT_TRUE(painter->GetStrokeHit(0));
  const Point3 middle = painter->GetStrokePointWorld(0);

  // Measured in the plane's own frame, where the tilt is undone.
  const Matrix3 back = Inverse(tilt);
  constexpr int kRings = 5, kSectors = 8, kDraws = 20000;
  constexpr float kRadius = 1.5f;
  int count[kRings][kSectors] = {};
  painter->SetBrushRadius(kRadius);
  for (int i = 0; i < kDraws; ++i) {
    const PainterHit hit = painter->RandomHit(-1);
    ASSERT_TRUE(hit.hit);
    EXPECT_EQ(hit.node, node);
    const Point3 d = VectorTransform(hit.worldPoint - middle, back);
    EXPECT_NEAR(d.z, 0, 1e-5);
    const double r = std::hypot(d.x, d.y);
    ASSERT_LE(r, kRadius + 1e-5);
    const int ring = std::min(kRings - 1, int(r * r / (kRadius * kRadius) * kRings));
    const double turn = (std::atan2(d.y, d.x) + M_PI) / (2 * M_PI);
    ++count[ring][std::min(kSectors - 1, int(turn * kSectors))];
  }
  // 39 degrees of freedom: mean 39, deviation 8.8.
  constexpr double kExpected = double(kDraws) / (kRings * kSectors);
  double chi = 0;
  for (const auto& ring : count)
    for (const int n : ring) chi += (n - kExpected) * (n - kExpected) / kExpected;
  EXPECT_LT(chi, 90);
  EXPECT_GT(chi, 10);

  // The radius in force counts, and the entry that the index names.
  painter->SetBrushRadius(2 * kRadius);
  painter->AddToStroke({60, 60}, false, false);
  double widest = 0;
  for (int i = 0; i < 200; ++i)
    widest = std::max(widest, Gap(painter->RandomHit(0).worldPoint, middle));
  EXPECT_GT(widest, kRadius * 1.5);
  EXPECT_LE(widest, kRadius * 2 + 1e-5);
}

TEST_F(PainterTest, RandomHitsLookOneRadiusUpAndDown) {
  painter->SetBrushRadius(1);
  const auto hits = [&](const std::vector<INode*>& nodes) {
    // The entry is taken on the patch alone, the hits on all.
    Targets({nodes[0]});
    EXPECT_TRUE(Look({100, 100}).hit);
    Targets(nodes);
    std::vector<int> count(nodes.size());
    for (int i = 0; i < 400; ++i) {
      const PainterHit hit = painter->RandomHit(-1);
      for (size_t n = 0; hit.hit && n < nodes.size(); ++n) count[n] += hit.node == nodes[n];
    }
    return count;
  };
  INode* patch = Plane(0.5f, 0);  // 0.25 of the disc's 3.14
  EXPECT_NEAR(hits({patch})[0], 400 * 0.25 / M_PI, 30);
  EXPECT_EQ(hits({patch, Plane(8, 0.9f)}), (std::vector<int>{0, 400})) << "a ceiling comes first";
  EXPECT_EQ(hits({patch, Plane(8, 1.1f)})[1], 0) << "a ceiling beyond the radius";
  const std::vector<int> floor = hits({patch, Plane(8, -0.9f)});
  EXPECT_EQ(floor[0] + floor[1], 400);
  EXPECT_GT(floor[1], 300);
  EXPECT_EQ(hits({patch, Plane(8, -1.1f)})[1], 0) << "a floor beyond the radius";

  Targets({patch});
  EXPECT_FALSE(painter->RandomHit(painter->GetStrokePointCount()).hit);
  EXPECT_FALSE(painter->RandomHit(-2).hit);
  for (const float radius : {0.0f, -1.0f, kNaN, kInf}) {
    painter->SetBrushRadius(radius);
    EXPECT_FALSE(painter->RandomHit(-1).hit) << radius;
  }
  painter->SetBrushRadius(1);
  EXPECT_FALSE(Look({10, 10}).hit);
  EXPECT_FALSE(painter->RandomHit(-1).hit) << "off the surfaces";
}

TEST_F(PainterTest, ASessionReplaysToTheSameBits) {
  auto* sphere = new SphereObject;
  sphere->SetSize(6, 24);
  Targets({Node(sphere)});
  std::vector<PainterHit> draws[2];
  for (auto& list : draws) {
    views.Move({99, 101});
    ASSERT_TRUE(painter->StartPaintSession(nullptr));
    EXPECT_EQ(painter->GetStrokePointCount(), 1);
    EXPECT_EQ(painter->GetStrokeMouse(0), (IPoint2{99, 101}));
    painter->SetBrushRadius(2);
    for (int i = 0; i < 300; ++i) {
      if (i % 50 == 0) painter->AddToStroke({60 + i / 4, 90}, false, false);
      list.push_back(painter->RandomHit(-1));
    }
    painter->EndPaintSession();
  }
  for (size_t i = 0; i < draws[0].size(); ++i) EXPECT_TRUE(SameBits(draws[0][i], draws[1][i])) << i;
  EXPECT_FALSE(SameBits(draws[0][1], draws[0][2])) << "they aren't all one";
}

TEST_F(PainterTest, RecordKeepsTheNewestPoints) {
  Targets({Plane(10, 0)});
  ASSERT_TRUE(painter->StartPaintSession(nullptr));
  for (int i = 0; i < 5000; ++i) painter->AddToStroke({i % 200, i / 200}, false, false);
  ASSERT_EQ(painter->GetStrokePointCount(), 4096);
  const int oldest = 5000 - 4096;
  EXPECT_EQ(painter->GetStrokeMouse(0), (IPoint2{oldest % 200, oldest / 200}));
  EXPECT_EQ(painter->GetStrokeMouse(4095), (IPoint2{199, 24}));
  EXPECT_FALSE(painter->GetStrokeHit(4096));
  EXPECT_FALSE(painter->GetStrokeHit(-1));
  painter->AddToStroke({100, 100}, false, false);
  EXPECT_EQ(painter->GetStrokePointCount(), 4096);
  EXPECT_TRUE(painter->GetStrokeHit(4095));
  EXPECT_NEAR(painter->GetStrokePointWorld(4095).x, 0.05, 1e-6);
}

TEST_F(PainterTest, SessionsNeedALivingViewAndAFreeMouse) {
  views.SetActive(nullptr);
  EXPECT_FALSE(painter->StartPaintSession(&handler));
  INode* camera = services.CreateObjectNode(new CameraObject);
  views.SetActive(std::make_shared<ViewExp>(ViewExp::FromCamera(camera, 200, 200)));
  services.DeleteNode(camera, false, false);
  EXPECT_FALSE(painter->StartPaintSession(&handler));
  LookFrom({0, 0, 10});

  std::unique_ptr<ReferenceTarget, DeleteUnreferenced> rival(
      CreateInstance(PAINT_SYSTEM_CLASS_ID, PAINTERINTERFACE_CLASS_ID));
  auto* other = static_cast<IPainterInterface_V7*>(rival->GetInterface(PAINTERINTERFACE_V7));
  ASSERT_TRUE(other->StartPaintSession(nullptr));
  EXPECT_FALSE(painter->StartPaintSession(&handler));
  EXPECT_FALSE(painter->InPaintMode());
  rival.reset();
  EXPECT_EQ(views.GetMouseOwner(), nullptr) << "one that dies in a session gives the mouse back";

  ASSERT_TRUE(painter->StartPaintSession(&handler));
  EXPECT_TRUE(painter->InPaintMode());
  EXPECT_NE(views.GetMouseOwner(), nullptr);
  EXPECT_FALSE(painter->StartPaintSession(&handler)) << "one runs already";
  painter->EndPaintSession();
  EXPECT_EQ(views.GetMouseOwner(), nullptr);
  EXPECT_EQ(canvas.calls, "over");
  painter->EndPaintSession();
  EXPECT_EQ(canvas.calls, "over");
}

TEST_F(PainterTest, StrokeTellsTheCanvasInOrder) {
  INode* node = Plane(10, 0);
  Targets({node});
  views.Press({100, 100});
  views.Release({100, 100});
  EXPECT_EQ(canvas.calls, "") << "no session";

  ASSERT_TRUE(painter->StartPaintSession(&handler));
  views.Move({90, 90});
  EXPECT_EQ(canvas.calls, "");
  painter->SetBrushRadius(4);
  canvas.during = [&](const std::string& what) {
    if (what != "paint") return;
    painter->SetBrushRadius(8);
    painter->SetBrushRadius(4);
  };
  views.Press({100, 100});
  views.Move({20, 100});
  views.Move({110, 100});
  views.Release({110, 100});
  EXPECT_EQ(canvas.calls, "start paint paint paint list end");
  ASSERT_EQ(canvas.list.size(), 3u);
  const IPoint2 way[] = {{100, 100}, {20, 100}, {110, 100}};
  for (size_t i = 0; i < 3; ++i) {
    for (const PainterEvent& e : {canvas.events[i], canvas.list[i]}) {
      EXPECT_EQ(e.mouse, way[i]);
      EXPECT_EQ(e.hit, i != 1);
      EXPECT_EQ(e.node, i != 1 ? node : nullptr);
      EXPECT_EQ(e.radius, 4.0f);
      const double x = e.hit ? WorldX(way[i].x) : 0;
      EXPECT_NEAR(e.worldPoint.x, x, 1e-6);
    }
  }
  EXPECT_EQ(painter->GetStrokePointCount(), 4) << "the start's and the stroke's";

  canvas.calls.clear();
  views.Move({120, 100});
  views.Press({100, 100});
  views.Release({101, 100});
  EXPECT_EQ(canvas.calls, "start paint paint list end") << "the release is an event if it moved";
  canvas.calls.clear();
  canvas.accept = false;
  views.Press({100, 100});
  views.Move({101, 100});
  views.Release({102, 100});
  EXPECT_EQ(canvas.calls, "start") << "a refused stroke";

  canvas.calls.clear();
  canvas.accept = true;
  painter->SetOptions(false, false);
  views.Press({20, 100});
  views.Move({100, 100});
  views.Release({20, 100});
  EXPECT_EQ(canvas.calls, "start paint list end") << "without events off the surfaces";
  EXPECT_EQ(canvas.list.size(), 1u);

  canvas.calls.clear();
  views.RightClick({100, 100});
  EXPECT_EQ(handler.count, 1);
  EXPECT_EQ(canvas.calls, "");
  views.Press({100, 100});
  painter->EndPaintSession();
  views.Release({100, 100});
  views.RightClick({100, 100});
  EXPECT_EQ(canvas.calls, "start paint over") << "an unfinished stroke is dropped";
  EXPECT_EQ(handler.count, 1);
}

TEST_F(PainterTest, SessionMayEndInsideAnyCall) {
  Targets({Plane(10, 0)});
  const std::pair<const char*, const char*> cases[] = {
      {"start", "start over"},
      {"paint", "start paint over"},
      {"list", "start paint paint list over"},
      {"end", "start paint paint list end over"},
  };
  for (const auto& [where, wanted] : cases) {
    canvas.calls.clear();
    ASSERT_TRUE(painter->StartPaintSession(&handler));
    canvas.during = [&, where = std::string(where)](const std::string& what) {
      EXPECT_EQ(painter->InPaintMode(), what != "over");
      if (what == where || what == "over") painter->EndPaintSession();
      EXPECT_EQ(views.GetMouseOwner() != nullptr, painter->InPaintMode());
    };
    views.Press({100, 100});
    views.Move({101, 100});
    views.Release({101, 100});
    EXPECT_EQ(canvas.calls, wanted);
    EXPECT_FALSE(painter->InPaintMode());
  }

  canvas.calls.clear();
  canvas.during = nullptr;
  handler.during = [&] { painter->EndPaintSession(); };
  ASSERT_TRUE(painter->StartPaintSession(&handler));
  views.RightClick({100, 100});
  EXPECT_EQ(canvas.calls, "over");

  // A session that is started anew inside a stroke knows nothing of the old one's stroke.
  canvas.calls.clear();
  canvas.during = [&](const std::string& what) {
    if (what != "start") return;
    painter->EndPaintSession();
    EXPECT_TRUE(painter->StartPaintSession(&handler));
  };
  ASSERT_TRUE(painter->StartPaintSession(&handler));
  views.Press({100, 100});
  views.Move({101, 100});
  views.Release({101, 100});
  EXPECT_EQ(canvas.calls, "start over");
}

TEST_F(PainterTest, SystemMayGoInsideACall) {
  Targets({Plane(10, 0)});
  // Held by a reference, as an owner in a scene would; letting go deletes it.
  struct Owner : ReferenceTarget {
    ~Owner() override { DeleteAllRefsFromMe(); }
    int NumRefs() const override { return 1; }
    ReferenceTarget* GetReference(int) const override { return held; }
    void SetReference(int, ReferenceTarget* t) override { held = t; }
    ReferenceTarget* held = nullptr;
  };
  for (const std::string where : {"start", "paint", "list", "end", "over"}) {
    Owner owner;
    owner.ReplaceReference(0, CreateInstance(PAINT_SYSTEM_CLASS_ID, PAINTERINTERFACE_CLASS_ID));
    auto* held = static_cast<IPainterInterface_V7*>(owner.held->GetInterface(PAINTERINTERFACE_V7));
    held->InitializeCallback(&canvas);
    ASSERT_TRUE(held->StartPaintSession(&handler));
    canvas.during = [&](const std::string& what) {
      if (what == where) owner.DeleteReference(0);
    };
    views.Press({100, 100});
    views.Release({100, 100});
    if (owner.held) held->EndPaintSession();
    EXPECT_EQ(owner.held, nullptr);
    EXPECT_EQ(views.GetMouseOwner(), nullptr) << where;
  }
}

TEST_F(PainterTest, TargetsMayChangeInsideAStroke) {
  INode* low = Plane(10, 0);
  INode* high = Plane(10, 1);
  Targets({low, high});
  ASSERT_TRUE(painter->StartPaintSession(&handler));
  canvas.during = [&](const std::string& what) {
    if (what == "paint" && canvas.events.size() == 1) services.DeleteNode(high, false, false);
    if (what == "paint" && canvas.events.size() == 2) painter->InitializeNodes(0, 0, nullptr);
  };
  views.Press({100, 100});
  views.Move({101, 100});
  views.Move({102, 100});
  views.Release({102, 100});
  ASSERT_EQ(canvas.list.size(), 3u);
  EXPECT_EQ(canvas.events[0].worldPoint.z, 1.0f);
  EXPECT_TRUE(canvas.list[0].hit);
  EXPECT_EQ(canvas.list[0].node, nullptr) << "it was deleted in the stroke";
  EXPECT_EQ(canvas.list[1].node, low);
  EXPECT_FALSE(canvas.list[2].hit);
}

TEST(PainterLife, SystemMayOutliveItsSceneAndItsHost) {
  std::unique_ptr<ReferenceTarget, DeleteUnreferenced> system;
  {
    host::Host sceneHost;
    system.reset(CreateInstance(PAINT_SYSTEM_CLASS_ID, PAINTERINTERFACE_CLASS_ID));
    auto* painter = static_cast<IPainterInterface_V7*>(system->GetInterface(PAINTERINTERFACE_V7));
    INode* node = sceneHost.Services().CreateObjectNode(new PlaneObject);
    painter->InitializeNodes(0, 1, &node);
    sceneHost.Views().SetActive(std::make_shared<ViewExp>(
        ViewExp::Orthographic(Point3(0, 0, 9), Point3(0, 0, 0), 4, 100, 100)));
    ASSERT_TRUE(painter->StartPaintSession(nullptr));
    sceneHost.GetScene().DeleteNodes({&node, 1});
  }
  system.reset();
}

}  // namespace
