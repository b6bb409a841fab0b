#pragma once

#include <cstddef>
#include <new>
#include <utility>

namespace tervain {

/// Holds an object that lives until the process has ended: for what detached threads use, which go
/// on while the process destroys its static objects.
///
///     static NeverDestroyed<Pool> pool;
///     return *pool;
template <class T>
class NeverDestroyed {
 public:
  template <class... Arguments>
  explicit NeverDestroyed(Arguments&&... arguments) {
    ::new (static_cast<void*>(bytes_)) T(std::forward<Arguments>(arguments)...);
  }
  NeverDestroyed(const NeverDestroyed&) = delete;
  NeverDestroyed& operator=(const NeverDestroyed&) = delete;
  ~NeverDestroyed() = default;  // which leaves the object alone

  T& operator*() { return *std::launder(reinterpret_cast<T*>(bytes_)); }
  T* operator->() { return &**this; }

 private:
  alignas(T) std::byte bytes_[sizeof(T)]{};
};

}  // namespace tervain
