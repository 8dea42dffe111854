#include "sowfield/model/placementbatch.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>

#include "host/core/parallel.h"
#include "tests/sowfield/placement_twin.h"

namespace sowfield {
namespace {

// Bit for bit, but for which NaN a NaN is.
bool Same(const Matrix3& a, const Matrix3& b) {
  for (int i = 0; i < 4; ++i)
    for (int k = 0; k < 3; ++k) {
      const float x = a.GetRow(i)[k], y = b.GetRow(i)[k];
      if (std::memcmp(&x, &y, sizeof x) != 0 && !(std::isnan(x) && std::isnan(y))) return false;
    }
  return true;
}

struct Scattered : SowfieldScene {
  explicit Scattered(int count) {
    for (int t = 0; t < kTypes; ++t) AddAsType(AddBox(L"Source", 1, 1, 1));
    ScrambleRows(*this, draw, kTypes);
    ScatterPlacements(*this, draw, kTypes, count);
  }
  static constexpr int kTypes = 3;
  Draws draw{77};
};

// Quarter turns, turns that need another reduction, numbers that are none, zeros of both signs.
void AddOddPlacements(SowfieldScene& s) {
  const float inf = std::numeric_limits<float>::infinity();
  const float odd[] = {0.0f, -0.0f, 1.5707964f, -3.1415927f, 1048576.0f, 1e7f, -3e30f, inf, NAN};
  for (const float a : odd)
    for (const float b : odd)
      s.AppendPlacements({{{-0.0f, b, 0.0f}, {a, b, a}, 1, 7, 0}, {{0, 0, b}, {b, a, 0}, 2, 8, 0}});
}

TEST(PlacementBatch, GivesTheBitsOfTheDefinitionWithEveryKernel) {
  Scattered s(5000);
  AddOddPlacements(s);
  const PlacementEvaluator one(s.Block(), 0);
  for (const PlacementKernel kernel : {kPlainKernel, BestPlacementKernel()}) {
    const PlacementBatch batch(one, kernel);
    std::vector<Matrix3> all(one.Count());
    batch.Matrices(0, 3, all.data());
    batch.Matrices(3, all.size() - 3, all.data() + 3);
    for (size_t p = 0; p < all.size(); ++p) {
      ASSERT_TRUE(Same(all[p], one.Matrix(p))) << p;
      const Point3 moved = one.Position(p) * 0.5f;
      ASSERT_TRUE(Same(batch.Matrix(p, moved), one.Matrix(p, moved))) << p;
    }
  }
}

TEST(PlacementBatch, GivesTheMatricesTranslationsWithAndWithoutZOffsets) {
  for (const float offset : {0.0f, 2.0f}) {
    Scattered s(1000);
    for (int slot = 0; slot <= Scattered::kTypes; ++slot)
      s.Set(Tr_ZPos_Min, 0.0f, slot), s.Set(Tr_ZPos_Max, 0.0f, slot);
    s.Set(Tr_ZPos_Min, offset, 1);
    AddOddPlacements(s);
    const PlacementEvaluator one(s.Block(), 0);
    const PlacementBatch batch(one);
    std::vector<Point3> buffer(one.Count());
    for (const size_t run : {size_t(1), size_t(150)})
      for (size_t first = 0; first < one.Count(); first += run) {
        const size_t count = std::min(run, one.Count() - first);
        const Point3* at = batch.Origins(first, count, &one.Positions()[first], buffer.data());
        for (size_t i = 0; i < count; ++i)
          ASSERT_TRUE(Same(TransMatrix(at[i]), TransMatrix(one.Matrix(first + i).GetTrans())))
              << first + i;
      }
  }
}

TEST(DisplayMesh, IsTheSameOnAnyNumberOfThreads) {
  Scattered s(20000);
  s.Set(Display_Mode, 4);
  for (const int shown : {0, 2}) {
    s.Set(Display_Type, shown);
    host::SetParallelThreads(1);
    s.Shown();
    const Mesh alone = s.object->mesh;
    for (const int threads : {2, 5}) {
      host::SetParallelThreads(threads);
      s.Shown();
      EXPECT_TRUE(s.object->mesh.verts == alone.verts && s.object->mesh.faces == alone.faces);
    }
  }
}

}  // namespace
}  // namespace sowfield
