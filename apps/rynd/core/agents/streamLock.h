// The stream lock. Taken by the poll loop's thread for each fan-out and by agents that open or close their stream.
#pragma once

#include <pthread.h>

#include "core/basics/threadAnnotations.h"

namespace rynd {

/// Guards the stream list and every fan-out. Taking or releasing it can only fail fatally.
class CAPABILITY("mutex") StreamLock {
 public:
  /// Initialise the lock. 0 or an errno value.
  int Init();
  void Acquire() ACQUIRE();
  /// True when it was free and is now held.
  bool TryAcquire() TRY_ACQUIRE(true);
  void Release() RELEASE();

 private:
  pthread_mutex_t mutex_ = PTHREAD_MUTEX_INITIALIZER;
};

/// The one lock of this kind; the trace feed's lock is taken inside of it, never the other way.
extern StreamLock streamLock;

}  // namespace rynd
