#include "sowfield/model/placementkernel.h"

#if defined(__AVX2__)

#include "sowfield/model/placementkernel.inc"

namespace sowfield {
const PlacementKernel kAvx2Kernel = Run;
}  // namespace sowfield

#else

namespace sowfield {
const PlacementKernel kAvx2Kernel = nullptr;
}  // namespace sowfield

#endif
