#pragma once

#include <memory>
#include <type_traits>
#include <utility>
#include <vector>

namespace host {

/// Allocator whose containers leave new trivial elements unset: a table of millions of vertices is
/// written once, by its maker, not first zeroed by the container.
template <class T>
struct DefaultInitAllocator : std::allocator<T> {
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
