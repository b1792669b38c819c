#include "correlators/hardware/ryndPageRetireCorrelator.h"

#include <gtest/gtest.h>

#include <ctime>
#include <filesystem>

#include "correlators/hardware/hardwareCorrelators.h"
#include "correlators/hardware/retirementReports.h"
#include "testing/coreSupport.h"
#include "testing/postedEvents.h"
#include "testing/testRoot.h"

namespace rynd {
namespace {

using Events = std::vector<std::string>;

TEST(RetirementReports, FollowTheThresholdAndItsInterval) {
  RetirementReports reports(1000, 10);
  EXPECT_FALSE(reports.Selected(1000));
  EXPECT_TRUE(reports.Selected(1001));
  EXPECT_FALSE(reports.Selected(1050));
  EXPECT_FALSE(reports.Selected(1100));
  EXPECT_TRUE(reports.Selected(1101));
  EXPECT_FALSE(reports.Selected(1001));
  RetirementReports always(1000, 0);
  EXPECT_TRUE(always.Selected(1001));
  EXPECT_TRUE(always.Selected(1001));
  EXPECT_FALSE(always.Selected(999));
  RetirementReports small(9, 10);  // 90 / 100 is 0
  EXPECT_TRUE(small.Selected(10));
  EXPECT_TRUE(small.Selected(10));
}

TEST(RetirementReports, WrapAt64Bits) {
  RetirementReports highest(UINT64_MAX, 10);
  EXPECT_FALSE(highest.Selected(UINT64_MAX));
  RetirementReports none(0, UINT64_MAX);
  EXPECT_FALSE(none.Selected(0));
  EXPECT_TRUE(none.Selected(UINT64_MAX));
  EXPECT_FALSE(none.Selected(1));
  RetirementReports product(uint64_t{1} << 63, 2);  // 2^64 wraps to 0: every count above is reported
  EXPECT_TRUE(product.Selected(UINT64_MAX));
  EXPECT_TRUE(product.Selected(UINT64_MAX));
  RetirementReports difference(10, 1'000'000);  // 100,000: a lower count wraps to a huge one
  EXPECT_TRUE(difference.Selected(11));
  EXPECT_TRUE(difference.Selected(12));
  EXPECT_FALSE(difference.Selected(100'000));  // 0 is below 12
  EXPECT_TRUE(difference.Selected(100'012));
}

/// Over a host tree of its own, from the agent's start on.
class PageRetireCorrelator : public testing::Test {
 protected:
  void SetUp() override {
    std::filesystem::remove_all(testing_support::ProcessRoot() / "/var/lib/corvane");
    StartPageRetirement();
  }
  static void Put(const std::string &path, const std::string &value) {
    testing_support::WriteFile(testing_support::ProcessRoot() / ("/var/lib/corvane/host/" + path), value);
  }
  static Events Post(const std::string &id, const Arguments &arguments) {
    return EventsOf(PageRetireHandlers(), "ryn.pageretire." + id, arguments);
  }
};

TEST_F(PageRetireCorrelator, ReportsTheNumberOfPages) {
  const std::string id = "selectedmpnthreshold.host.exceeded";
  const Events expected = {
      "amb.problem.pageretire.selectedmpnthreshold.host.exceeded Number of host physical memory pages that have been "
      "selected for retirement (1001) exceeds threshold (1000)."};
  EXPECT_EQ(Post(id, {Long(1000)}), Events{});
  EXPECT_EQ(Post(id, {Str("1001")}), Events{});
  EXPECT_EQ(Post(id, {Long(1001)}), expected);
  EXPECT_EQ(Post(id, {Long(1100)}), Events{});
  StartPageRetirement();
  EXPECT_EQ(Post(id, {Int(1001)}), expected);
  Put("sysinfo/system/pageRetire/threshold", "5");
  Put("sysinfo/config/intOpts/PageRetire/ThresholdInterval", "100");
  StartPageRetirement();
  EXPECT_EQ(Post(id, {Long(6)}).size(), 1u);
  EXPECT_EQ(Post(id, {Long(10)}).size(), 0u);
  EXPECT_EQ(Post(id, {Long(11)}).size(), 1u);
}

TEST_F(PageRetireCorrelator, ReportsOnceThatPagesCouldNotBeRetired) {
  EXPECT_EQ(Post("selectedbutnotretired.high", {}), Events{});  // which does not count
  EXPECT_EQ(Post("selectedbutnotretired.high", {Long(7)}),
            Events{"amb.problem.pageretire.selectedbutnotretired.high Number of host physical memory pages that have "
                   "been selected for retirement but could not yet be retired is high: 7"});
  EXPECT_EQ(Post("selectedbutnotretired.high", {Long(8)}), Events{});
}

TEST_F(PageRetireCorrelator, PassesOnTheFirmwaresRequestsWhileTheyAreLogged) {
  EXPECT_EQ(Post("platform.retire.request", {Str("DIMM1"), Str("0x11")}), Events{});
  Put("sysinfo/config/intOpts/PageRetire/ApeiLoggingEnabled", "1");
  EXPECT_EQ(Post("platform.retire.request", {Str("DIMM1"), NullStr()}),
            Events{"amb.problem.pageretire.platform.retire.request Memory page retirement requested by platform "
                   "firmware. FRU ID: DIMM1. Refer to System Hardware Log: (null)"});
  EXPECT_EQ(Post("platform.retire.request", {Str("DIMM1")}), Events{});
  Put("sysinfo/config/intOpts/PageRetire/ApeiLoggingEnabled", "0");
  EXPECT_EQ(Post("platform.retire.request", {Str("DIMM1"), Str("0x11")}), Events{});
}

using PageRetireDeathTest = PageRetireCorrelator;
TEST_F(PageRetireDeathTest, EndsTheDaemonWithoutItsSettings) {
  Put("sysinfo/config/intOpts/PageRetire/ApeiLoggingEnabled", "x");
  EXPECT_DEATH(Post("platform.retire.request", {Str("DIMM1"), Str("0x11")}),
               "NOT_REACHED apps/rynd/ryndPageRetireCorrelator:127 \n");
  Put("sysinfo/config/intOpts/PageRetire/ThresholdInterval", "x");
  EXPECT_DEATH(StartPageRetirement(), "NOT_REACHED apps/rynd/ryndPageRetireCorrelator:190 \n");
  Put("sysinfo/system/pageRetire/threshold", "x");
  EXPECT_DEATH(StartPageRetirement(), "NOT_REACHED apps/rynd/ryndPageRetireCorrelator:179 \n");
}

TEST_F(PageRetireCorrelator, KillsAMachineThatKeepsTouchingABadPage) {
  const auto preload = [](int32_t worldId, uint64_t page, int count, int64_t ago) {
    for (; count > 0; --count) PageRetireInjections().Observe(time(nullptr) - ago, Injection{worldId, page});
  };
  Put("vms/-5", "web 1");
  CapturedLog log;
  preload(-5, 0x77, 49, 4);
  preload(50, 0x78, 49, 4);
  EXPECT_EQ(Post("mce.injected", {Long(0x77), Int(-5)}),
            Events{"amb.problem.pageretire.mce.injected.2 Killing web 1 because at least 50 uncorrectable memory error "
                   "machine check exceptions were injected for guest physical page 0x77 but the virtual machine's "
                   "operating system kept using the page."});
  EXPECT_EQ(Post("mce.injected", {Long(0x77), Int(-5)}), Events{});
  EXPECT_EQ(Post("mce.injected", {Long(0x78), Int(50)}), Events{});
  EXPECT_EQ(log.CountOf("Cannot kill virtual machine 50: cannot find the virtual machine of world 50"), 1u);
  const std::string actions =
      testing_support::ReadFile(testing_support::ProcessRoot() / "/var/lib/corvane/actions.log");
  EXPECT_TRUE(actions.ends_with("\tvm/kill\t-5\n")) << actions;
  // One that can't be read still judges, and a kill that fails is only logged.
  std::filesystem::remove_all(testing_support::ProcessRoot() / "/var/lib/corvane/actions.log");
  std::filesystem::create_directories(testing_support::ProcessRoot() / "/var/lib/corvane/actions.log");
  preload(51, 0x79, 49, 4);
  preload(51, 0x79, 1, 1);
  Put("vms/51", "db");
  EXPECT_EQ(Post("mce.injected", {Str("x")}).size(), 1u);
  EXPECT_EQ(log.CountOf("Cannot kill virtual machine 51: cannot kill the virtual machine of world 51"), 1u);
}

}  // namespace
}  // namespace rynd
