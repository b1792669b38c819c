#include "core/basics/signals.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

namespace rynd {
namespace {

/// Ends by _exit: the tests have other threads, and a root that an exit would remove.
/// Signal this process between the flag's test and the wait. 0 when the wait sees it.
[[noreturn]] void SignalBeforeTheWait(int number, bool stops) {
  BlockSignals();
  if (InstallSignalHandlers() != 0) _exit(1);
  kill(getpid(), number);
  if (StopRequested()) _exit(2);  // blocked until the wait
  pollfd none{-1, POLLIN, 0};
  alarm(20);  // a wait that missed the signal would last for ever
  if (PollWithSignals(&none, 1) != -1 || errno != EINTR) _exit(3);
  _exit(StopRequested() == stops ? 0 : 4);
}

TEST(Signals, OneThatComesBeforeTheWaitIsNotLost) {
  EXPECT_EXIT(SignalBeforeTheWait(SIGTERM, true), testing::ExitedWithCode(0), "");
  EXPECT_EXIT(SignalBeforeTheWait(SIGINT, true), testing::ExitedWithCode(0), "");
  EXPECT_EXIT(SignalBeforeTheWait(SIGPIPE, false), testing::ExitedWithCode(0), "");
}

/// Signal this process while a descriptor is ready at every wait.
[[noreturn]] void SignalDuringAFlood() {
  BlockSignals();
  if (InstallSignalHandlers() != 0) _exit(1);
  int ends[2];
  if (pipe(ends) != 0 || write(ends[1], "x", 1) != 1) _exit(2);
  kill(getpid(), SIGTERM);
  pollfd ready{ends[0], POLLIN, 0};
  for (int i = 0; i < 16 && !StopRequested(); ++i) PollWithSignals(&ready, 1);
  _exit(StopRequested() ? 0 : 3);
}

TEST(Signals, OneIsLetInThoughSomethingIsAlwaysReady) {
  EXPECT_EXIT(SignalDuringAFlood(), testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace rynd
