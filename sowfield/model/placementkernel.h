#pragma once

#include <cstddef>

namespace sowfield {

/// The first steps of a placement's matrix (scale, three turns, Z offset), which depend on type and
/// random row alone, by columns: x[i], y[i], z[i] are row i of the matrix, row 3 its translation.
struct alignas(16) KernelForm {
  float x[4], y[4], z[4];
  float n;  // weight of the surface's tilt, percent
};

inline constexpr int kFormsPerType = 100;

/// What a kernel reads: parallel arrays of `count` placements. Points are three floats each.
struct KernelInput {
  const KernelForm* forms;  // kFormsPerType a type
  const int* types;
  const int* rows;
  const float* angles;
  const float* positions;
  size_t count;
};

/// Writes `count` matrices, twelve floats each, with the bits of PlacementEvaluator::Apply.
using PlacementKernel = void (*)(const KernelInput& input, float* matrices);

// The same source, compiled for what every machine of the kind has, and for AVX2. The latter is
// null where the compiler has no such form; whether the machine has it is the caller's question.
extern const PlacementKernel kPlainKernel;
extern const PlacementKernel kAvx2Kernel;

/// The fastest that this machine can run.
PlacementKernel BestPlacementKernel();

}  // namespace sowfield
