// The daemon's timers on simulated time.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "core/basics/timerRegistry.h"

namespace replay {

class Timers {
 public:
  int Register(const char *name, rynd::TimerCallback callback);
  int Arm(int id, uint32_t periodic, int64_t intervalS, int64_t nowS, int64_t *dueS) {
    return registry_.Arm(id, periodic, intervalS, nowS, dueS);
  }
  /// When the next one is due, in nanoseconds of the monotonic clock; 0 when none is armed.
  int64_t EarliestDueNs() const;
  /// Take one that is due at `nowS`. Null when none is.
  rynd::TimerCallback TakeDue(int64_t nowS) { return registry_.TakeDue(nowS); }
  /// The one called `name`, or null; and what one is called.
  rynd::TimerCallback Find(std::string_view name) const;
  std::string NameOf(rynd::TimerCallback callback) const;

 private:
  struct Named {
    std::string name;
    rynd::TimerCallback callback;
  };
  rynd::TimerRegistry registry_;
  std::vector<Named> named_;
};

}  // namespace replay
