#include "correlators/hardware/ryndCpuCorrelator.h"

#include <atomic>
#include <stdexcept>
#include <thread>

#include "correlators/hardware/coreErrors.h"
#include "correlators/hardware/hardwareCorrelators.h"
#include "testing/postedEvents.h"

namespace rynd {
namespace {

constexpr uint64_t kOverflow = uint64_t{1} << 62;
constexpr uint64_t kAddressValid = uint64_t{1} << 58;
constexpr uint64_t kTlbError = 0x0010;

/// True when the 16 bits of `code` are those of `pattern`, high to low; 'x' stands for either.
bool Matches(unsigned code, const char *pattern) {
  for (unsigned bit = 0; bit < 16; ++bit) {
    const char wanted = pattern[15 - bit];
    if (wanted != 'x' && wanted != ((code >> bit & 1) != 0 ? '1' : '0')) return false;
  }
  return true;
}

TEST(CoreErrors, QualifyByTheWholeErrorCode) {
  unsigned qualifying = 0;
  for (unsigned code = 0; code < 65'536; ++code) {
    const bool wanted = Matches(code, "000x0001xxxxxx0x") ||  // memory hierarchy
                        Matches(code, "000x00000000110x") ||  // generic cache
                        Matches(code, "000x00000001xx0x");    // TLB
    ASSERT_EQ(IsFirstLevelError(code), wanted) << std::hex << code;
    ASSERT_EQ(IsFirstLevelError(code | 0xffff'ffff'ffff'0000), wanted) << std::hex << code;
    qualifying += wanted ? 1 : 0;
  }
  EXPECT_EQ(qualifying, 2u * (128 + 2 + 8));
}

/// The number of errors, a second apart, at which a core is found bad; 0 when it isn't after 200.
int ErrorsUntilBad(int64_t threshold, bool overflow = false, int64_t step = 1) {
  CoreErrors errors;
  for (int i = 1; i <= 200; ++i) {
    if (errors.Count(1, overflow, threshold, 1000 + i * step)) return i;
  }
  return 0;
}

TEST(CoreErrors, LooksBackByTheThresholdAroundTheRing) {
  const std::pair<int64_t, int> rows[] = {{1, 1}, {3, 3}, {63, 63}, {64, 64}, {65, 1}, {-1, 63}, {INT64_MIN, 64}};
  for (const auto &[threshold, errors] : rows) EXPECT_EQ(ErrorsUntilBad(threshold), errors) << threshold;
  EXPECT_EQ(ErrorsUntilBad(3, true), 2);
  EXPECT_EQ(ErrorsUntilBad(4, true), 2);
  EXPECT_EQ(ErrorsUntilBad(64, true), 32);
}

TEST(CoreErrors, ForgetsAfterADay) {
  EXPECT_EQ(ErrorsUntilBad(3, false, 43'200), 0);  // the oldest of three is exactly a day old
  EXPECT_EQ(ErrorsUntilBad(3, false, 43'199), 3);
  CoreErrors errors;
  EXPECT_FALSE(errors.Count(1, false, 2, 10));
  EXPECT_FALSE(errors.Count(2, false, 2, 11));  // another core
  EXPECT_TRUE(errors.Count(1, false, 2, 86'409));
  // The clock's first second is no time stamp.
  EXPECT_FALSE(errors.Count(3, false, 1, 0));
}

TEST(CoreErrors, GoOnJudgingInAFloodOfInventedCores) {
  CoreErrors errors;
  EXPECT_TRUE(errors.Count(7, false, 1, 5));
  errors.SetOffline(7);
  EXPECT_FALSE(errors.Count(8, false, 3, 5));
  EXPECT_FALSE(errors.Count(9, false, 2, 5));
  for (uint64_t core = 1; core <= CoreErrors::kMaxCores; ++core) {
    EXPECT_FALSE(errors.Count(core << 32, false, 2, 5));
    if (core == CoreErrors::kMaxCores / 2) {
      EXPECT_FALSE(errors.Count(8, false, 3, 5));
    }
  }
  EXPECT_TRUE(errors.IsOffline(7));
  EXPECT_TRUE(errors.Count(8, false, 3, 5)) << "its second error has kept it";
  EXPECT_FALSE(errors.Count(9, false, 2, 5)) << "its first error is forgotten";
  EXPECT_TRUE(errors.Count(9, false, 2, 5)) << "a full table takes it in anew";
  for (uint64_t core = 1; core < CoreErrors::kMaxOfflineCores; ++core) errors.SetOffline(core << 32);
  EXPECT_TRUE(errors.IsOffline(7));  // which is a use
  for (uint64_t core = 1; core < CoreErrors::kMaxOfflineCores; ++core) errors.SetOffline(core << 40);
  EXPECT_TRUE(errors.IsOffline(7));
  EXPECT_FALSE(errors.IsOffline(1ULL << 32));
}

TEST(CoreErrors, TellAPcpusCore) {
  EXPECT_EQ(CoreOf(9, 4, 8), 4u);
  EXPECT_EQ(CoreOf(9, 4, 11), 4u);
  for (const auto &[cores, pcpus] : {std::pair(0U, 8U), std::pair(8U, 4U)}) EXPECT_EQ(CoreOf(9, cores, pcpus), 0u);
}

TEST(PageErrorCounts, AddUpTo255) {
  PageErrorCounts counts;
  const auto add = [&counts](std::initializer_list<std::pair<uint64_t, bool>> additions) {
    for (const auto &[errors, above] : additions) EXPECT_EQ(counts.Add(7, errors), above) << errors;
  };
  add({{1, false}, {1, false}, {1, true}});
  counts.Reset();
  add({{2, false}});
  counts.SetThreshold(250);
  // 250, which stays as the sum passes 255; 255, which stays; and a sum that wraps to 0.
  add({{248, false}, {10, false}, {5, true}, {1, true}, {0x1'0000'0000 - 255, false}, {250, false}});
  counts.SetThreshold(255);
  add({{5, false}});
}

TEST(PageErrorCounts, GoOnInAFloodOfInventedPages) {
  PageErrorCounts counts;
  EXPECT_FALSE(counts.Add(7, 1));
  EXPECT_FALSE(counts.Add(8, 2));
  for (uint64_t page = 1; page <= PageErrorCounts::kMaxPages; ++page) {
    EXPECT_FALSE(counts.Add(page << 20, 2));
    if (page == PageErrorCounts::kMaxPages / 2) {
      EXPECT_FALSE(counts.Add(7, 1));
    }
  }
  EXPECT_TRUE(counts.Add(7, 1)) << "its second error has kept it";
  EXPECT_FALSE(counts.Add(8, 2)) << "its first errors are forgotten";
  EXPECT_TRUE(counts.Add(8, 1)) << "a full table takes it in anew";
}

int asked = 0;
bool YesItIs(uint64_t) {
  return ++asked > 0;
}
bool NoItIsNot(uint64_t) {
  return ++asked < 0;
}

TEST(PageStates, AskForRetirementUntilTheKernelHasThePage) {
  PageStates states;
  asked = 0;
  EXPECT_EQ(states.Judge(7, NoItIsNot), PageAction::kRetire);
  EXPECT_EQ(states.Judge(7, NoItIsNot), PageAction::kRetire);
  EXPECT_THROW(states.Judge(7, [](uint64_t) -> bool { throw std::runtime_error("x"); }), std::runtime_error);
  EXPECT_EQ(states.Judge(7, YesItIs), PageAction::kNone);
  EXPECT_EQ(states.StateOf(7), 1u);
  EXPECT_EQ(asked, 3);
  EXPECT_EQ(states.Judge(7, NoItIsNot), PageAction::kNone);
  EXPECT_EQ(states.StateOf(7), 2u);
  EXPECT_EQ(states.Judge(0, NoItIsNot), PageAction::kNone);  // page 0 is never retired
  EXPECT_EQ(states.StateOf(0), 1u);
  EXPECT_EQ(asked, 3);
  for (const uint64_t page : {0u, 7u}) {
    states.SetState(page, UINT32_MAX - 1);
    EXPECT_EQ(states.Judge(page, YesItIs), PageAction::kNone);
    EXPECT_EQ(states.Judge(page, YesItIs), PageAction::kReport);
    EXPECT_EQ(states.StateOf(page), 1u);
    EXPECT_EQ(states.Judge(page, YesItIs), PageAction::kNone);
  }
  EXPECT_EQ(asked, 3);
}

TEST(PageStates, StayWithinTheirBoundToTheSameEffect) {
  PageStates states;
  for (uint64_t page = 1; page <= PageStates::kMaxPages; ++page) states.SetState(page << 20, 1);
  EXPECT_EQ(states.Judge(7, NoItIsNot), PageAction::kRetire);
  EXPECT_EQ(states.Judge(7, YesItIs), PageAction::kNone);
  EXPECT_EQ(states.StateOf(7), 0u);
  EXPECT_EQ(states.Judge(1 << 20, YesItIs), PageAction::kNone);
  EXPECT_EQ(states.StateOf(1 << 20), 2u);
}

/// Over a host tree of its own. State is the process's: every test has its own cores and pages.
class CpuCorrelator : public testing::Test {
 protected:
  void SetUp() override {
    ClearHost();
    ResetPageErrorCounts();
    RefreshCpuOptions();
    PutHost("sysinfo/hardware/cpu/vendor", "GenuineIntel");
    PutHost("sysinfo/hardware/cpu/cpuInfo", "4 8");
    PutHost("sysinfo/sched/offline/enabled", "1");
    PutHost("sysinfo/config/intOpts/Cpu/CPUOfflineThreshold", "3");
  }
  static void MachineCheck(uint64_t status, uint64_t pcpu, uint64_t address = 0, uint64_t errors = 1) {
    EXPECT_EQ(EventsOf(CpuHandlers(), "ryn.cpu.mce.log4",
                       {Long(1), Long(status), Long(3), Long(4), Long(pcpu), Long(address), Long(7), Long(errors)}),
              Events{});
  }
  static void MemoryError(uint64_t address) { EventsOf(CpuHandlers(), "ryn.cpu.mem.ce.log", {Long(address)}); }
};

TEST_F(CpuCorrelator, TakesAPcpuOfflineAtTheThreshold) {
  MachineCheck(kTlbError, 3);
  MachineCheck(kTlbError | 2, 3);  // second level
  MachineCheck(kTlbError, 5);      // another core
  MachineCheck(kTlbError, 2);      // the same core's other thread
  EXPECT_EQ(TakeActions(), "");
  MachineCheck(kTlbError, 3);
  EXPECT_EQ(TakeActions(), "sched/pcpus/offline\t3;");
  for (int i = 0; i < 5; ++i) MachineCheck(kTlbError, 2);
  EXPECT_EQ(TakeActions(), "");
  MachineCheck(kTlbError | kOverflow, 5);
  EXPECT_EQ(TakeActions(), "sched/pcpus/offline\t5;");
}

TEST_F(CpuCorrelator, NeverTakesOfflineWhatItMayNot) {
  const std::pair<const char *, const char *> rows[] = {{"hardware/cpu/vendor", "AuthenticAMD"},
                                                        {"hardware/cpu/vendor", "GenuineIntelX"},
                                                        {"hardware/cpu/vendor", "two\nlines"},
                                                        {"sched/offline/enabled", "0"},
                                                        {"sched/offline/enabled", "yes"},
                                                        {"config/intOpts/Cpu/CPUOfflineThreshold", "0"},
                                                        {"config/intOpts/Cpu/CPUOfflineThreshold", "many"}};
  for (const auto &[node, value] : rows) {
    SetUp();
    PutHost(std::string("sysinfo/") + node, value);
    CapturedLog log;
    for (int i = 0; i < 4; ++i) MachineCheck(kTlbError | kAddressValid, 20, 0x20'000);
    // Pages are counted all the same.
    EXPECT_EQ(TakeActions(),
              "system/pageRetire/retireMPNs\t32\t1\tNiceRetire;system/pageRetire/retireMPNs\t32\t1\tNiceRetire;")
        << node << " " << value;
  }
}

TEST_F(CpuCorrelator, AsksForAPagesRetirementAboveTheThreshold) {
  MemoryError(0x1'0000'0000'0abc);
  MemoryError(0x1'0000'0000'0fff);
  MachineCheck(0, 0, 0x1'0000'0000'0000, 1);  // its address is not valid
  EXPECT_EQ(TakeActions(), "");
  MachineCheck(kAddressValid, 0, 0x1'0000'0000'0000, 1);
  EXPECT_EQ(TakeActions(), "system/pageRetire/retireMPNs\t68719476736\t1\tNiceRetire;");
  PutHost("sysinfo/system/pageRetire/MPNStatus/0x1000000000", "bad");
  {
    CapturedLog log;
    MemoryError(0x1'0000'0000'0000);
    EXPECT_EQ(log.CountOf("Cannot retire page 0x1000000000: cannot read the sysinfo node system/pageRetire/MPNStatus"),
              1u);
  }
  PutHost("sysinfo/system/pageRetire/MPNStatus/0x1000000000", "0 1");
  MemoryError(0x1'0000'0000'0000);
  EXPECT_EQ(TakeActions(), "");
  EXPECT_EQ(CpuPageStates().StateOf(0x1'0000'0000'0), 1u);
  // The report that takes 2^32 observations.
  CpuPageStates().SetState(0x1'0000'0000'0, UINT32_MAX);
  const Events report = EventsOf(CpuHandlers(), "ryn.cpu.mem.ce.log", {Long(0x1'0000'0000'0000)});
  EXPECT_TRUE(report.size() == 1 && report[0].ends_with(" page number 0x1000000000"));
  ResetPageErrorCounts();
  MachineCheck(kAddressValid, 0, 0x5000, 3);
  EXPECT_EQ(TakeActions(), "system/pageRetire/retireMPNs\t5\t1\tNiceRetire;");
}

TEST_F(CpuCorrelator, TimersKeepTheOptionsAndTheCountsFresh) {
  Timers().clear();
  StartCpuTimers();
  ASSERT_EQ(Timers().size(), 2u);
  EXPECT_EQ(Timers()[0].intervalS, 60);
  EXPECT_EQ(Timers()[1].intervalS, 30);
  EXPECT_EQ(Timers()[0].periodic + Timers()[1].periodic, 2u);
  Timers()[0].callback();
  EXPECT_EQ(Timers()[1].armings, 1u);                                          // the same period
  PutHost("sysinfo/config/intOpts/PageRetire/PageErrorCorrThreshold", "256");  // 8 bits: 0
  PutHost("sysinfo/config/intOpts/PageRetire/PageErrorCorrPeriod", "7");
  MemoryError(0x9000);
  EXPECT_EQ(TakeActions(), "");
  Timers()[0].callback();
  EXPECT_EQ(Timers()[1].armings, 2u);
  EXPECT_EQ(Timers()[1].intervalS, 7);
  MemoryError(0xa000);
  EXPECT_EQ(TakeActions(), "system/pageRetire/retireMPNs\t10\t1\tNiceRetire;");
  // A threshold that can't be read stays and does not stop the period; a period that can't be read stays.
  PutHost("sysinfo/config/intOpts/PageRetire/PageErrorCorrThreshold", "x");
  PutHost("sysinfo/config/intOpts/PageRetire/PageErrorCorrPeriod", "30");
  CapturedLog log;
  Timers()[0].callback();
  PutHost("sysinfo/config/intOpts/PageRetire/PageErrorCorrPeriod", "x");
  Timers()[0].callback();
  EXPECT_EQ(Timers()[1].intervalS, 30);
  MemoryError(0xb000);
  EXPECT_EQ(TakeActions(), "system/pageRetire/retireMPNs\t11\t1\tNiceRetire;");
  PutHost("sysinfo/config/intOpts/PageRetire/PageErrorCorrThreshold", "1");
  Timers()[0].callback();
  Timers()[1].callback();
  MemoryError(0xb000);  // counted anew
  EXPECT_EQ(TakeActions(), "");
  // Without room for timers the options are still read once.
  Timers().assign(16, FakeTimer());
  PutHost("sysinfo/config/intOpts/PageRetire/PageErrorCorrThreshold", "0");
  StartCpuTimers();
  MemoryError(0xc000);
  EXPECT_EQ(TakeActions(), "system/pageRetire/retireMPNs\t12\t1\tNiceRetire;");
  EXPECT_EQ(Timers()[15].armings, 0u);
}

TEST_F(CpuCorrelator, TimersAndHandlersKeepOutOfEachOthersWay) {
  Timers().clear();
  StartCpuTimers();
  std::atomic<bool> stop = false;
  std::thread timers([&] {
    for (int period = 1; !stop; ++period) {
      PutHost("sysinfo/config/intOpts/PageRetire/PageErrorCorrPeriod", std::to_string(period % 5 + 31));
      RefreshCpuOptions();
      ResetPageErrorCounts();
    }
  });
  for (uint64_t i = 0; i < 300; ++i) MemoryError(i % 7 << kPageShift);
  stop = true;
  timers.join();
  RefreshCpuOptions();
}

}  // namespace
}  // namespace rynd
