#include "correlators/user/crashCounter.h"

#include <gtest/gtest.h>

#include <string>

namespace rynd {
namespace {

TEST(CrashCounter, ForgetsTheNameThatCrashedLongestAgo) {
  CrashCounter counter;
  EXPECT_EQ(counter.Count("often", 1), 1);
  EXPECT_EQ(counter.Count("once", 2), 1);
  EXPECT_EQ(counter.Count("often", 3), 2);
  for (size_t i = 2; i < kMostMapEntries + 1; ++i) counter.Count("n" + std::to_string(i), 4);
  EXPECT_EQ(counter.Names(), kMostMapEntries);
  EXPECT_EQ(counter.Count("often", 5), 3);
  EXPECT_EQ(counter.Count("once", 6), 1);  // forgotten
  EXPECT_EQ(counter.Names(), kMostMapEntries);
  // Two new programs crash in turn after the clock was set back.
  for (int count = 1; count < 4; ++count) {
    EXPECT_EQ(counter.Count("one", 0), count);
    EXPECT_EQ(counter.Count("other", 0), count);
  }
}

}  // namespace
}  // namespace rynd
