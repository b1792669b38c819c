#include "correlators/hardware/ryndCpuCorrelator.h"

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <stdexcept>
#include <thread>

#include "correlators/hardware/coreErrors.h"
#include "correlators/hardware/hardwareCorrelators.h"
#include "testing/coreSupport.h"
#include "testing/postedEvents.h"
#include "testing/testRoot.h"

namespace rynd {
namespace {

using Events = std::vector<std::string>;
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
  EXPECT_EQ(ErrorsUntilBad(1), 1);
  EXPECT_EQ(ErrorsUntilBad(3), 3);
  EXPECT_EQ(ErrorsUntilBad(63), 63);
  EXPECT_EQ(ErrorsUntilBad(64), 64);
  EXPECT_EQ(ErrorsUntilBad(65), 1);
  EXPECT_EQ(ErrorsUntilBad(-1), 63);
  EXPECT_EQ(ErrorsUntilBad(INT64_MIN), 64);
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
  EXPECT_EQ(CoreOf(9, 0, 8), 0u);
  EXPECT_EQ(CoreOf(9, 8, 4), 0u);
}

TEST(PageErrorCounts, AddUpTo255) {
  PageErrorCounts counts;
  EXPECT_FALSE(counts.Add(7, 1));
  EXPECT_FALSE(counts.Add(7, 1));
  EXPECT_TRUE(counts.Add(7, 1));
  counts.Reset();
  EXPECT_FALSE(counts.Add(7, 2));
  counts.SetThreshold(250);
  EXPECT_FALSE(counts.Add(7, 248));                  // 250
  EXPECT_FALSE(counts.Add(7, 10));                   // stays
  EXPECT_TRUE(counts.Add(7, 5));                     // 255
  EXPECT_TRUE(counts.Add(7, 1));                     // stays
  EXPECT_FALSE(counts.Add(7, 0x1'0000'0000 - 255));  // the sum wraps to 0
  EXPECT_FALSE(counts.Add(7, 250));
  counts.SetThreshold(255);
  EXPECT_FALSE(counts.Add(7, 5));
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
    std::filesystem::remove_all(testing_support::ProcessRoot() / "/var/lib/corvane");
    ResetPageErrorCounts();
    RefreshCpuOptions();
    Put("sysinfo/hardware/cpu/vendor", "GenuineIntel");
    Put("sysinfo/hardware/cpu/cpuInfo", "4 8");
    Put("sysinfo/sched/offline/enabled", "1");
    Put("sysinfo/config/intOpts/Cpu/CPUOfflineThreshold", "3");
  }
  static void Put(const std::string &path, const std::string &value) {
    testing_support::WriteFile(testing_support::ProcessRoot() / ("/var/lib/corvane/host/" + path), value);
  }
  static void MachineCheck(uint64_t status, uint64_t pcpu, uint64_t address = 0, uint64_t errors = 1) {
    EXPECT_EQ(EventsOf(CpuHandlers(), "ryn.cpu.mce.log4",
                       {Long(1), Long(status), Long(3), Long(4), Long(pcpu), Long(address), Long(7), Long(errors)}),
              Events{});
  }
  static void MemoryError(uint64_t address) { EventsOf(CpuHandlers(), "ryn.cpu.mem.ce.log", {Long(address)}); }
  /// The actions since the last call, without their times, joined by ';'.
  static std::string Actions() {
    const std::string path = testing_support::ProcessRoot() / "/var/lib/corvane/actions.log";
    std::string actions, text = testing_support::ReadFile(path);
    std::filesystem::remove(path);
    for (size_t end = text.find('\n'); end != std::string::npos; end = text.find('\n')) {
      const size_t tab = text.find('\t');
      actions += text.substr(tab + 1, end - tab - 1) + ";";
      text.erase(0, end + 1);
    }
    return actions;
  }
};

TEST_F(CpuCorrelator, TakesAPcpuOfflineAtTheThreshold) {
  MachineCheck(kTlbError, 3);
  MachineCheck(kTlbError | 2, 3);  // second level
  MachineCheck(kTlbError, 5);      // another core
  MachineCheck(kTlbError, 2);      // the same core's other thread
  EXPECT_EQ(Actions(), "");
  MachineCheck(kTlbError, 3);
  EXPECT_EQ(Actions(), "sched/pcpus/offline\t3;");
  for (int i = 0; i < 5; ++i) MachineCheck(kTlbError, 2);
  EXPECT_EQ(Actions(), "");
  MachineCheck(kTlbError | kOverflow, 5);
  EXPECT_EQ(Actions(), "sched/pcpus/offline\t5;");
}

