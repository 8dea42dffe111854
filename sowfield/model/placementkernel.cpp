#include "sowfield/model/placementkernel.inc"

namespace sowfield {

const PlacementKernel kPlainKernel = Run;

PlacementKernel BestPlacementKernel() {
#if defined(__x86_64__)
  if (kAvx2Kernel && __builtin_cpu_supports("avx2")) return kAvx2Kernel;
#endif
  return kPlainKernel;
}

}  // namespace sowfield
