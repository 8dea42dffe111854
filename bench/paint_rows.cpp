#include <embree3/rtcore.h>

#include <array>
#include <cmath>

#include "bench/painted.h"
#include "bench/rows.h"
#include "host/scene/primitives.h"
#include "host/scene/triobject.h"

namespace bench {
namespace {

using namespace sowfield;

constexpr int kMillion = 1000000;
constexpr int kCandidates = 1000;

SowfieldPainter& PainterOf(Painted& scene, int tool) {
  if (!scene.host.Views().Active())
    scene.host.Views().SetActive(std::make_shared<ViewExp>(
        ViewExp::Orthographic({500, 500, 10}, {500, 500, 0}, 1000, 1000, 1000)));
  scene.object->paint.paintTool = tool;
  SowfieldPainter& painter = *TheEditContext().NeedPainter();
  painter.SetPaintTool();
  return painter;
}

// An event off the surfaces: no ray is cast for its candidates.
PainterEvent FreeEvent(float radius) {
  PainterEvent event{true, {500, 500}, {500, 500, 0}, {0, 0, 1}, radius, nullptr};
  return event;
}

SowfieldPainter& ReadyPainter(Painted& scene, float collision) {
  scene.Set(Brush_Amount, kCandidates);
  scene.Set(Brush_Falloff, 0);
  scene.Set(Brush_Collision, collision);
  SowfieldPainter& painter = PainterOf(scene, kMultiTool);
  // The first stroke reads the table once, for all that follow.
  painter.StartStroke();
  painter.EndStroke();
  scene.host.Undo().Clear();
  return painter;
}

// Strokes of one event with kCandidates candidates; only the event is timed.
Body Strokes(int placements, float collision) {
  return [=](benchmark::State& state) {
    Painted& scene = SceneOf(placements);
    SowfieldPainter& painter = ReadyPainter(scene, collision);
    for (auto _ : state) {
      state.PauseTiming();
      painter.StartStroke();
      state.ResumeTiming();
      painter.PaintStroke(FreeEvent(400));
      state.PauseTiming();
      painter.EndStroke();
      while (scene.host.Undo().Undo()) {
      }
      state.ResumeTiming();
    }
    painter.EndPaint();
    state.SetItemsProcessed(state.iterations() * kCandidates);
  };
}

Body Starts(int placements) {
  return [=](benchmark::State& state) {
    SowfieldPainter& painter = ReadyPainter(SceneOf(placements), 3);
    for (auto _ : state) {
      painter.StartStroke();
      painter.EndStroke();
    }
    painter.EndPaint();
  };
}

// Chooses an event's radius so that a hundred placements go.
float EraseRadius() { return std::sqrt(100.0f / 3.14159f); }

Body EraseEvent(int mode) {
  return [=](benchmark::State& state) {
    Painted& scene = SceneOf(kMillion);
    scene.Set(Brush_Erase, 100), scene.Set(ForceDisplay, 0), scene.Set(Display_Mode, mode);
    SowfieldPainter& painter = PainterOf(scene, kEraseTool);
    for (auto _ : state) {
      state.PauseTiming();
      painter.StartStroke();
      state.ResumeTiming();
      painter.PaintStroke(FreeEvent(EraseRadius()));
      state.PauseTiming();
      painter.EndStroke();
      if (!scene.host.Undo().Undo()) state.SkipWithError("nothing was erased");
      state.ResumeTiming();
    }
    if (scene.Block().GetInt(Display_Mode) != mode) state.SkipWithError("the mode was lowered");
    painter.EndPaint();
    scene.Set(Display_Mode, 0), scene.Set(ForceDisplay, 1);
  };
}

// A pass over the positions, and the five tables written once.
void EraseFloor(benchmark::State& state) {
  Painted& scene = SceneOf(kMillion);
  const IParamBlock2& b = scene.Block();
  std::vector<Point3> positions(kMillion), angles(kMillion);
  std::vector<int> tables[3];
  for (auto& t : tables) t.resize(kMillion);
  for (auto _ : state) {
    int near = 0;
    for (const Point3& p : b.Points(Ins_Pos)) near += Length(p - Point3(500, 500, 0)) < 5.6f;
    benchmark::DoNotOptimize(near);
    std::copy_n(b.Points(Ins_Pos).data(), kMillion, positions.data());
    std::copy_n(b.Points(Ins_Normal).data(), kMillion, angles.data());
    const Param ids[] = {Ins_Type, Ins_Rand, Ins_AnimRand};
    for (int i = 0; i < 3; ++i) std::copy_n(b.Ints(ids[i]).data(), kMillion, tables[i].data());
    benchmark::ClobberMemory();
  }
}

// A ground of 80,000 faces with hills, for dabs on a surface.
constexpr int kCells = 200;
Mesh Hills() {
  Mesh mesh;
  mesh.setNumVerts((kCells + 1) * (kCells + 1));
  for (int y = 0; y <= kCells; ++y)
    for (int x = 0; x <= kCells; ++x)
      mesh.setVert(y * (kCells + 1) + x,
                   {float(x), float(y), std::sin(0.2f * float(x)) * std::cos(0.15f * float(y))});
  mesh.setNumFaces(2 * kCells * kCells);
  int f = 0;
  for (int y = 0; y < kCells; ++y)
    for (int x = 0; x < kCells; ++x) {
      const auto i = std::uint32_t(y * (kCells + 1) + x), j = i + kCells + 1;
      for (const auto& [a, b, c] : {std::array{i, i + 1, j + 1}, std::array{i, j + 1, j}}) {
        mesh.faces[size_t(f)] = {{a, b, c}, 1, EDGE_ALL};
        ++f;
      }
    }
  return mesh;
}
constexpr float kDab = 20;

void RandomHits(benchmark::State& state) {
  DropScene();
  host::Host host;
  auto* ground = new TriObject;
  ground->mesh = Hills();
  INode* node = host.GetScene().CreateObjectNode(ground);
  host.Views().SetActive(std::make_shared<ViewExp>(
      ViewExp::Orthographic({100, 100, 10}, {100, 100, 0}, 200, 200, 200)));
  ReferenceTarget* system = CreateInstance(PAINT_SYSTEM_CLASS_ID, PAINTERINTERFACE_CLASS_ID);
  auto* painter = static_cast<IPainterInterface_V7*>(system->GetInterface(PAINTERINTERFACE_V7));
  painter->StartPaintSession(nullptr);
  painter->InitializeNodes(0, 1, &node);
  painter->SetBrushRadius(kDab);
  painter->AddToStroke({100, 100}, false, false);
  int hits = 0;
  for (auto _ : state) hits += painter->RandomHit(-1).hit;
  painter->EndPaintSession();
  system->DeleteThis();
  if (hits == 0) state.SkipWithError("no hit");
}

void EmbreeRays(benchmark::State& state) {
  const Mesh hills = Hills();
  RTCDevice device = rtcNewDevice(nullptr);
  RTCScene scene = rtcNewScene(device);
  rtcSetSceneFlags(scene, RTC_SCENE_FLAG_ROBUST);  // as a dab needs: no gaps between faces
  RTCGeometry geometry = rtcNewGeometry(device, RTC_GEOMETRY_TYPE_TRIANGLE);
  auto* verts = static_cast<Point3*>(rtcSetNewGeometryBuffer(
      geometry, RTC_BUFFER_TYPE_VERTEX, 0, RTC_FORMAT_FLOAT3, sizeof(Point3), hills.verts.size()));
  std::copy(hills.verts.begin(), hills.verts.end(), verts);
  auto* corners = static_cast<std::uint32_t*>(
      rtcSetNewGeometryBuffer(geometry, RTC_BUFFER_TYPE_INDEX, 0, RTC_FORMAT_UINT3,
                              3 * sizeof(std::uint32_t), hills.faces.size()));
  for (const Face& f : hills.faces) corners = std::copy_n(f.v, 3, corners);
  rtcCommitGeometry(geometry);
  rtcAttachGeometry(scene, geometry);
  rtcReleaseGeometry(geometry);
  rtcCommitScene(scene);
  // The same dab: points uniform over a disc, straight down.
  Generator rng;
  int hits = 0;
  for (auto _ : state) {
    const float r = kDab * std::sqrt(rng.Random(1)), a = rng.Random(6.2831853f);
    RTCIntersectContext context;
    rtcInitIntersectContext(&context);
    RTCRayHit query{};
    query.ray.org_x = 100 + r * std::cos(a), query.ray.org_y = 100 + r * std::sin(a);
    query.ray.org_z = kDab;
    query.ray.dir_z = -1;
    query.ray.tfar = 2 * kDab;
    query.ray.mask = ~0u;
    query.hit.geomID = RTC_INVALID_GEOMETRY_ID;
    rtcIntersect1(scene, &context, &query);
    hits += query.hit.geomID != RTC_INVALID_GEOMETRY_ID;
  }
  rtcReleaseScene(scene);
  rtcReleaseDevice(device);
  if (hits == 0) state.SkipWithError("no hit");
}

// A stroke of the mouse back and forth over ground of 60 by 60 units, with so many placements laid
// before the timing starts.
Body LongStroke(int laid, int amount, int nodesBeside) {
  return [=](benchmark::State& state) {
    DropScene();
    Painted scene(0, 1);
    auto* ground = new PlaneObject;
    ground->SetSize(60, 60, 1, 1);
    scene.host.GetScene().CreateObjectNode(ground);
    for (int i = 0; i < nodesBeside; ++i) {
      auto* box = new BoxObject;
      box->SetSize(1, 1, 1);
      scene.host.GetScene().CreateObjectNode(box)->SetNodeTM(
          0, TransMatrix({100.0f + 3 * float(i % 100), 3 * float(i / 100), 0}));
    }
    scene.Set(Brush_Amount, amount), scene.Set(Brush_Falloff, 0), scene.Set(Brush_Size, 3.0f);
    scene.Set(Brush_Collision, 1e-4f);
    host::Viewports& views = scene.host.Views();
    views.SetActive(
        std::make_shared<ViewExp>(ViewExp::Orthographic({0, 0, 10}, {0, 0, 0}, 60, 600, 600)));
    // A brush width of 6 units, 60 pixels, an event: each pays for the whole amount.
    int event = 0;
    const auto at = [&] { return IPoint2{60 + 60 * (event % 9), 60 + 60 * (event / 9 % 9)}; };
    const auto move = [&] {
      ++event;
      views.Move(at());
    };
    views.Move(at());
    SowfieldPainter& painter = PainterOf(scene, kMultiTool);
    views.Press(at());
    while (painter.PendingCount() < size_t(laid)) move();
    for (auto _ : state) move();
    if (painter.PendingCount() == 0) state.SkipWithError("nothing was laid");
    painter.EndPaint();
  };
}

Body TypesAdded(int types) {
  return [=](benchmark::State& state) {
    DropScene();
    for (auto _ : state) {
      state.PauseTiming();
      auto scene = std::make_unique<Painted>(0, 1);
      std::vector<INode*> nodes;
      for (int i = 0; i < types; ++i) {
        auto* box = new BoxObject;
        box->SetSize(1, 1, 1);
        nodes.push_back(scene->host.GetScene().CreateObjectNode(box));
      }
      state.ResumeTiming();
      for (INode* n : nodes) AddType(scene->object->distribution, n);
      state.PauseTiming();
      scene.reset();
      state.ResumeTiming();
    }
  };
}

Body ObjectsCreated(int count) {
  return [=](benchmark::State& state) {
    DropScene();
    for (auto _ : state) {
      Painted scene(0, 1);
      for (int i = 0; i < count; ++i) {
        auto* made =
            static_cast<Sowfield*>(CreateInstance(GEOMOBJECT_CLASS_ID, Painted::kSowfield));
        scene.host.GetScene().CreateObjectNode(made);
        made->InitNewObject();
      }
    }
  };
}

}  // namespace

void AddPaintRows() {
  constexpr float kAll = 3, kNone = 1e-4f;  // collision distances that refuse nearly all, none
  AddTimed("rejected candidate on 1,000,000", Strokes(kMillion, kAll), 2e-6);
  AddTimed("accepted candidate with preview on 1,000,000", Strokes(kMillion, kNone), 5e-6);
  AddRow("1,000 rejected candidates on 1,000,000", Strokes(kMillion, kAll), "on 10,000",
         Strokes(10000, kAll));
  AddRow("1,000 accepted candidates on 1,000,000", Strokes(kMillion, kNone), "on 10,000",
         Strokes(10000, kNone));
  AddRow("start and end of a stroke on 1,000,000", Starts(kMillion), "on 10,000", Starts(10000));
  AddRow("event of a stroke that has laid 198,000", LongStroke(198000, 200, 0), "2,000",
         LongStroke(2000, 200, 0), AtMost(1.5));
  AddRow("event of a stroke beside 20,000 nodes", LongStroke(0, 1, 20000), "beside 10",
         LongStroke(0, 1, 10), AtMost(1.5));
  AddRow("10,000 types added, ten times", TypesAdded(10000), "1,000", TypesAdded(1000), AtMost(13));
  AddRow("10,000 objects created and gone, ten times", ObjectsCreated(10000), "1,000",
         ObjectsCreated(1000), AtMost(13));
  AddRow("random hit of a dab, 80,000 faces", RandomHits, "Embree's own ray", EmbreeRays,
         AtMost(2));
  AddRow("erase event on 1,000,000 that removes 100", EraseEvent(0), "a pass, the tables written",
         EraseFloor, AtMost(2));
  AddRow("the same where they are pyramids", EraseEvent(4), "where none is shown", EraseEvent(0),
         AtMost(3));
}

}  // namespace bench
