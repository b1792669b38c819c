#include "core/basics/timerRegistry.h"

#include <cerrno>

namespace rynd {

int TimerRegistry::Register(TimerCallback callback) {
  if (count_ == timers_.size()) return -1;
  timers_[count_].callback = callback;
  return static_cast<int>(count_++);
}

int TimerRegistry::Arm(int id, uint32_t periodic, int64_t intervalS, int64_t now, int64_t *dueS) {
  if (id < 0 || static_cast<size_t>(id) >= count_ || periodic > 1 || intervalS < 0) return EINVAL;
  Timer &timer = timers_[static_cast<size_t>(id)];
  timer.periodic = periodic == 1;
  timer.intervalS = intervalS;
  timer.dueS = intervalS == 0 ? 0 : now + intervalS;
  if (dueS != nullptr) *dueS = timer.dueS;
  return 0;
}

TimerCallback TimerRegistry::TakeDue(int64_t now) {
  for (size_t i = 0; i < count_; ++i) {
    Timer &timer = timers_[i];
    if (timer.dueS == 0 || timer.dueS > now) continue;
    if (timer.periodic) {
      timer.dueS = now + timer.intervalS;
    } else {
      timer.dueS = 0;
      timer.intervalS = 0;
    }
    return timer.callback;
  }
  return nullptr;
}

int64_t TimerRegistry::EarliestDue() const {
  int64_t earliest = 0;
  for (size_t i = 0; i < count_; ++i) {
    if (timers_[i].dueS != 0 && (earliest == 0 || timers_[i].dueS < earliest)) earliest = timers_[i].dueS;
  }
  return earliest;
}

}  // namespace rynd
