// The clocks that this program reads. Any thread.
#pragma once

#include <cstdint>
#include <ctime>

namespace rynlinuxd {

inline timespec ReadClock(clockid_t clock) {
  timespec now{};
  clock_gettime(clock, &now);
  return now;
}
/// Nanoseconds that nobody sets, for intervals.
inline int64_t MonotonicNs() {
  const timespec now = ReadClock(CLOCK_MONOTONIC);
  return int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}
/// Seconds since the boot, at least 1.
inline int64_t BootClockS() {
  return int64_t{ReadClock(CLOCK_BOOTTIME).tv_sec} + 1;
}
inline uint64_t WallClockUs() {
  const timespec now = ReadClock(CLOCK_REALTIME);
  return static_cast<uint64_t>(now.tv_sec) * 1'000'000 + static_cast<uint64_t>(now.tv_nsec) / 1000;
}

}  // namespace rynlinuxd
