#include "core/basics/signals.h"

#include <csignal>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <ctime>
#include <iterator>

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

/// Deliver a handled signal that is pending, if one is.
void LetPendingSignalIn(const sigset_t &waitMask) {
  sigset_t pending;
  sigpending(&pending);
  const auto isPending = [&](int number) { return sigismember(&pending, number) == 1; };
  if (std::none_of(std::begin(kHandledSignals), std::end(kHandledSignals), isPending)) return;
  constexpr timespec kNow{};
  ppoll(nullptr, 0, &kNow, &waitMask);
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
  // A signal that is pending when something is ready already is not delivered: the kernel puts the mask back first. To
  // look for one every time would cost a system call a record.
  constexpr int kReadyTimesPerLook = 16;
  static const sigset_t mask = WaitMask();
  static int readyTimes = 0;
  const int ready = ppoll(set, count, nullptr, &mask);
  if (ready > 0 && ++readyTimes >= kReadyTimesPerLook) {
    readyTimes = 0;
    LetPendingSignalIn(mask);
  }
  return ready;
}

}  // namespace rynd
