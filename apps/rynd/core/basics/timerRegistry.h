// The timers of the daemon, without a thread or a clock: which one is due, and when the next one will be.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace rynd {

using TimerCallback = void (*)();

/// At most 16 timers. Times are whole seconds of the monotonic clock, above 0. Not synchronised: see timerThread.h.
class TimerRegistry {
 public:
  static constexpr size_t kMaxTimers = 16;

  /// Add a disarmed timer. Its identity (from 0), or -1 when 16 are held.
  int Register(TimerCallback callback);

  /// Arm timer `id` to be due `intervalS` seconds after `now`, again and again with `periodic` 1; 0 disarms. `dueS` (or
  /// null) receives the time that it is due, 0 when disarmed. 0, or EINVAL for an unknown timer, a periodic flag above
  /// 1 or a negative interval, when nothing changes.
  int Arm(int id, uint32_t periodic, int64_t intervalS, int64_t now, int64_t *dueS);

  /// Take the first timer, in order of registration, that is due at `now`: re-arm it when it is periodic, else disarm
  /// it. Its callback, or null when none is due.
  TimerCallback TakeDue(int64_t now);

  /// The earliest time that a timer is due, or 0 when none is armed.
  int64_t EarliestDue() const;

 private:
  struct Timer {
    bool periodic = false;
    int64_t intervalS = 0;
    int64_t dueS = 0;  ///< 0: disarmed
    TimerCallback callback = nullptr;
  };
  std::array<Timer, kMaxTimers> timers_;
  size_t count_ = 0;
};

}  // namespace rynd
