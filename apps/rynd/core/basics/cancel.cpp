// See cancel.h. These functions are plain on purpose: no destructors, no exception tables, no instrumentation.
#include "core/basics/cancel.h"

#include <atomic>
#include <cerrno>

#if defined(__clang__)
#define RYND_PLAIN __attribute__((disable_sanitizer_instrumentation))
#else
#define RYND_PLAIN
#endif

namespace rynd {
namespace {

std::atomic<bool> cancelling = false;

/// Enable cancellation. The state before.
RYND_PLAIN __attribute__((always_inline)) inline int Enter() {
  int before = 0;
  pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, &before);
  return before;
}

/// Go back to the state before; an agent that may have been cancelled meanwhile waits for that instead.
RYND_PLAIN __attribute__((always_inline)) inline void Leave(int before) {
  pthread_setcancelstate(before, nullptr);
  // Pairs with BeginCancelling(): either the canceller finds the state disabled, or this finds it cancelling.
  std::atomic_thread_fence(std::memory_order_seq_cst);
  if (before == PTHREAD_CANCEL_ENABLE || !cancelling.load(std::memory_order_relaxed)) return;
  pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, nullptr);
  for (;;) poll(nullptr, 0, -1);
}

}  // namespace

void BeginCancelling() {
  cancelling = true;
  std::atomic_thread_fence(std::memory_order_seq_cst);
}

void EndCancelling() {
  cancelling = false;
}

RYND_PLAIN __attribute__((noinline)) int CancellablePoll(pollfd *set, nfds_t count) {
  const int before = Enter();
  const int result = poll(set, count, -1);
  Leave(before);
  return result;
}

RYND_PLAIN __attribute__((noinline)) int CancellableConnect(int fd, const sockaddr *address, socklen_t length) {
  const int before = Enter();
  const int result = connect(fd, address, length);
  Leave(before);
  return result;
}

RYND_PLAIN __attribute__((noinline)) ssize_t CancellableSend(int fd, const void *bytes, size_t length, int flags) {
  const int before = Enter();
  const ssize_t result = send(fd, bytes, length, flags);
  Leave(before);
  return result;
}

RYND_PLAIN __attribute__((noinline)) int CancellableLock(pthread_mutex_t *mutex) {
  if (pthread_mutex_trylock(mutex) == 0) return 0;
  const int before = Enter();
  const int result = pthread_mutex_lock(mutex);
  Leave(before);
  return result;
}

}  // namespace rynd
