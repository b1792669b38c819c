// The thread that runs the callbacks of the daemon's timers, outside of the registry's lock.
#pragma once

#include <cstdint>

#include "core/basics/timerRegistry.h"

namespace rynd {

/// Start the thread. Its timers are never destroyed and it is never joined: it ends with the process. 0 or an errno
/// value.
int StartTimerThread();

/// Register a timer; `callback` runs on the timer thread. `name` is a literal of its own: identities depend on which
/// agent comes first. Its identity, or -1 when 16 are held. Any thread.
int RegisterTimer(const char *name, TimerCallback callback);

/// Arm a timer as TimerRegistry::Arm does, from now on; the thread is woken when it has to look earlier. Any thread,
/// callbacks included.
int ArmTimer(int id, uint32_t periodic, int64_t intervalS, int64_t *dueS = nullptr);

}  // namespace rynd
