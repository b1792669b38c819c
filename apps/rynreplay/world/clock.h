// The clock that the correlators of a replay are told: simulated time, or what the recording says that they were told.
// One thread, as everything here.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "core/basics/clock.h"

namespace replay {

/// What a handler may ask for: core/basics/clock.h.
enum class ClockKind : uint8_t { kWallS, kWindowS, kMonotonicNs };
constexpr size_t kClockKinds = 3;

/// One read of a clock, in the unit of its kind.
struct ClockRead {
  ClockKind kind;
  int64_t value;
};

class Clock {
 public:
  /// It is `monotonicNs`, and by the wall `wallUs` (microseconds since the epoch).
  void Set(int64_t monotonicNs, uint64_t wallUs);
  /// Let time pass up to `monotonicNs`, by the wall as well.
  void AdvanceTo(int64_t monotonicNs) { monotonicNs_ = monotonicNs; }
  int64_t MonotonicNs() const { return monotonicNs_; }
  uint64_t WallUs() const { return static_cast<uint64_t>(monotonicNs_ + wallAheadNs_) / 1000; }

  /// What the next reads of each kind are told, in place of what was told before; behind that, simulated time.
  void Tell(const std::vector<ClockRead> &reads);
  int64_t Read(ClockKind kind);

 private:
  struct Told {
    std::vector<int64_t> values;
    size_t next = 0;
  };
  int64_t Simulated(ClockKind kind);

  int64_t monotonicNs_ = 0;
  int64_t wallAheadNs_ = 0;  ///< of the monotonic clock
  rynd::NeverSetBack window_;
  std::array<Told, kClockKinds> told_;
};

}  // namespace replay
