#include <malloc.h>

#include <algorithm>

#include "bench/painted.h"
#include "bench/rows.h"

namespace bench {
namespace {

using namespace sowfield;

constexpr int kMillion = 1000000;

// One step, as a stroke of 1,000 ends.
void AppendStep(Painted& scene) {
  theHold.Begin();
  scene.Append(1000);
  theHold.Accept(L"Vorn_Painter");
}

double StepKilobytes() {
  Painted& scene = SceneOf(kMillion);
  scene.host.Undo().Clear();
  AppendStep(scene);
  const auto held = [] {
    const struct mallinfo2 info = mallinfo2();
    return double(info.uordblks + info.hblkhd);
  };
  // Undone and redone, so that the step has held what goes as well as what comes.
  scene.host.Undo().Undo();
  const double undone = held();
  scene.host.Undo().Clear();
  return (undone - held()) / 1024;
}

void UndoRedo(benchmark::State& state) {
  Painted& scene = SceneOf(kMillion);
  scene.Set(Display_Mode, 4);
  scene.host.Undo().Clear();
  AppendStep(scene);
  for (auto _ : state) {
    scene.host.Undo().Undo();
    scene.object->UpdateMesh(0);
    scene.host.Undo().Redo();
    scene.object->UpdateMesh(0);
  }
  scene.host.Undo().Undo();
  scene.host.Undo().Clear();
  scene.Set(Display_Mode, 0);
}

void TwoRebuilds(benchmark::State& state) {
  Painted& scene = SceneOf(kMillion);
  scene.Set(Display_Mode, 4);
  for (auto _ : state)
    for (int i = 0; i < 2; ++i) {
      scene.object->mesh.InvalidateGeomCache();
      scene.object->BuildMesh(0);
      scene.object->UpdateMesh(0);
    }
  scene.Set(Display_Mode, 0);
}

// One of 20 types, the one in the middle: a twentieth of the placements goes, half of the others
// get a lower type.
void DeleteType(benchmark::State& state) {
  Painted& scene = SceneOf(kMillion, 20);
  for (auto _ : state) {
    scene.object->distribution.lists.SelectObjectRows({10});
    if (DeleteSelectedTypes(scene.object->distribution) != 1)
      return state.SkipWithError("no type was deleted");
    state.PauseTiming();
    scene.host.Undo().Undo();
    state.ResumeTiming();
  }
}

// Each of the five tables read and written once.
void OnePass(benchmark::State& state) {
  const IParamBlock2& b = SceneOf(kMillion, 20).Block();
  std::vector<Point3> points(kMillion);
  std::vector<int> numbers(kMillion);
  for (auto _ : state) {
    for (const Param id : {Ins_Pos, Ins_Normal})
      std::copy_n(b.Points(id).data(), kMillion, points.data());
    for (const Param id : {Ins_Type, Ins_Rand, Ins_AnimRand})
      std::copy_n(b.Ints(id).data(), kMillion, numbers.data());
    benchmark::ClobberMemory();
  }
}

}  // namespace

void AddUndoRows() {
  AddFigure("undo step of a stroke of 1,000 on 1,000,000", "KB", StepKilobytes, AtMost(200));
  AddRow("one of 20 types of 1,000,000 deleted", DeleteType, "the five tables copied", OnePass);
  AddRow("its undo and redo, pyramids", UndoRedo, "two rebuilds", TwoRebuilds);
}

}  // namespace bench
