#include <gtest/gtest.h>

#include "correlators/correlators.h"
#include "testing/postedEvents.h"

namespace rynd {
namespace {

using Events = std::vector<std::string>;

TEST(ApdCorrelator, PostsEachStepOfADevice) {
  EXPECT_EQ(
      EventsOf(ApdHandlers(), "ryn.storage.apd.start", {Str("naa.1")}),
      Events{"amb.problem.storage.apd.start Device or filesystem with identifier [naa.1] has entered the All Paths "
             "Down state."});
  EXPECT_EQ(EventsOf(ApdHandlers(), "ryn.storage.apd.timeout", {Str("naa.1"), Int(140)}),
            Events{"amb.problem.storage.apd.timeout Device or filesystem with identifier [naa.1] has entered the All "
                   "Paths Down Timeout state after being in the All Paths Down state for 140 seconds. I/Os will now be "
                   "fast failed."});
  EXPECT_EQ(EventsOf(ApdHandlers(), "ryn.storage.apd.exit", {Str("naa.1")}),
            Events{"amb.clear.storage.apd.exit Device or filesystem with identifier [naa.1] has exited the All Paths "
                   "Down state."});
  EXPECT_EQ(EventsOf(ApdHandlers(), "ryn.storage.apd.timeout", {Str("naa.1")}), Events{});
}

}  // namespace
}  // namespace rynd
