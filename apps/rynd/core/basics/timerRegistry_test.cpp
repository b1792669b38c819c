#include "core/basics/timerRegistry.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "core/basics/timerThread.h"

namespace rynd {
namespace {

void First() {}
void Second() {}

TEST(TimerRegistry, HoldsSixteenTimersAndRefusesWhatItCannotArm) {
  TimerRegistry timers;
  for (int i = 0; i < 16; ++i) EXPECT_EQ(timers.Register(First), i);
  EXPECT_EQ(timers.Register(First), -1);
  ASSERT_EQ(timers.Arm(0, 1, 5, 100, nullptr), 0);
  int64_t due = -7;
  EXPECT_EQ(timers.Arm(16, 0, 1, 100, &due), EINVAL);
  EXPECT_EQ(timers.Arm(-1, 0, 1, 100, &due), EINVAL);
  EXPECT_EQ(timers.Arm(0, 2, 9, 100, &due), EINVAL);
  EXPECT_EQ(timers.Arm(0, 0, -1, 100, &due), EINVAL);
  EXPECT_EQ(due, -7);
  EXPECT_EQ(timers.EarliestDue(), 105);
}

TEST(TimerRegistry, OneShotDisarmsItselfAndPeriodicGoesOnFromNow) {
  TimerRegistry timers;
  const int once = timers.Register(First);
  const int again = timers.Register(Second);
  int64_t due = 0;
  ASSERT_EQ(timers.Arm(once, 0, 10, 100, &due), 0);
  EXPECT_EQ(due, 110);
  ASSERT_EQ(timers.Arm(again, 1, 3, 100, &due), 0);
  EXPECT_EQ(timers.TakeDue(102), nullptr);
  EXPECT_EQ(timers.TakeDue(107), Second);  // late by four seconds
  EXPECT_EQ(timers.EarliestDue(), 110);    // both: 107 + 3, and the one-shot
  EXPECT_EQ(timers.TakeDue(110), First);   // first in order of registration
  EXPECT_EQ(timers.TakeDue(110), Second);
  EXPECT_EQ(timers.EarliestDue(), 113);
  EXPECT_EQ(timers.TakeDue(500), Second);  // late: once, not once each three seconds
  EXPECT_EQ(timers.TakeDue(500), nullptr);
  ASSERT_EQ(timers.Arm(again, 1, 0, 110, &due), 0);
  EXPECT_EQ(due, 0);
  EXPECT_EQ(timers.EarliestDue(), 0);
  EXPECT_EQ(timers.TakeDue(1'000'000), nullptr);
}

std::atomic<int> calls = 0;
std::atomic<int> timerOfCallback = -1;

TEST(TimerThread, ArmingWakesTheThreadAlsoFromACallback) {
  ASSERT_EQ(StartTimerThread(), 0);
  const int later = RegisterTimer("later", [] { ++calls; });
  timerOfCallback = RegisterTimer("again", [] {
    if (++calls == 1) ArmTimer(timerOfCallback, 0, 1);  // re-arming from a callback must not meet its own lock
  });
  ASSERT_EQ(ArmTimer(later, 0, 3600), 0);  // the thread now waits for an hour
  ASSERT_EQ(ArmTimer(timerOfCallback, 0, 1), 0);
  for (int i = 0; i < 20'000 && calls < 2; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  EXPECT_EQ(calls, 2);
}

}  // namespace
}  // namespace rynd
