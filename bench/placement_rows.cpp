#include <cmath>

#include "bench/painted.h"
#include "bench/rows.h"
#include "sowfield/model/placementbatch.h"

namespace bench {
namespace {

using namespace sowfield;

constexpr int kMillion = 1000000;

void Turn(Matrix3& m, int axis, float angle) {
  const auto s = float(std::sin(double(angle))), c = float(std::cos(double(angle)));
  if (axis == 0) m.RotateX(s, c);
  if (axis == 1) m.RotateY(s, c);
  if (axis == 2) m.RotateZ(s, c);
}

// All steps for every placement, with the C library's sine and cosine.
Matrix3 StepList(const PlacementEvaluator& e, size_t p) {
  const PlacementForm form = e.Form(e.Type(p), e.Rows()[p]);
  Matrix3 m;
  m.Scale(form.scale);
  Turn(m, 0, form.xAngle);
  Turn(m, 1, form.yAngle);
  Turn(m, 2, form.zAngle);
  m.SetTrans({0, 0, form.zOffset});
  const Point3& angles = e.Angles()[p];
  Turn(m, 0, angles.x * 0.01f * form.n);
  Turn(m, 1, angles.y * 0.01f * form.n);
  Turn(m, 2, angles.z);
  m.Translate(e.Position(p));
  return m;
}

std::vector<Matrix3>& Out() {
  static std::vector<Matrix3> out(kMillion);
  return out;
}

void Plain(benchmark::State& state) {
  const PlacementEvaluator e(SceneOf(kMillion).Block(), 0);
  for (auto _ : state) {
    for (size_t p = 0; p < e.Count(); ++p) Out()[p] = StepList(e, p);
    benchmark::DoNotOptimize(Out().data());
  }
}

Body Batch(PlacementKernel kernel) {
  return [kernel](benchmark::State& state) {
    const PlacementEvaluator e(SceneOf(kMillion).Block(), 0);
    std::vector<Matrix3> expected(1000);
    for (size_t p = 0; p < expected.size(); ++p) expected[p] = StepList(e, p);
    for (auto _ : state) {
      PlacementBatch(e, kernel).Matrices(0, e.Count(), Out().data());
      benchmark::DoNotOptimize(Out().data());
    }
    for (size_t p = 0; p < expected.size(); ++p)
      if (!(Out()[p] == expected[p])) return state.SkipWithError("not the same numbers");
  };
}

}  // namespace

void AddPlacementRows() {
  const std::string name = "matrices of 1,000,000, one core";
  if (BestPlacementKernel() != kPlainKernel)
    AddRow(name + ", AVX2", Batch(BestPlacementKernel()), "C library, all steps", Plain,
           AtLeast(4));
  AddRow(name + ", no AVX2", Batch(kPlainKernel), "C library, all steps", Plain, AtLeast(1.8));
}

}  // namespace bench
