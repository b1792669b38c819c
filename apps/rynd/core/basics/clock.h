// The daemon's clocks: the only place that reads one. Any thread.
#pragma once

#include <atomic>
#include <cstdint>
#include <limits>

namespace rynd {

constexpr int64_t kNsPerSecond = 1'000'000'000;

/// Whole seconds of wall-clock time since the epoch. It steps when the host's clock is set.
int64_t WallClockS();

/// Microseconds of the same.
uint64_t WallClockUs();

/// Nanoseconds of a clock that nobody sets: what intervals and deadlines are measured with.
int64_t MonotonicNs();

/// The same, for what decides nothing: a flight recording leaves it out.
int64_t UnrecordedNs();

/// Whole seconds of wall-clock time that is never set back: what windows of time are measured with.
int64_t WindowClockS();

/// Wall-clock time that follows every step forward and goes on through every step back, as if there had been none: a
/// window neither lasts longer nor begins anew when the host's clock is set back. Any thread.
class NeverSetBack {
 public:
  /// Its whole seconds since the epoch, given the wall clock and then the monotonic one, read in this order.
  int64_t NowS(int64_t wallNs, int64_t monotonicNs) {
    const int64_t ahead = wallNs - monotonicNs;
    int64_t most = mostAheadNs_.load(std::memory_order_relaxed);
    while (ahead > most && !mostAheadNs_.compare_exchange_weak(most, ahead, std::memory_order_relaxed)) continue;
    return (monotonicNs + (ahead > most ? ahead : most)) / kNsPerSecond;
  }

 private:
  std::atomic<int64_t> mostAheadNs_ = std::numeric_limits<int64_t>::min();  ///< of the monotonic clock
};

}  // namespace rynd
