// Each row stands beside the floor for the same bytes: the least that any program must do to read
// or write them. Rates are placements, vertices or candidates a second.

#include <benchmark/benchmark.h>

#include <memory>

#include "host/host.h"
#include "host/scene/primitives.h"
#include "sowfield/model/placement.h"
#include "sowfield/objects/typelist.h"
#include "sowfield/plugin/entry.h"
#include "sowfield/plugin/sowfield.h"

namespace {

using namespace sowfield;

// A host with one object, one box as its type, and placements scattered over a square.
struct Painted {
  explicit Painted(int placements) {
    std::string why;
    host.Classes().AddPlugin(Entries(), why);
    object = static_cast<Sowfield*>(CreateInstance(GEOMOBJECT_CLASS_ID, kClass));
    host.GetScene().CreateObjectNode(object);
    object->InitNewObject();
    auto* box = new BoxObject;
    INode* source = host.GetScene().CreateObjectNode(box);
    AddType(object->distribution, source);
    Append(placements);
  }

  void Append(int n) {
    std::vector<Point3> positions, angles;
    std::vector<int> types(size_t(n), 0), rows, anims(size_t(n), 0);
    Generator rng;
    for (int i = 0; i < n; ++i) {
      Point3 p(0, 0, 0);
      p.x = rng.Random(1000);
      p.y = rng.Random(1000);
      positions.push_back(p);
      angles.push_back({0.1f, 0.2f, rng.Random(6)});
      rows.push_back(i % 100);
    }
    IParamBlock2& b = *object->pblock2;
    b.Append(Ins_Pos, n, positions.data());
    b.Append(Ins_Normal, n, angles.data());
    b.Append(Ins_Type, n, types.data());
    b.Append(Ins_Rand, n, rows.data());
    b.Append(Ins_AnimRand, n, anims.data());
  }

  static constexpr Class_ID kClass{0x5ADA1D16, 0x0A7D61A6};
  host::Host host;
  Sowfield* object = nullptr;
};

void PlacementMatrices(benchmark::State& state) {
  Painted scene(int(state.range(0)));
  for (const Param id : {Tr_Random})
    for (int slot = 0; slot < 2; ++slot) scene.object->pblock2->SetValue(id, 0, 1, slot);
  std::vector<Matrix3> out(size_t(state.range(0)));
  for (auto _ : state) {
    const PlacementEvaluator evaluator(*scene.object->pblock2, 0);
    for (size_t p = 0; p < out.size(); ++p) out[p] = evaluator.Matrix(p);
    benchmark::DoNotOptimize(out.data());
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(PlacementMatrices)->Arg(1000000)->Unit(benchmark::kMillisecond);

void BuildPyramids(benchmark::State& state) {
  Painted scene(int(state.range(0)));
  for (auto _ : state) scene.object->BuildMesh(0);
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BuildPyramids)->Arg(1000000)->Unit(benchmark::kMillisecond);

// The floor: a given affine matrix per placement, as many vertices and faces written.
void BuildPyramidsFloor(benchmark::State& state) {
  const auto n = size_t(state.range(0));
  std::vector<Matrix3> matrices(n, TransMatrix({1, 2, 3}));
  const Point3 figure[4] = {{-1, -1, 0}, {1, -1, 0}, {0, 1, 0}, {0, 0, 1}};
  const Face faces[3] = {{{3, 0, 1}, 0, 7}, {{3, 1, 2}, 0, 7}, {{3, 2, 0}, 0, 7}};
  host::Buffer<Point3> verts(n * 4);
  host::Buffer<Face> out(n * 3);
  for (auto _ : state) {
    for (size_t p = 0; p < n; ++p) {
      for (size_t k = 0; k < 4; ++k) verts[p * 4 + k] = figure[k] * matrices[p];
      for (size_t k = 0; k < 3; ++k) {
        Face f = faces[k];
        for (std::uint32_t& v : f.v) v += std::uint32_t(p * 4);
        out[p * 3 + k] = f;
      }
    }
    benchmark::DoNotOptimize(verts.data());
    benchmark::DoNotOptimize(out.data());
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BuildPyramidsFloor)->Arg(1000000)->Unit(benchmark::kMillisecond);

// Candidates in a crowd: nearly all are refused.
void CollisionTests(benchmark::State& state) {
  Painted scene(int(state.range(0)));
  const float distance = 2.0f;
  CollisionIndex index;
  index.Prepare(scene.object->pblock2->Points(Ins_Pos), distance);
  Generator rng;
  for (auto _ : state) {
    Point3 p(0, 0, 0);
    p.x = rng.Random(1000);
    p.y = rng.Random(1000);
    benchmark::DoNotOptimize(index.AnyCloser(p, distance));
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(CollisionTests)->Arg(10000)->Arg(1000000);

// A pass over the positions that keeps nothing: what an erase event can't do without.
void ErasePassFloor(benchmark::State& state) {
  Painted scene(int(state.range(0)));
  const auto positions = scene.object->pblock2->Points(Ins_Pos);
  for (auto _ : state) {
    int near = 0;
    for (const Point3& p : positions) near += Length(p - Point3(500, 500, 0)) < 5.0f;
    benchmark::DoNotOptimize(near);
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(ErasePassFloor)->Arg(1000000)->Unit(benchmark::kMillisecond);

}  // namespace
