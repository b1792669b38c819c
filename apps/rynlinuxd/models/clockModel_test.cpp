// The clock, on a clock of the test's.
#include "models/clockModel.h"

#include <gtest/gtest.h>

#include "models/recorder.h"

namespace rynlinuxd {
namespace {

constexpr int64_t kSecond = 1'000'000'000;

TEST(ClockState, EachWayToLoseItIsToldAsWhatItIs) {
  Recorder told;
  ClockModel model(&told);
  const ClockReading synced{true, 1000, 50, 7}, unsynced{false, 1000, 51, 8}, lost{false, 16'000'000, 52, 9};
  model.Take(synced, 0);
  EXPECT_EQ(told.Take(), "") << "how it was found";
  model.Take(unsynced, kSecond);
  model.Take(unsynced, 2 * kSecond);
  model.Take(lost, 3 * kSecond);
  model.Take(synced, 4 * kSecond);
  model.Stepped(5 * kSecond);
  model.Take(unsynced, 5 * kSecond + 1);
  model.Take(synced, 6 * kSecond);
  model.Stepped(7 * kSecond);  // a step that costs nothing
  model.Take(synced, 7 * kSecond);
  model.Take(lost, 20 * kSecond);
  EXPECT_EQ(told.Take(),
            "clock.correction.adjtime.unsync\nclock.correction.adjtime.sync\nclock.correction.step.unsync 51 8\n"
            "clock.correction.adjtime.sync\nclock.correction.adjtime.lostsync\n");
  told.ledger.MarkStale();
  model.Retell();
  EXPECT_EQ(told.Take(), "clock.correction.adjtime.lostsync\n");
}

TEST(ClockState, OneThatNeverWasInSyncLosesNothing) {
  Recorder told;
  {
    ClockModel model(&told);
    model.Take({false, 16'000'000, 1, 1}, 0);
    model.Stepped(kSecond);
    model.Take({false, 16'000'000, 1, 1}, kSecond);
    told.ledger.MarkStale();
    model.Retell();
    EXPECT_EQ(told.Take(), "");
    model.Take({true, 5, 1, 1}, 3 * kSecond);
    EXPECT_EQ(told.Take(), "clock.correction.adjtime.sync\n");
  }
  ClockModel next(&told);  // another run, which finds it lost
  next.Take({false, 16'000'000, 1, 1}, 0);
  EXPECT_EQ(told.Take(), "clock.correction.adjtime.lostsync\n");
}

}  // namespace
}  // namespace rynlinuxd
