#include "correlators/hardware/ryndPageRetireCorrelator.h"

#include <ctime>
#include <filesystem>

#include "correlators/hardware/hardwareCorrelators.h"
#include "correlators/hardware/retirementReports.h"
#include "testing/postedEvents.h"

namespace rynd {
namespace {

TEST(RetirementReports, FollowTheThresholdAndItsIntervalIn64BitsThatWrap) {
  constexpr uint64_t kMost = UINT64_MAX;
  const struct {
    uint64_t threshold, interval;
    std::vector<std::pair<uint64_t, bool>> counts;  ///< in their order, and whether each is reported
  } rows[] = {{1000, 10, {{1000, false}, {1001, true}, {1050, false}, {1100, false}, {1101, true}, {1001, false}}},
              {1000, 0, {{1001, true}, {1001, true}, {999, false}}},
              {9, 10, {{10, true}, {10, true}}},  // 90 / 100 is 0
              {kMost, 10, {{kMost, false}}},
              {0, kMost, {{0, false}, {kMost, true}, {1, false}}},
              {uint64_t{1} << 63, 2, {{kMost, true}, {kMost, true}}},  // 2^64 wraps to 0: every count above is reported
              // An interval of 100,000: a lower count wraps to a huge one, and 0 is below 12.
              {10, 1'000'000, {{11, true}, {12, true}, {100'000, false}, {100'012, true}}}};
  for (const auto &row : rows) {
    RetirementReports reports(row.threshold, row.interval);
    for (const auto &[count, reported] : row.counts)
      EXPECT_EQ(reports.Selected(count), reported) << row.threshold << " " << count;
  }
}

/// Over a host tree of its own, from the agent's start on.
class PageRetireCorrelator : public testing::Test {
 protected:
  void SetUp() override {
    ClearHost();
    StartPageRetirement();
  }
  static Events Post(const std::string &id, const Arguments &arguments) {
    return EventsOf(PageRetireHandlers(), "ryn.pageretire." + id, arguments);
  }
};

TEST_F(PageRetireCorrelator, ReportsTheNumberOfPagesByTheSettingsOfItsStart) {
  const auto reports = [](const hosted::RawArgument &count) {
    return Post("selectedmpnthreshold.host.exceeded", {count}).size();
  };
  EXPECT_EQ(reports(Long(1000)) + reports(Str("1001")), 0u);
  EXPECT_EQ(reports(Long(1001)), 1u);
  EXPECT_EQ(reports(Long(1100)), 0u);
  PutHost("sysinfo/system/pageRetire/threshold", "5");
  PutHost("sysinfo/config/intOpts/PageRetire/ThresholdInterval", "100");
  StartPageRetirement();
  EXPECT_EQ(reports(Int(6)), 1u);
  EXPECT_EQ(reports(Long(10)), 0u);
  EXPECT_EQ(reports(Long(11)), 1u);
}

TEST_F(PageRetireCorrelator, ReportsOnceOrWhileTheSettingSaysSo) {
  const auto notRetired = [](const Arguments &count) { return Post("selectedbutnotretired.high", count).size(); };
  EXPECT_EQ(notRetired({}), 0u) << "which does not count";
  EXPECT_EQ(notRetired({Long(7)}), 1u);
  EXPECT_EQ(notRetired({Long(8)}), 0u);
  const auto request = [](const Arguments &arguments) { return Post("platform.retire.request", arguments); };
  for (const char *logged : {"", "1", "0"}) {
    if (*logged != '\0') PutHost("sysinfo/config/intOpts/PageRetire/ApeiLoggingEnabled", logged);
    EXPECT_EQ(request({Str("DIMM1"), Str("0x11")}).size(), *logged == '1' ? 1u : 0u) << logged;
  }
  PutHost("sysinfo/config/intOpts/PageRetire/ApeiLoggingEnabled", "1");
  EXPECT_TRUE(request({Str("DIMM1"), NullStr()})[0].ends_with(" Refer to System Hardware Log: (null)"));
  EXPECT_EQ(request({Str("DIMM1")}), Events{});
}

using PageRetireDeathTest = PageRetireCorrelator;
TEST_F(PageRetireDeathTest, EndsTheDaemonWithoutItsSettings) {
  PutHost("sysinfo/config/intOpts/PageRetire/ApeiLoggingEnabled", "x");
  EXPECT_DEATH(Post("platform.retire.request", {Str("DIMM1"), Str("0x11")}),
               "NOT_REACHED apps/rynd/ryndPageRetireCorrelator:127 \n");
  PutHost("sysinfo/config/intOpts/PageRetire/ThresholdInterval", "x");
  EXPECT_DEATH(StartPageRetirement(), "NOT_REACHED apps/rynd/ryndPageRetireCorrelator:190 \n");
  PutHost("sysinfo/system/pageRetire/threshold", "x");
  EXPECT_DEATH(StartPageRetirement(), "NOT_REACHED apps/rynd/ryndPageRetireCorrelator:179 \n");
}

TEST_F(PageRetireCorrelator, KillsAMachineThatKeepsTouchingABadPage) {
  const auto preload = [](int32_t worldId, uint64_t page, int count, int64_t ago) {
    for (; count > 0; --count) PageRetireInjections().Observe(time(nullptr) - ago, Injection{worldId, page});
  };
  PutHost("vms/-5", "web 1");
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
  EXPECT_EQ(TakeActions(), "vm/kill\t-5;");
  // One that can't be read still judges, and a kill that fails is only logged.
  std::filesystem::create_directories(ProcessRoot() / "/var/lib/corvane/actions.log");
  preload(51, 0x79, 49, 4);
  preload(51, 0x79, 1, 1);
  PutHost("vms/51", "db");
  EXPECT_EQ(Post("mce.injected", {Str("x")}).size(), 1u);
  EXPECT_EQ(log.CountOf("Cannot kill virtual machine 51: cannot kill the virtual machine of world 51"), 1u);
}

}  // namespace
}  // namespace rynd
