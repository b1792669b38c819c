// Objects that threads may use for as long as there are any, also behind main().
#pragma once

#include <cstddef>
#include <new>
#include <utility>

namespace base {

/// A T that is never destroyed, in memory of its own: made before main(), it cannot fail for lack of memory.
template <typename T>
class Immortal {
 public:
  template <typename... Arguments>
  explicit Immortal(Arguments &&...arguments) {
    new (&storage_) T(std::forward<Arguments>(arguments)...);
  }
  Immortal(const Immortal &) = delete;
  Immortal &operator=(const Immortal &) = delete;
  T &operator*() { return *std::launder(reinterpret_cast<T *>(&storage_)); }

 private:
  alignas(T) std::byte storage_[sizeof(T)];
};

}  // namespace base
