// See cancel.h. These functions are plain on purpose: no destructors, no exception tables, no instrumentation; and bare
// system calls, as a library that looks on from inside of its own poll() or send() would be torn as well.
#include "core/basics/cancel.h"

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <climits>

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
  for (;;) syscall(SYS_ppoll, nullptr, 0, nullptr, nullptr, 0);
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
  const long result = syscall(SYS_ppoll, set, count, nullptr, nullptr, 0);
  Leave(before);
  return static_cast<int>(result);
}

RYND_PLAIN __attribute__((noinline)) int CancellableConnect(int fd, const sockaddr *address, socklen_t length) {
  const int before = Enter();
  const long result = syscall(SYS_connect, fd, address, length);
  Leave(before);
  return static_cast<int>(result);
}

RYND_PLAIN __attribute__((noinline)) ssize_t CancellableSend(int fd, const void *bytes, size_t length, int flags) {
  const int before = Enter();
  const long result = syscall(SYS_sendto, fd, bytes, length, flags, nullptr, 0);
  Leave(before);
  return result;
}

namespace {

/// Wait while `*word` is `value`.
RYND_PLAIN __attribute__((noinline)) void CancellableWait(const std::atomic<uint32_t> *word, uint32_t value) {
  const int before = Enter();
  syscall(SYS_futex, word, FUTEX_WAIT_PRIVATE, value, nullptr, nullptr, 0);
  Leave(before);
}

}  // namespace

bool CancellableMutex::TryLock() {
  uint32_t seen = kFree;
  return state_.compare_exchange_strong(seen, kHeld, std::memory_order_acquire);
}

void CancellableMutex::Lock() {
  if (TryLock()) return;
  while (state_.exchange(kAwaited, std::memory_order_acquire) != kFree) CancellableWait(&state_, kAwaited);
}

void CancellableMutex::Unlock() {
  if (state_.exchange(kFree, std::memory_order_release) != kAwaited) return;
  // One that was woken may be cancelled instead of going on: then everybody is.
  syscall(SYS_futex, &state_, FUTEX_WAKE_PRIVATE, cancelling ? INT_MAX : 1, nullptr, nullptr, 0);
}

}  // namespace rynd
