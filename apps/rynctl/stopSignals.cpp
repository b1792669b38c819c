// The handler only notes the signal; the wait that it interrupts looks at the note.
#include "rynctl/stopSignals.h"

#include <pthread.h>

#include <atomic>

namespace rynctl {
namespace {

std::atomic<bool> stopWanted{false};
static_assert(std::atomic<bool>::is_always_lock_free);  // or a signal handler may not touch it

void OnStopSignal(int) {
  stopWanted = true;
}

}  // namespace

StopSignals::StopSignals() {
  stopWanted = false;
  sigset_t both;
  sigemptyset(&both);
  sigaddset(&both, SIGINT);
  sigaddset(&both, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &both, &formerMask_);
  pollMask_ = formerMask_;
  sigdelset(&pollMask_, SIGINT);
  sigdelset(&pollMask_, SIGTERM);

  struct sigaction action {};
  action.sa_handler = OnStopSignal;
  sigaction(SIGINT, &action, &formerInterrupt_);
  sigaction(SIGTERM, &action, &formerTerminate_);
}

StopSignals::~StopSignals() {
  // In this order: one that is still pending has been seen, and must not end the process now.
  pthread_sigmask(SIG_SETMASK, &formerMask_, nullptr);
  sigaction(SIGINT, &formerInterrupt_, nullptr);
  sigaction(SIGTERM, &formerTerminate_, nullptr);
}

bool StopSignals::Wanted() const {
  if (stopWanted) return true;
  sigset_t pending;
  sigpending(&pending);
  return sigismember(&pending, SIGINT) == 1 || sigismember(&pending, SIGTERM) == 1;
}

}  // namespace rynctl
