#include <memory>

#include "bench/painted.h"
#include "bench/rows.h"
#include "host/core/parallel.h"
#include "sowfield/display/figures.h"

namespace bench {
namespace {

using namespace sowfield;

constexpr int kMillion = 1000000;

// A given affine matrix per placement, as many vertices and faces written.
struct Floor {
  Floor(const Mesh& shape, size_t count)
      : figure(shape),
        matrices(count, TransMatrix({1, 2, 3})),
        verts(count * shape.verts.size()),
        faces(count * shape.faces.size()) {}
  void Run() {
    Point3* vert = verts.data();
    Face* face = faces.data();
    std::uint32_t first = 0;
    for (const Matrix3& m : matrices) {
      for (const Point3& v : figure.verts) *vert++ = v * m;
      for (const Face& f : figure.faces)
        *face++ = {{f.v[0] + first, f.v[1] + first, f.v[2] + first}, f.smGroup, f.flags};
      first += std::uint32_t(figure.verts.size());
    }
    benchmark::DoNotOptimize(verts.data());
    benchmark::DoNotOptimize(faces.data());
  }
  Mesh figure;
  std::vector<Matrix3> matrices;
  host::Buffer<Point3> verts;
  host::Buffer<Face> faces;
};

Body FloorOf(const Mesh& figure, size_t count) {
  return [=](benchmark::State& state) {
    Floor floor(figure, count);
    floor.Run();
    for (auto _ : state) floor.Run();
  };
}

// Nothing is kept of a mesh that somebody else has written to.
void BuildAnew(Painted& scene) {
  scene.object->mesh.InvalidateGeomCache();
  scene.object->BuildMesh(0);
  scene.object->UpdateMesh(0);
}

// After a hundred of a million have gone.
void BuildOfTheRest(benchmark::State& state) {
  Painted& scene = SceneOf(kMillion);
  scene.Set(Display_Mode, 4);
  std::vector<unsigned char> keep(kMillion, 1);
  for (size_t p = 5000; p < kMillion; p += 10000) keep[p] = 0;
  for (auto _ : state) {
    state.PauseTiming();
    theHold.Begin();
    for (const Param id : kPlacementTables) scene.Block().KeepEntries(id, keep);
    theHold.Accept(L"Erase");
    state.ResumeTiming();
    scene.object->BuildMesh(0);
    scene.object->UpdateMesh(0);
    state.PauseTiming();
    scene.host.Undo().Undo();
    scene.object->UpdateMesh(0);
    state.ResumeTiming();
  }
  scene.Set(Display_Mode, 0);
}

Body Build(int mode, int placements, int threads, bool fresh = false) {
  return [=](benchmark::State& state) {
    Painted& scene = SceneOf(placements);
    scene.Set(Display_Mode, mode);
    host::SetParallelThreads(threads);
    BuildAnew(scene);
    for (auto _ : state) {
      if (fresh) scene.object->mesh = Mesh();
      BuildAnew(scene);
    }
    host::SetParallelThreads(2);
    scene.Set(Display_Mode, 0);
  };
}

Body FreshFloor(const Mesh& figure, size_t count) {
  return [=](benchmark::State& state) {
    for (auto _ : state) {
      state.PauseTiming();
      auto floor = std::make_unique<Floor>(figure, 0);
      floor->matrices.resize(count, TransMatrix({1, 2, 3}));
      state.ResumeTiming();
      floor->verts.resize(count * figure.verts.size());
      floor->faces.resize(count * figure.faces.size());
      floor->Run();
      state.PauseTiming();
      floor.reset();
      state.ResumeTiming();
    }
  };
}

}  // namespace

void AddDisplayRows() {
  const Mesh pyramid = MakePyramidMesh({1, 1, 1}, {0, 0, 0});
  const Mesh squirrel = MakeSquirrelMesh(1);
  const std::string measure = "one core writing as much";
  AddRow("1,000,000 pyramids, one core", Build(4, kMillion, 1), measure, FloorOf(pyramid, kMillion),
         AtMost(5));
  AddRow("1,000,000 pyramids, two cores", Build(4, kMillion, 2), measure,
         FloorOf(pyramid, kMillion), AtMost(3));
  AddRow("1,000,000 pyramids, one core, fresh", Build(4, kMillion, 1, true), measure + ", fresh",
         FreshFloor(pyramid, kMillion));
  AddRow("1,000,000 pyramids less 100, two cores", BuildOfTheRest, "all made anew",
         Build(4, kMillion, 2));
  AddRow("50,000 squirrels, one core", Build(5, 50000, 1), measure, FloorOf(squirrel, 50000),
         AtMost(1.5));
  AddRow("50,000 squirrels, two cores", Build(5, 50000, 2), measure, FloorOf(squirrel, 50000));
}

}  // namespace bench
