#include "bench/painted.h"
#include "bench/rows.h"
#include "host/viewport/graphicswindow.h"
#include "sowfield/display/bounds.h"
#include "sowfield/display/lightmodes.h"

namespace bench {
namespace {

using namespace sowfield;

constexpr int kMillion = 1000000;

// A redraw into a window that keeps its memory, as a view's does.
Body Draw(int mode, float zOffset = 0) {
  return [=](benchmark::State& state) {
    Painted& scene = SceneOf(kMillion);
    scene.Set(Display_Mode, mode);
    scene.Block().SetValue(Tr_ZPos_Max, 0, zOffset);
    LightDrawer drawer(scene.object->distribution);
    GraphicsWindow window;
    drawer.Draw(0, window);
    for (auto _ : state) {
      window.Clear();
      drawer.Draw(0, window);
    }
    scene.Block().SetValue(Tr_ZPos_Max, 0, 0.0f);
    scene.Set(Display_Mode, 0);
  };
}

// As many points, with a colour each, written from the table.
Body WritePoints(int each) {
  return [=](benchmark::State& state) {
    const auto positions = SceneOf(kMillion).Block().Points(Ins_Pos);
    std::vector<GraphicsWindow::Vertex> points(size_t(kMillion) * size_t(each));
    for (auto _ : state) {
      GraphicsWindow::Vertex* out = points.data();
      for (const Point3& p : positions)
        for (int i = 0; i < each; ++i) *out++ = {p, 0xFF00FF00};
      benchmark::DoNotOptimize(points.data());
      benchmark::ClobberMemory();
    }
  };
}

void Boxes(benchmark::State& state) {
  Painted& scene = SceneOf(kMillion);
  for (auto _ : state)
    benchmark::DoNotOptimize(
        LightBounds(scene.object->distribution, 0, nullptr, Box3(), Matrix3()));
}

void OnePass(benchmark::State& state) {
  Painted& scene = SceneOf(kMillion);
  for (auto _ : state) {
    Box3 boxes[4];
    const auto positions = scene.Block().Points(Ins_Pos);
    const auto types = scene.Block().Ints(Ins_Type);
    for (size_t p = 0; p < positions.size(); ++p) boxes[types[p]] += positions[p];
    benchmark::DoNotOptimize(boxes);
  }
}

}  // namespace

void AddLightRows() {
  AddRow("1,000,000 dots into a recording window", Draw(1), "writing the points", WritePoints(1),
         AtMost(3));
  AddRow("the same with Z offsets", Draw(1, 1), "writing the points", WritePoints(1));
  // A closed polyline of four points is four segments of two: twelve segments a box.
  AddRow("1,000,000 wire boxes", Draw(2), "writing their 24 points", WritePoints(24));
  AddRow("box of 1,000,000", Boxes, "one pass over the positions", OnePass);
}

}  // namespace bench
