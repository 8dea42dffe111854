#include "host/math/buffer.h"

#include <sys/mman.h>

#include <new>

namespace host {
namespace {
constexpr std::align_val_t kHugePage{2u << 20};
}

void* AllocateHuge(size_t bytes) {
  void* p = ::operator new(bytes, kHugePage);
  madvise(p, bytes, MADV_HUGEPAGE);  // a wish: without it the pages come one by one
  return p;
}

void FreeHuge(void* p) { ::operator delete(p, kHugePage); }

}  // namespace host
