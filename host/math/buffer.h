#pragma once

#include <cstddef>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>
#include <vector>

namespace host {

/// Memory in pages of 2 MB where the system has them: first writes into fresh memory cost several
/// times as much with small pages.
void* AllocateHuge(size_t bytes);
void FreeHuge(void* p);
inline constexpr size_t kHugeFrom = size_t(8) << 20;  // bytes; below, the waste isn't worth it

/// Allocator whose containers leave new trivial elements unset: a table of millions of vertices is
/// written once, by its maker, not first zeroed by the container.
template <class T>
struct DefaultInitAllocator : std::allocator<T> {
  T* allocate(size_t n) {
    if (n < kHugeFrom / sizeof(T)) return std::allocator<T>::allocate(n);
    if (n > size_t(-1) / 2 / sizeof(T)) throw std::bad_array_new_length();
    return static_cast<T*>(AllocateHuge(n * sizeof(T)));
  }
  void deallocate(T* p, size_t n) {
    if (n < kHugeFrom / sizeof(T)) {
      std::allocator<T>::deallocate(p, n);
    } else {
      FreeHuge(p);
    }
  }

  template <class U>
  struct rebind {
    using other = DefaultInitAllocator<U>;
  };

  template <class U, class... Args>
  void construct(U* p, Args&&... args) {
    if constexpr (sizeof...(Args) == 0 && std::is_trivially_destructible_v<U>) {
      ::new (static_cast<void*>(p)) U;
    } else {
      ::new (static_cast<void*>(p)) U(std::forward<Args>(args)...);
    }
  }
};

template <class T>
using Buffer = std::vector<T, DefaultInitAllocator<T>>;

}  // namespace host
