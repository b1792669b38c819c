// The limit of events: 1000 in each window of 60 seconds.
#pragma once

#include <atomic>
#include <cstdint>

namespace rynd {

/// Counts events in windows that begin with the first event after the window before. Any thread; the counters are
/// relaxed, so that simultaneous events at a window's edges may be counted in either.
class RateLimit {
 public:
  static constexpr uint32_t kMaxEvents = 1000;
  static constexpr int64_t kWindowS = 60;

  /// Count one event at `now` (whole wall-clock seconds). False when it exceeds the limit.
  bool Pass(int64_t now) {
    const int64_t start = windowStart_.load(std::memory_order_relaxed);
    // A start in the future is that of a clock which was set back since.
    if (start != 0 && start <= now && now - start < kWindowS) {
      return count_.fetch_add(1, std::memory_order_relaxed) + 1 <= kMaxEvents;
    }
    windowStart_.store(now, std::memory_order_relaxed);
    count_.store(1, std::memory_order_relaxed);
    return true;
  }

 private:
  std::atomic<int64_t> windowStart_ = 0;  ///< 0: no window yet
  std::atomic<uint32_t> count_ = 0;
};

/// Count one event at `now` (whole wall-clock seconds). False, with the drop logged, when too many have been posted.
/// Any thread.
bool PassesRateLimit(int64_t now, const char *eventNamespace, const char *shortId);

}  // namespace rynd
