#include "core/signals.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>

namespace rynd {
namespace {

/// Signal this process between the flag's test and the wait. 0 when the wait sees it.
[[noreturn]] void SignalBeforeTheWait(int number, bool stops) {
  BlockSignals();
  if (InstallSignalHandlers() != 0) exit(1);
  kill(getpid(), number);
  if (StopRequested()) exit(2);  // blocked until the wait
  pollfd none{-1, POLLIN, 0};
  alarm(20);  // a wait that missed the signal would last for ever
  if (PollWithSignals(&none, 1) != -1 || errno != EINTR) exit(3);
  exit(StopRequested() == stops ? 0 : 4);
}

TEST(Signals, OneThatComesBeforeTheWaitIsNotLost) {
  EXPECT_EXIT(SignalBeforeTheWait(SIGTERM, true), testing::ExitedWithCode(0), "");
  EXPECT_EXIT(SignalBeforeTheWait(SIGINT, true), testing::ExitedWithCode(0), "");
  EXPECT_EXIT(SignalBeforeTheWait(SIGPIPE, false), testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace rynd
