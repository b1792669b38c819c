// How long a log record may wait for whoever takes it. Any thread.
#pragma once

#include <time.h>

#include <atomic>
#include <cstdint>

namespace hosted {

constexpr int kLogWaitMilliseconds = 100;

/// Nanoseconds of a clock that is never set.
inline int64_t MonotonicNanoseconds() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

/// Remembers that a destination stalls: after a wait in vain no record waits for it for a second, lest each of them
/// holds up its sender.
class Stall {
 public:
  /// Whether this record may wait.
  bool MayWait() const {
    const int64_t since = since_.load(std::memory_order_relaxed);
    return since == 0 || MonotonicNanoseconds() - since >= kPauseNanoseconds;
  }
  /// Note whether a record passed; `waited` is whether it was allowed to wait.
  void Note(bool passed, bool waited) {
    if (passed) {
      if (since_.load(std::memory_order_relaxed) != 0) since_.store(0, std::memory_order_relaxed);
    } else if (waited) {
      since_.store(MonotonicNanoseconds(), std::memory_order_relaxed);
    }
  }

 private:
  static constexpr int64_t kPauseNanoseconds = 1'000'000'000;
  std::atomic<int64_t> since_{0};  ///< when a wait was last in vain; 0 when records pass
};

}  // namespace hosted
