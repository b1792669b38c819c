#include "correlators/rows/boundedMap.h"

#include <gtest/gtest.h>

#include "correlators/storage/alarmLimiter.h"

namespace rynd {
namespace {

TEST(BoundedMap, ForgetsWhatHasBeenUnusedLongest) {
  BoundedMap<std::string, int, 3> map;
  for (const char *key : {"a", "b", "c"}) map[key] = 1;
  EXPECT_NE(map.Find("a"), nullptr);  // no use
  EXPECT_EQ(map["b"], 1);
  map["d"] = 2;
  EXPECT_EQ(map.Find("a"), nullptr);
  map["e"] = 5;
  EXPECT_EQ(map.Find("c"), nullptr);
  ASSERT_NE(map.Find("b"), nullptr);
  map.Erase("b");
  map.Erase("b");
  map.ForEach([](int &value) { ++value; });
  EXPECT_EQ(map["d"], 3);
  EXPECT_EQ(map["e"], 6);
  EXPECT_EQ(map.Size(), 2u);
  map.Clear();
  EXPECT_EQ(map.Find("d"), nullptr);
  EXPECT_EQ(map.KeyBytes(), 0u);
}

TEST(BoundedMap, ForgetsWhatCarriesNothingFirst) {
  BoundedMap<uint64_t, int, 4> map;
  map[1] = 1;
  EXPECT_EQ(map[2], 0);
  map[3] = 3;
  EXPECT_EQ(map[4], 0);
  EXPECT_EQ(map[5], 0);
  EXPECT_EQ(map.Find(2), nullptr);
  map[4] = 4;
  for (uint64_t key = 100; key < 1000; ++key) EXPECT_EQ(map[key], 0);
  for (const int key : {1, 3, 4}) ASSERT_NE(map.Find(static_cast<uint64_t>(key)), nullptr) << key;
  map[6] = 6;
  // What is emptied takes its place among the empty ones by its last use, not by when it was emptied.
  map.ForEach([](int &value) { value = value == 4 || value == 3 ? 0 : value; });
  map[7] = 7;
  EXPECT_EQ(map.Find(3), nullptr);
  map[4] = 0;
  map[8] = 8;
  EXPECT_EQ(map.Find(4), nullptr);
  map[9] = 9;
  EXPECT_EQ(map.Find(1), nullptr) << "the oldest, when all carry something";
  EXPECT_EQ(map.Size(), 4u);
}

TEST(BoundedMap, BoundsTheBytesOfItsKeysToo) {
  BoundedMap<std::string, int, 100, 10> map;
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

}  // namespace
}  // namespace rynd
