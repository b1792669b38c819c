// SIGINT and SIGTERM as a wish to end, seen at a wait and nowhere else.
#pragma once

#include <csignal>

namespace rynctl {

/// While it lives the two signals are blocked in its thread but in a ppoll with PollMask(); one that came is Wanted().
/// The former dispositions and mask come back when it goes. One at a time in a process.
class StopSignals {
 public:
  StopSignals();
  ~StopSignals();
  StopSignals(const StopSignals &) = delete;
  StopSignals &operator=(const StopSignals &) = delete;

  /// The mask to wait with.
  const sigset_t *PollMask() const { return &pollMask_; }
  /// Whether a signal asked to end since the construction.
  bool Wanted() const;

 private:
  struct sigaction formerInterrupt_ {};
  struct sigaction formerTerminate_ {};
  sigset_t formerMask_{};
  sigset_t pollMask_{};
};

}  // namespace rynctl
