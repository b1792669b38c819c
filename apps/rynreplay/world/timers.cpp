// Stands in for core/basics/timerThread.cpp.
#include "replay/world/timers.h"

#include "core/basics/clock.h"
#include "core/basics/timerThread.h"
#include "replay/world/world.h"

namespace replay {

int Timers::Register(const char *name, rynd::TimerCallback callback) {
  const int id = registry_.Register(callback);
  if (id >= 0) named_.push_back({name, callback});
  return id;
}

int64_t Timers::EarliestDueNs() const {
  return registry_.EarliestDue() * rynd::kNsPerSecond;
}

rynd::TimerCallback Timers::Find(std::string_view name) const {
  for (const Named &timer : named_) {
    if (timer.name == name) return timer.callback;
  }
  return nullptr;
}

std::string Timers::NameOf(rynd::TimerCallback callback) const {
  for (const Named &timer : named_) {
    if (timer.callback == callback) return timer.name;
  }
  return "";
}

}  // namespace replay

namespace rynd {

int StartTimerThread() {
  return 0;
}

int RegisterTimer(const char *name, TimerCallback callback) {
  return replay::TheWorld().timers.Register(name, callback);
}

int ArmTimer(int id, uint32_t periodic, int64_t intervalS, int64_t *dueS) {
  replay::World &world = replay::TheWorld();
  return world.timers.Arm(id, periodic, intervalS, world.clock.MonotonicNs() / kNsPerSecond, dueS);
}

}  // namespace rynd
