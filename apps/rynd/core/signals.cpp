#include "core/signals.h"

#include <csignal>

#include <atomic>
#include <cerrno>

namespace rynd {
namespace {

constexpr int kHandledSignals[] = {SIGTERM, SIGINT, SIGPIPE};

std::atomic<bool> stopRequested = false;
static_assert(std::atomic<bool>::is_always_lock_free, "a signal handler stores it");

void OnSignal(int number) {
  if (number != SIGPIPE) stopRequested = true;
}

sigset_t HandledSignals() {
  sigset_t set;
  sigemptyset(&set);
  for (const int number : kHandledSignals) sigaddset(&set, number);
  return set;
}

/// The mask of the calling thread without the handled signals.
sigset_t WaitMask() {
  sigset_t mask;
  pthread_sigmask(SIG_SETMASK, nullptr, &mask);
  for (const int number : kHandledSignals) sigdelset(&mask, number);
  return mask;
}

}  // namespace

void BlockSignals() {
  const sigset_t handled = HandledSignals();
  pthread_sigmask(SIG_BLOCK, &handled, nullptr);
}

int InstallSignalHandlers() {
  for (const int number : kHandledSignals) {
    struct sigaction action {};
    action.sa_handler = OnSignal;
    sigemptyset(&action.sa_mask);
    if (sigaction(number, &action, nullptr) != 0 && errno != 0) return errno;
  }
  return 0;
}

bool StopRequested() {
  return stopRequested;
}

int PollWithSignals(pollfd *set, nfds_t count) {
  static const sigset_t mask = WaitMask();
  return ppoll(set, count, nullptr, &mask);
}

}  // namespace rynd