TEST_F(CpuCorrelator, NeverTakesOfflineWhatItMayNot) {
  const std::pair<const char *, const char *> rows[] = {{"hardware/cpu/vendor", "AuthenticAMD"},
                                                        {"hardware/cpu/vendor", "GenuineIntelX"},
                                                        {"hardware/cpu/vendor", ""},
                                                        {"hardware/cpu/vendor", "two\nlines"},
                                                        {"sched/offline/enabled", "0"},
                                                        {"sched/offline/enabled", "yes"},
                                                        {"config/intOpts/Cpu/CPUOfflineThreshold", "0"},
                                                        {"config/intOpts/Cpu/CPUOfflineThreshold", "many"}};
  for (const auto &[node, value] : rows) {
    SetUp();
    Put(std::string("sysinfo/") + node, value);
    CapturedLog log;
    for (int i = 0; i < 4; ++i) MachineCheck(kTlbError | kAddressValid, 20, 0x20'000);
    // Pages are counted all the same.
    EXPECT_EQ(Actions(),
              "system/pageRetire/retireMPNs\t32\t1\tNiceRetire;"
              "system/pageRetire/retireMPNs\t32\t1\tNiceRetire;")
        << node << " " << value;
  }
}

TEST_F(CpuCorrelator, AsksForAPagesRetirementAboveTheThreshold) {
  MemoryError(0x1'0000'0000'0abc);
  MemoryError(0x1'0000'0000'0fff);
  MachineCheck(0, 0, 0x1'0000'0000'0000, 1);  // its address is not valid
  EXPECT_EQ(Actions(), "");
  MachineCheck(kAddressValid, 0, 0x1'0000'0000'0000, 1);
  EXPECT_EQ(Actions(), "system/pageRetire/retireMPNs\t68719476736\t1\tNiceRetire;");
  Put("sysinfo/system/pageRetire/MPNStatus/0x1000000000", "bad");
  {
    CapturedLog log;
    MemoryError(0x1'0000'0000'0000);
    EXPECT_EQ(log.CountOf("Cannot retire page 0x1000000000: cannot read the sysinfo node system/pageRetire/MPNStatus"),
              1u);
  }
  Put("sysinfo/system/pageRetire/MPNStatus/0x1000000000", "0 1");
  MemoryError(0x1'0000'0000'0000);
  EXPECT_EQ(Actions(), "");
  EXPECT_EQ(CpuPageStates().StateOf(0x1'0000'0000'0), 1u);
  // The report that takes 2^32 observations.
  CpuPageStates().SetState(0x1'0000'0000'0, UINT32_MAX);
  EXPECT_EQ(EventsOf(CpuHandlers(), "ryn.cpu.mem.ce.log", {Long(0x1'0000'0000'0000)}),
            Events{"amb.problem.cpu.page.correctederrors.high High number of corrected errors on page number "
                   "0x1000000000"});
  ResetPageErrorCounts();
  MachineCheck(kAddressValid, 0, 0x5000, 3);
  EXPECT_EQ(Actions(), "system/pageRetire/retireMPNs\t5\t1\tNiceRetire;");
}

TEST_F(CpuCorrelator, TimersKeepTheOptionsAndTheCountsFresh) {
  Timers().clear();
  StartCpuTimers();
  ASSERT_EQ(Timers().size(), 2u);
  EXPECT_EQ(Timers()[0].intervalS, 60);
  EXPECT_EQ(Timers()[1].intervalS, 30);
  EXPECT_EQ(Timers()[0].periodic + Timers()[1].periodic, 2u);
  Timers()[0].callback();
  EXPECT_EQ(Timers()[1].armings, 1u);                                      // the same period
  Put("sysinfo/config/intOpts/PageRetire/PageErrorCorrThreshold", "256");  // 8 bits: 0
  Put("sysinfo/config/intOpts/PageRetire/PageErrorCorrPeriod", "7");
  MemoryError(0x9000);
  EXPECT_EQ(Actions(), "");
  Timers()[0].callback();
  EXPECT_EQ(Timers()[1].armings, 2u);
  EXPECT_EQ(Timers()[1].intervalS, 7);
  MemoryError(0xa000);
  EXPECT_EQ(Actions(), "system/pageRetire/retireMPNs\t10\t1\tNiceRetire;");
  // A threshold that can't be read stays and does not stop the period; a period that can't be read stays.
  Put("sysinfo/config/intOpts/PageRetire/PageErrorCorrThreshold", "x");
  Put("sysinfo/config/intOpts/PageRetire/PageErrorCorrPeriod", "30");
  CapturedLog log;
  Timers()[0].callback();
  Put("sysinfo/config/intOpts/PageRetire/PageErrorCorrPeriod", "x");
  Timers()[0].callback();
  EXPECT_EQ(Timers()[1].intervalS, 30);
  MemoryError(0xb000);
  EXPECT_EQ(Actions(), "system/pageRetire/retireMPNs\t11\t1\tNiceRetire;");
  Put("sysinfo/config/intOpts/PageRetire/PageErrorCorrThreshold", "1");
  Timers()[0].callback();
  Timers()[1].callback();
  MemoryError(0xb000);  // counted anew
  EXPECT_EQ(Actions(), "");
  // Without room for timers the options are still read once.
  Timers().assign(16, FakeTimer());
  Put("sysinfo/config/intOpts/PageRetire/PageErrorCorrThreshold", "0");
  StartCpuTimers();
  MemoryError(0xc000);
  EXPECT_EQ(Actions(), "system/pageRetire/retireMPNs\t12\t1\tNiceRetire;");
  EXPECT_EQ(Timers()[15].armings, 0u);
}

TEST_F(CpuCorrelator, TimersAndHandlersKeepOutOfEachOthersWay) {
  Timers().clear();
  StartCpuTimers();
  std::atomic<bool> stop = false;
  std::thread timers([&] {
    for (int period = 1; !stop; ++period) {
      Put("sysinfo/config/intOpts/PageRetire/PageErrorCorrPeriod", std::to_string(period % 5 + 31));
      RefreshCpuOptions();
      ResetPageErrorCounts();
    }
  });
  for (uint64_t i = 0; i < 300; ++i) MemoryError(i % 7 << kPageShift);
  stop = true;
  timers.join();
  RefreshCpuOptions();
}

TEST_F(CpuCorrelator, PostsWhatIsWrongWithTheProcessors) {
  const HandlerTable handlers = CpuHandlers();
  EXPECT_EQ(handlers.Size(), 11u);
  EXPECT_EQ(EventsOf(handlers, "ryn.cpu.intel.ioapic.listing.error", {}),
            Events{"amb.problem.cpu.intel.ioapic.listing.error Not all IO-APICs are listed in the DMAR. Not enabling "
                   "interrupt remapping on this platform. "});
  EXPECT_EQ(EventsOf(handlers, "ryn.cpu.smp.ht.invalid", {Int(3), Int(8)}),
            Events{"amb.problem.cpu.smp.ht.invalid Disabling HyperThreading due to invalid configuration: Number of "
                   "threads: 3, Number of PCPUs: 8."});
  EXPECT_EQ(EventsOf(handlers, "ryn.cpu.smp.ht.partner.missing", {Int(3), Long(8)}),
            Events{"amb.problem.cpu.smp.ht.partner.missing Disabling HyperThreading due to invalid configuration: HT "
                   "partner 3 is missing from PCPU 8."});
  for (const char *id : {"ryn.cpu.smp.ht.invalid", "ryn.cpu.mce.log4", "ryn.cpu.mem.ce.log", "ryn.cpu.mcax.log",
                         "ryn.cpu.nmi.ipi2.log", "ryn.cpu.nmi.ipi2.savebt"}) {
    EXPECT_EQ(EventsOf(handlers, id, {}), Events{}) << id;
    EXPECT_EQ(EventsOf(handlers, id, Arguments(11, Str("x"))), Events{}) << id;
    const Arguments eleven(11, Long(1));
    EXPECT_EQ(EventsOf(handlers, id, eleven).size(), std::string(id).starts_with("ryn.cpu.smp") ? 1u : 0u) << id;
  }
  EXPECT_EQ(Actions(), "");
}

}  // namespace
}  // namespace rynd
