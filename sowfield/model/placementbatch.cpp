#include "sowfield/model/placementbatch.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>

namespace sowfield {
namespace {

constexpr float kPlainWeight = 1e6f;
constexpr float kPlainAngle = 1e6f;

constexpr size_t kGathered = 64;  // placements of a list that go through the kernel in one call

constexpr std::uint32_t kMinusZero = 0x80000000u;

// Turned by plain angles a row of zeros gives zeros of either sign, which added to a coordinate
// only show where that is -0. So without a Z offset the position stays what it is. Takes the bits
// of `floats` angles and coordinates each.
bool StayPut(const Point3* angles, const Point3* positions, size_t floats) {
  typedef std::uint32_t UInt4 __attribute__((vector_size(16)));
  const std::uint32_t beyond = std::bit_cast<std::uint32_t>(kPlainAngle);  // NaN and such above
  const auto *a = reinterpret_cast<const char*>(angles),
             *p = reinterpret_cast<const char*>(positions);
  UInt4 bad = {};
  size_t i = 0;
  for (; i + 4 <= floats; i += 4) {
    UInt4 angle, coordinate;
    std::memcpy(&angle, a + 4 * i, sizeof angle);
    std::memcpy(&coordinate, p + 4 * i, sizeof coordinate);
    bad |= (UInt4)((angle & ~kMinusZero) >= beyond) | (UInt4)(coordinate == kMinusZero);
  }
  std::uint32_t any = bad[0] | bad[1] | bad[2] | bad[3];
  for (; i < floats; ++i) {
    std::uint32_t angle, coordinate;
    std::memcpy(&angle, a + 4 * i, sizeof angle);
    std::memcpy(&coordinate, p + 4 * i, sizeof coordinate);
    any |= std::uint32_t((angle & ~kMinusZero) >= beyond || coordinate == kMinusZero);
  }
  return any == 0;
}

KernelForm FormFor(const PlacementForm& from) {
  const Matrix3 m = PlacementEvaluator::ApplyForm(Matrix3(), from);
  KernelForm form;
  for (int i = 0; i < 4; ++i) {
    const Point3& row = m.GetRow(i);
    form.x[i] = row.x, form.y[i] = row.y, form.z[i] = row.z;
  }
  form.n = from.n;
  return form;
}

}  // namespace

static_assert(kFormsPerType == kBlockSize);
static_assert(sizeof(Matrix3) == 12 * sizeof(float) && sizeof(Point3) == 3 * sizeof(float));

PlacementBatch::PlacementBatch(const PlacementEvaluator& placements, PlacementKernel kernel)
    : placements_(placements), kernel_(kernel) {
  if (placements.Count() == 0) return;
  forms_.reserve(size_t(placements.TypeCount()) * kFormsPerType);
  for (int type = 0; type < placements.TypeCount(); ++type)
    for (int row = 0; row < kFormsPerType; ++row) {
      const PlacementForm form = placements.Form(type, row);
      forms_.push_back(FormFor(form));
      liftless_ = liftless_ && form.zOffset == 0 && std::fabs(form.n) < kPlainWeight;
    }
}

const Point3* PlacementBatch::Origins(size_t first, size_t count, const Point3* positions,
                                      Point3* buffer) const {
  if (liftless_ && StayPut(placements_.Angles().data() + first, positions, 3 * count))
    return positions;
  Matrix3 matrices[kGathered];
  for (size_t begin = 0; begin < count; begin += kGathered) {
    const size_t run = std::min(kGathered, count - begin);
    Matrices(first + begin, run, positions + begin, matrices);
    for (size_t i = 0; i < run; ++i) buffer[begin + i] = matrices[i].GetTrans();
  }
  return buffer;
}

const Point3* PlacementBatch::Origins(const Places& places, size_t first, size_t count,
                                      const Point3* positions, Point3* buffer) const {
  if (places.AreAll()) return Origins(first, count, positions, buffer);
  Matrix3 matrices[kGathered];
  for (size_t begin = 0; begin < count; begin += kGathered) {
    const size_t run = std::min(kGathered, count - begin);
    Run(places, first + begin, run, positions + begin, matrices);
    for (size_t i = 0; i < run; ++i) buffer[begin + i] = matrices[i].GetTrans();
  }
  return buffer;
}

void PlacementBatch::Run(const Places& places, size_t first, size_t count, const Point3* positions,
                         Matrix3* out) const {
  if (places.AreAll())
    return Matrices(first, count, positions ? positions : &placements_.Positions()[first], out);
  int types[kGathered], rows[kGathered];
  Point3 angles[kGathered], stored[kGathered];
  for (size_t begin = 0; begin < count; begin += kGathered) {
    const size_t run = std::min(kGathered, count - begin);
    for (size_t i = 0; i < run; ++i) {
      const size_t p = places[first + begin + i];
      types[i] = placements_.Types()[p], rows[i] = placements_.Rows()[p];
      angles[i] = placements_.Angles()[p], stored[i] = placements_.Positions()[p];
    }
    const Point3* at = positions ? positions + begin : stored;
    kernel_({forms_.data(), types, rows, &angles->x, &at->x, run},
            reinterpret_cast<float*>(out + begin));
  }
}

void PlacementBatch::Matrices(size_t first, size_t count, const Point3* positions,
                              Matrix3* out) const {
  if (count == 0) return;
  kernel_({forms_.data(), placements_.Types().data() + first, placements_.Rows().data() + first,
           &placements_.Angles()[first].x, &positions->x, count},
          reinterpret_cast<float*>(out));
}

}  // namespace sowfield
