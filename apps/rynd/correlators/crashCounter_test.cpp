#include "correlators/crashCounter.h"

#include <gtest/gtest.h>

namespace rynd {
namespace {

TEST(CrashCounter, ForgetsTheQuietestNameOfTooMany) {
  CrashCounter counter;
  EXPECT_EQ(counter.Count("often", 1), 1);
  EXPECT_EQ(counter.Count("once", 2), 1);
  EXPECT_EQ(counter.Count("often", 3), 2);
  for (size_t i = 2; i < CrashCounter::kMaxNames + 1; ++i) counter.Count("n" + std::to_string(i), 4);
  EXPECT_EQ(counter.Names(), CrashCounter::kMaxNames);
  EXPECT_EQ(counter.Count("often", 5), 3);
  EXPECT_EQ(counter.Count("once", 6), 1);  // forgotten
  EXPECT_EQ(counter.Names(), CrashCounter::kMaxNames);
}

}  // namespace
}  // namespace rynd
