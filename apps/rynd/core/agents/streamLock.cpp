#include "core/agents/streamLock.h"

#include <cstring>

#include "core/basics/log.h"

namespace rynd {

StreamLock streamLock;

int StreamLock::Init() {
  pthread_mutexattr_t attributes;
  int status = pthread_mutexattr_init(&attributes);
  if (status != 0) return status;
  pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_ERRORCHECK);
  status = pthread_mutex_init(&mutex_, &attributes);
  pthread_mutexattr_destroy(&attributes);
  return status;
}

void StreamLock::Acquire() NO_THREAD_SAFETY_ANALYSIS {
  const int status = pthread_mutex_lock(&mutex_);
  if (status != 0) Panic("Failed to acquire stream lock: %s\n", strerror(status));
}

bool StreamLock::TryAcquire() NO_THREAD_SAFETY_ANALYSIS {
  return pthread_mutex_trylock(&mutex_) == 0;
}

void StreamLock::Release() NO_THREAD_SAFETY_ANALYSIS {
  const int status = pthread_mutex_unlock(&mutex_);
  if (status != 0) Panic("Failed to release stream lock: %s\n", strerror(status));
}

}  // namespace rynd
