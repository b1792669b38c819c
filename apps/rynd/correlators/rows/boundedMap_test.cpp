#include "correlators/rows/boundedMap.h"

#include <gtest/gtest.h>

#include "correlators/storage/alarmLimiter.h"

namespace rynd {
namespace {

TEST(BoundedMap, ForgetsWhatHasBeenUnusedLongest) {
  BoundedMap<int, 3> map;
  for (const char *key : {"a", "b", "c"}) map[key] = 1;
  EXPECT_NE(map.Find("a"), nullptr);  // no use
  EXPECT_EQ(map["b"], 1);
  EXPECT_EQ(map["d"], 0);
  EXPECT_EQ(map.Find("a"), nullptr);
  map["e"] = 5;
  EXPECT_EQ(map.Find("c"), nullptr);
  ASSERT_NE(map.Find("b"), nullptr);
  map.Erase("b");
  map.Erase("b");
  map.ForEach([](int &value) { ++value; });
  EXPECT_EQ(map["d"], 1);
  EXPECT_EQ(map["e"], 6);
  EXPECT_EQ(map.Size(), 2u);
  map.Clear();
  EXPECT_EQ(map.Find("d"), nullptr);
  EXPECT_EQ(map.KeyBytes(), 0u);
}

TEST(BoundedMap, BoundsTheBytesOfItsKeysToo) {
  BoundedMap<int, 100, 10> map;
  map["1234"] = 1;
  map["5678"] = 2;
  map["90"] = 3;
  EXPECT_EQ(map.Size(), 3u);
  map["x"] = 4;
  EXPECT_EQ(map.Find("1234"), nullptr);
  EXPECT_EQ(map.KeyBytes(), 7u);
  map["a key that is longer than all may be"] = 5;  // it stands alone
  EXPECT_EQ(map.Size(), 1u);
  map[""] = 6;
  EXPECT_EQ(map.Size(), 1u);
  EXPECT_EQ(map[""], 6);
}

TEST(AlarmLimiter, RepeatsAnAlarmAfterMoreThan300Seconds) {
  AlarmLimiter limiter;
  EXPECT_TRUE(limiter.Pass("a", 1'000'000));
  EXPECT_TRUE(limiter.Pass("b", 1'000'001));
  EXPECT_TRUE(limiter.Pass("", 1'000'001));
  EXPECT_FALSE(limiter.Pass("a", 1'000'200));
  EXPECT_FALSE(limiter.Pass("a", 1'000'300));
  EXPECT_TRUE(limiter.Pass("a", 1'000'301));
  EXPECT_FALSE(limiter.Pass("a", 1'000'601)) << "counted from the last alarm, not from the first";
  EXPECT_FALSE(AlarmLimiter().Pass("a", 300)) << "an unknown key counts as alarmed at 0";
  EXPECT_TRUE(AlarmLimiter().Pass("a", 301));
}

TEST(AlarmLimiter, StaysBoundedWhateverTheNames) {
  AlarmLimiter limiter;
  for (int i = 0; i < 100'000; ++i) EXPECT_TRUE(limiter.Pass("name " + std::to_string(i), 1'000'000));
  EXPECT_EQ(limiter.Size(), kMostMapEntries);
  EXPECT_FALSE(limiter.Pass("name 99999", 1'000'001));
  EXPECT_FALSE(limiter.Pass("name " + std::to_string(100'000 - kMostMapEntries), 1'000'001));
  EXPECT_TRUE(limiter.Pass("name 0", 1'000'001)) << "the oldest counts as new";
}

}  // namespace
}  // namespace rynd
