#include "core/basics/signals.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

namespace rynd {
namespace {

/// Signal this process between the flag's test and the wait, which is for nothing or always finds something `ready`.
/// Ends with 0 when the wait sees it. By _exit: the tests have other threads, and a root that an exit would remove.
[[noreturn]] void SignalBeforeTheWait(int number, bool stops, bool ready = false) {
  int ends[2];
  BlockSignals();
  if (InstallSignalHandlers() != 0 || pipe(ends) != 0 || (ready && write(ends[1], "x", 1) != 1)) _exit(1);
  kill(getpid(), number);
  if (StopRequested()) _exit(2);  // blocked until the wait
  pollfd set{ends[0], POLLIN, 0};
  alarm(20);  // a wait that missed the signal would last for ever
  if (!ready && (PollWithSignals(&set, 1) != -1 || errno != EINTR)) _exit(3);
  for (int i = 0; ready && i < 16 && !StopRequested(); ++i) PollWithSignals(&set, 1);
  _exit(StopRequested() == stops ? 0 : 4);
}

TEST(Signals, OneThatComesBeforeTheWaitIsNotLost) {
  EXPECT_EXIT(SignalBeforeTheWait(SIGTERM, true), testing::ExitedWithCode(0), "");
  EXPECT_EXIT(SignalBeforeTheWait(SIGINT, true), testing::ExitedWithCode(0), "");
  EXPECT_EXIT(SignalBeforeTheWait(SIGPIPE, false), testing::ExitedWithCode(0), "");
}

TEST(Signals, OneIsLetInThoughSomethingIsAlwaysReady) {
  EXPECT_EXIT(SignalBeforeTheWait(SIGTERM, true, true), testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace rynd
