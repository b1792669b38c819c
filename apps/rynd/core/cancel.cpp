// See cancel.h. These functions are plain on purpose: no destructors, no exception tables, no instrumentation.
#include "core/cancel.h"

#include <cerrno>

#if defined(__clang__)
#define RYND_PLAIN_FUNCTION __attribute__((noinline, disable_sanitizer_instrumentation))
#else
#define RYND_PLAIN_FUNCTION __attribute__((noinline))
#endif

namespace rynd {
RYND_PLAIN_FUNCTION int CancellablePoll(pollfd *set, nfds_t count) {
  int before = 0;
  pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, &before);
  const int result = poll(set, count, -1);
  pthread_setcancelstate(before, nullptr);
  return result;
}

RYND_PLAIN_FUNCTION int CancellableConnect(int fd, const sockaddr *address, socklen_t length) {
  int before = 0;
  pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, &before);
  const int result = connect(fd, address, length);
  pthread_setcancelstate(before, nullptr);
  return result;
}

RYND_PLAIN_FUNCTION ssize_t CancellableSend(int fd, const void *bytes, size_t length, int flags) {
  int before = 0;
  pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, &before);
  const ssize_t result = send(fd, bytes, length, flags);
  pthread_setcancelstate(before, nullptr);
  return result;
}

RYND_PLAIN_FUNCTION int CancellableLock(pthread_mutex_t *mutex) {
  if (pthread_mutex_trylock(mutex) == 0) return 0;
  int before = 0;
  pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, &before);
  const int result = pthread_mutex_lock(mutex);
  pthread_setcancelstate(before, nullptr);
  return result;
}

}  // namespace rynd
