// Prints hashes over the bits of everything that a stored scene or a replayed job rests on. Built
// several times with different optimisation and compilers: all must print what expected.txt holds.
// A change of these numbers is a change of every painted scene.

#include <bit>
#include <cstdint>
#include <cstdio>
#include <vector>

#include "host/host.h"
#include "host/math/elementary.h"
#include "host/math/quat.h"
#include "host/painter/paintsystem.h"
#include "sowfield/model/placementbatch.h"
#include "sowfield/model/typerows.h"

#ifdef NO_PAINT_SYSTEM
// For a build without the ray kernel, which has no part in these numbers.
void host::RegisterPaintSystem(ClassRegistry&) {}
#endif

namespace {

// Fowler, Noll, Vo: FNV-1a, 64 bits.
class Hash {
 public:
  void Add(std::uint32_t word) {
    for (int i = 0; i < 4; ++i) value_ = (value_ ^ (word >> 8 * i & 255)) * 0x100000001b3ull;
  }
  void Add(float v) { Add(std::bit_cast<std::uint32_t>(v)); }
  void Add(double v) {
    const auto bits = std::bit_cast<std::uint64_t>(v);
    Add(std::uint32_t(bits));
    Add(std::uint32_t(bits >> 32));
  }
  void Add(const Point3& p) { Add(p.x), Add(p.y), Add(p.z); }
  void Add(const Matrix3& m) {
    for (int i = 0; i < 4; ++i) Add(m.GetRow(i));
  }
  void Print(const char* name) const {
    std::printf("%-12s %016llx\n", name, (unsigned long long)value_);
  }

 private:
  std::uint64_t value_ = 0xcbf29ce484222325ull;
};

struct NoObject : sowfield::ObjectSide {
  void RefreshObject() override {}
  INode* OwnNode() override { return nullptr; }
  bool PanelsOpen() const override { return false; }
};

// One draw after the other: the order of a call's arguments is the compiler's choice.
Point3 RandomPoint(sowfield::Generator& rng, float reach) {
  Point3 p;
  for (int i = 0; i < 3; ++i) p[i] = rng.RandomRange(reach, -reach);
  return p;
}

void HashElementary(sowfield::Generator& rng) {
  Hash h;
  for (int i = 0; i < 100000; ++i) {
    const float range = i % 10 == 0 ? 1e7f : 20.0f;
    const double a = rng.RandomRange(range, -range), b = rng.RandomRange(range, -range);
    const host::SinCos sc = host::SinCosOf(a);
    h.Add(sc.sin), h.Add(sc.cos), h.Add(host::Tan(a));
    h.Add(host::Atan2(a, b)), h.Add(host::Acos(sc.sin)), h.Add(host::Hypot(a, b));
  }
  h.Print("elementary");
}

void HashAngles(sowfield::Generator& rng) {
  Hash h;
  for (int i = 0; i < 50000; ++i) {
    Point3 n = RandomPoint(rng, 1);
    if (i % 100 == 0) n = {0, 0, i % 200 == 0 ? -1.0f : 1.0f};
    Matrix3 base;
    h.Add(sowfield::StoredAngles(rng.Random(360) * 0.017453292f, n, &base));
    h.Add(base);
    h.Add(Inverse(base * TransMatrix(n)));
    h.Add(ArbAxis(n));
  }
  h.Print("angles");
}

// Rows of random values for a few types, and placements all over.
void FillDistribution(sowfield::Distribution& d, int types, int placements) {
  using namespace sowfield;
  AppendGlobalRow(d);
  for (int t = 0; t < types; ++t) AppendTypeRows(d);
  for (const Param id : kSlotTables) {
    for (int slot = 0; slot <= types; ++slot) {
      if (FindParam(id)->type == ParamType::Int)
        d.block->SetValue(id, 0, d.rng.RandomInt(1, 0), slot);
      else
        d.block->SetValue(id, 0, d.rng.RandomRange(360, -90), slot);
    }
  }
  EnsureAnimTable(d);
  for (int t = 0; t < types; ++t) {
    d.block->SetValue(Tr_AnimOn, 0, 1, t);
    d.block->SetValue(Tr_AnimMin, 0, d.rng.RandomInt(100, -100), t);
    d.block->SetValue(Tr_AnimMax, 0, d.rng.RandomInt(1000, -100), t);
  }
  for (int p = 0; p < placements; ++p) {
    const Point3 position = RandomPoint(d.rng, 1000);
    const Point3 normal = RandomPoint(d.rng, 1);
    const Point3 angles = StoredAngles(d.rng.Random(6), normal);
    const int type = d.rng.RandomInt(types - 1, 0), row = p % 100, anim = p % 10000;
    d.block->Append(Ins_Pos, 1, &position);
    d.block->Append(Ins_Normal, 1, &angles);
    d.block->Append(Ins_Type, 1, &type);
    d.block->Append(Ins_Rand, 1, &row);
    d.block->Append(Ins_AnimRand, 1, &anim);
  }
}

void HashPlacements() {
  NoObject object;
  const auto desc = sowfield::MakeBlockDesc(nullptr);
  IParamBlock2 block(*desc, nullptr);
  sowfield::Distribution d(object);
  d.block = &block;
  FillDistribution(d, 7, 20000);

  Hash matrices, times, points;
  const sowfield::PlacementEvaluator evaluator(block, 4800);
  for (size_t p = 0; p < evaluator.Count(); ++p) {
    const Matrix3 m = evaluator.Matrix(p);
    matrices.Add(m);
    times.Add(std::uint32_t(evaluator.Time(p)));
    points.Add(Point3(0.25f, -1.5f, 3.0f) * m);
  }
  matrices.Print("matrices");
  for (const sowfield::PlacementKernel kernel :
       {sowfield::kPlainKernel, sowfield::BestPlacementKernel()}) {
    std::vector<Matrix3> all(evaluator.Count());
    sowfield::PlacementBatch(evaluator, kernel).Matrices(0, all.size(), all.data());
    Hash bulk;
    for (const Matrix3& m : all) bulk.Add(m);
    bulk.Print("in bulk");
  }
  times.Print("times");
  points.Print("points");
}

}  // namespace

int main() {
  host::Host host;
  sowfield::Generator rng;
  HashElementary(rng);
  HashAngles(rng);
  HashPlacements();
}
