// The clock for real: its state is changed by a step of nothing and put back at once; nobody's time is.
#include <gtest/gtest.h>
#include <sys/timex.h>

#include <csignal>

#include "testing/linux/linuxHost.h"

namespace testing_support {
namespace {

/// The kernel's clock as it was, at the end.
class ClockKeeper {
 public:
  ClockKeeper() { adjtimex(&was_); }
  ~ClockKeeper() {
    was_.modes = ADJ_STATUS | ADJ_MAXERROR | ADJ_ESTERROR;
    adjtimex(&was_);
  }
  static bool Set(bool isSynced, long maxErrorUs) {
    timex state{};
    if (adjtimex(&state) < 0) return false;
    state.modes = ADJ_STATUS | ADJ_MAXERROR;
    state.status = (state.status & ~STA_UNSYNC) | (isSynced ? 0 : STA_UNSYNC);
    state.maxerror = maxErrorUs;
    return adjtimex(&state) >= 0;
  }
  /// Set the clock to a microsecond later, which is what it costs to be set at all.
  static bool Step() {
    timex step{};
    step.modes = ADJ_SETOFFSET | ADJ_MICRO;
    step.time.tv_usec = 1;
    return adjtimex(&step) >= 0;
  }

 private:
  timex was_{};
};

TEST(LinuxClock, EachLossOfSynchronizationIsTold) {
  ENTER_NAMESPACES();
  const ClockKeeper keeper;
  if (!ClockKeeper::Set(false, 1000)) GTEST_SKIP() << "the clock may not be set here";
  LinuxHost host({"--sources", "clock"});
  WriteFile(host.Root() / "/var/lib/corvane/host/sysinfo/system/ntpclock/rynReportInterval", "0\n");
  host.EndDaemon(SIGTERM);
  host.StartDaemon();
  // Never in time: neither a step nor a larger error loses anything.
  ASSERT_TRUE(ClockKeeper::Step() && ClockKeeper::Set(false, 16'000'000));
  Pause(2.5);
  EXPECT_EQ(host.All(), "");
  ASSERT_TRUE(ClockKeeper::Set(true, 1000));
  EXPECT_TRUE(host.Tells("clock.correction.adjtime.sync"));
  ASSERT_TRUE(ClockKeeper::Step());
  EXPECT_TRUE(host.Tells("clock.correction.step.unsync system clock stepped to 1"));
  ASSERT_TRUE(ClockKeeper::Set(true, 1000));
  EXPECT_TRUE(host.Tells("clock.correction.adjtime.sync", 2));
  Pause(2.5);
  ASSERT_TRUE(ClockKeeper::Set(false, 1000));
  EXPECT_TRUE(host.Tells("clock.correction.adjtime.unsync"));
  ASSERT_TRUE(ClockKeeper::Set(true, 1000));
  EXPECT_TRUE(host.Tells("clock.correction.adjtime.sync", 3));
  Pause(2.5);
  // The kernel's own: an error that has grown too large.
  ASSERT_TRUE(ClockKeeper::Set(true, 16'000'000));
  EXPECT_TRUE(host.Tells("clock.correction.adjtime.lostsync"));
  EXPECT_EQ(host.Events().size(), 6u) << host.All();
}

}  // namespace
}  // namespace testing_support
