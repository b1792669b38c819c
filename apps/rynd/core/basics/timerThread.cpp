#include "core/basics/timerThread.h"

#include <pthread.h>

#include <algorithm>
#include <array>

#include "base/immortal.h"
#include "core/basics/cause.h"
#include "core/basics/clock.h"
#include "core/basics/conditionVariable.h"
#include "core/basics/statistics.h"
#include "platform/flight.h"
#include "platform/system.h"

namespace rynd {
namespace {

/// The agent that registered a timer: what its callback does is counted for it.
struct Owner {
  const char *name = "";
  TimerCallback callback = nullptr;
  AgentStatistics *agent = nullptr;
};

struct Timers {
  Mutex mutex;  ///< never held around a callback, nor inside of another lock
  ConditionVariable changed;
  TimerRegistry registry GUARDED_BY(mutex);
  /// Whose each timer is, by its identity.
  std::array<Owner, TimerRegistry::kMaxTimers> owners GUARDED_BY(mutex){};
};

Timers &AllTimers() {
  static base::Immortal<Timers> timers;
  return *timers;
}

/// What timers are told: a clock that nobody sets, so that an interval is one whatever happens to the wall clock.
int64_t NowS() {
  return UnrecordedNs() / kNsPerSecond;
}

/// Wait for the next timer that is due and take it.
Owner WaitForDue() {
  Timers &timers = AllTimers();
  MutexLock lock(timers.mutex);
  for (;;) {
    if (const TimerCallback callback = timers.registry.TakeDue(NowS()); callback != nullptr) {
      return *std::find_if(timers.owners.begin(), timers.owners.end(),
                           [&](const Owner &owner) { return owner.callback == callback; });
    }
    const int64_t earliest = timers.registry.EarliestDue();
    if (earliest == 0) {
      timers.changed.Wait(timers.mutex);
    } else {
      timers.changed.WaitUntil(timers.mutex, earliest * kNsPerSecond);
    }
  }
}

void *RunTimers(void *) {
  Hyk_SetThreadName("TimerThread");
  for (;;) {
    const Owner due = WaitForDue();
    SetCurrentAgentStatistics(due.agent);
    const CauseScope cause({nullptr, 0, "timer"});
    Hyk_RecordTimer(due.name);
    due.callback();
    Hyk_RecordTimerDone();
  }
}

}  // namespace

int StartTimerThread() {
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
  pthread_t thread;
  const int status = pthread_create(&thread, &attributes, RunTimers, nullptr);
  pthread_attr_destroy(&attributes);
  return status;
}

int RegisterTimer(const char *name, TimerCallback callback) {
  Timers &timers = AllTimers();
  MutexLock lock(timers.mutex);
  const int id = timers.registry.Register(callback);
  if (id >= 0) timers.owners[static_cast<size_t>(id)] = {name, callback, CurrentAgentStatistics()};
  return id;
}

int ArmTimer(int id, uint32_t periodic, int64_t intervalS, int64_t *dueS) {
  Timers &timers = AllTimers();
  MutexLock lock(timers.mutex);
  const int64_t before = timers.registry.EarliestDue();
  const int status = timers.registry.Arm(id, periodic, intervalS, NowS(), dueS);
  // For an earlier time only: a thread that wakes for one that has been put off looks again.
  const int64_t after = timers.registry.EarliestDue();
  if (after != 0 && (before == 0 || after < before)) timers.changed.NotifyOne();
  return status;
}

}  // namespace rynd
