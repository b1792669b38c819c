// The wall clock, as correlators are told the time. Any thread.
#pragma once

#include <sys/time.h>

#include <cstdint>

namespace rynd {

/// Whole seconds since the epoch.
inline int64_t WallClockS() {
  timeval now{};
  gettimeofday(&now, nullptr);
  return now.tv_sec;
}

}  // namespace rynd
