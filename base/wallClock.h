// The time of day, as programs beside the daemon read it.
#pragma once

#include <chrono>
#include <cstdint>

namespace base {

/// Microseconds since the epoch, by the clock that people set. Any thread.
inline int64_t WallClockUs() {
  return std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::system_clock::now().time_since_epoch())
      .count();
}

}  // namespace base
