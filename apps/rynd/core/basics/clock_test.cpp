#include "core/basics/clock.h"

#include <gtest/gtest.h>

#include <chrono>

namespace rynd {
namespace {

TEST(NeverSetBack, FollowsStepsForwardAndGoesOnThroughStepsBack) {
  constexpr int64_t kWall = 1'700'000'000;
  for (const int64_t stepS : {1, 59, 60, 3600, 86'400}) {
    int64_t wallS = kWall;
    NeverSetBack clock;
    const auto now = [&](int64_t monotonicS) {
      return clock.NowS((wallS + monotonicS) * kNsPerSecond, monotonicS * kNsPerSecond);
    };
    EXPECT_EQ(now(5), kWall + 5);
    wallS -= stepS;
    EXPECT_EQ(now(6), kWall + 6) << "no window lasts longer than it says";
    EXPECT_EQ(now(5000), kWall + 5000) << "and none ends early";
    wallS += 2 * stepS;
    EXPECT_EQ(now(5001), kWall + 5001 + stepS);
    wallS -= stepS;  // put right again
    EXPECT_EQ(now(5061), kWall + 5061 + stepS);
  }
}

TEST(Clock, NeverLagsBehindTheClocksThatWaitsGoBy) {
  using std::chrono::duration_cast;
  for (int i = 0; i < 20'000; ++i) {
    const auto monotonic = std::chrono::steady_clock::now().time_since_epoch();
    const auto wall = std::chrono::system_clock::now().time_since_epoch();
    ASSERT_GE(MonotonicNs(), duration_cast<std::chrono::nanoseconds>(monotonic).count());
    ASSERT_GE(WallClockUs(), static_cast<uint64_t>(duration_cast<std::chrono::microseconds>(wall).count()));
    const int64_t wallS = duration_cast<std::chrono::seconds>(wall).count();
    ASSERT_GE(WallClockS(), wallS);
    ASSERT_GE(WindowClockS(), wallS);
  }
}

}  // namespace
}  // namespace rynd
