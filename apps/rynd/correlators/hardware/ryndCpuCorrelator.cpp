// The CPU correlator: machine checks and what is wrong with the processors. Takes a core offline, or a memory page out
// of use, that has too many corrected errors. Handlers run on its agent's thread, its two timers on the timer thread.
#include "correlators/hardware/ryndCpuCorrelator.h"

#include <array>
#include <cstring>
#include <exception>
#include <memory>
#include <string_view>

#include "core/agents/runner.h"
#include "core/basics/clock.h"
#include "core/basics/log.h"
#include "core/basics/mutex.h"
#include "core/basics/reason.h"
#include "core/basics/timerThread.h"
#include "correlators/hardware/coreErrors.h"
#include "correlators/hardware/hardwareCorrelators.h"
#include "correlators/rows/defaultHandlers.h"
#include "platform/hsiRecords.h"
#include "platform/hykCtlUtil.h"

namespace rynd {
namespace {

constexpr int64_t kRefreshS = 60;
constexpr uint64_t kStatusOverflow = uint64_t{1} << 62;  ///< more errors than are reported
constexpr uint64_t kStatusAddressValid = uint64_t{1} << 58;

constexpr Fields kNone = {};
constexpr Fields kTwoNumbers = {{ArgType::kInt, ArgType::kInt}, "%u %u"};

constexpr auto kCpuRows = std::to_array<PostRow>({
    {"ryn.cpu.mce.invalid", kProblem, kNone,
     "@&!*@*@(amb.problem.cpu.mce.invalid)MCE monitoring will be disabled as an unsupported CPU was detected. Please "
     "consult the AMB HCL for information on supported hardware."},
    {"ryn.cpu.amd.mce.dram.disabled", kProblem, kNone,
     "@&!*@*@(amb.problem.cpu.amd.mce.dram.disabled)DRAM ECC not enabled. Please enable it in BIOS."},
    // kept: the blank at the end.
    {"ryn.cpu.intel.ioapic.listing.error", kProblem, kNone,
     "@&!*@*@(amb.problem.cpu.intel.ioapic.listing.error)Not all IO-APICs are listed in the DMAR. Not enabling "
     "interrupt remapping on this platform. "},
    {"ryn.cpu.smp.ht.numpcpus.max", kProblem, kTwoNumbers,
     "@&!*@*@(amb.problem.cpu.smp.ht.numpcpus.max)Found %d PCPUs, but only using %d of them due to specified limit."},
});
static_assert(kCpuRows.size() == 4);

constexpr auto kHyperthreadingRows = std::to_array<PostRow>({
    {"ryn.cpu.smp.ht.invalid", kProblem, kTwoNumbers,
     "@&!*@*@(amb.problem.cpu.smp.ht.invalid)Disabling HyperThreading due to invalid configuration: Number of threads: "
     "%d, Number of PCPUs: %d."},
    {"ryn.cpu.smp.ht.partner.missing", kProblem, kTwoNumbers,
     "@&!*@*@(amb.problem.cpu.smp.ht.partner.missing)Disabling HyperThreading due to invalid configuration: HT partner "
     "%d is missing from PCPU %d."},
});
static_assert(kHyperthreadingRows.size() == 2);

constexpr EventMessage kPageErrorsHigh = {
    kProblem, "@&!*@*@(amb.problem.cpu.page.correctederrors.high)High number of corrected errors on page number %#lx"};
constexpr auto kMessages =
    std::to_array<EventMessage>({kPageErrorsHigh, kHyperthreadingRows[0].message, kHyperthreadingRows[1].message});

/// What the handlers share with the timers.
struct Shared {
  Mutex mutex;  ///< never held around a call of the platform or of the timers; nothing nests in it
  PageErrorCounts counts GUARDED_BY(mutex);
  uint32_t periodS GUARDED_BY(mutex) = 30;
  int resetTimer GUARDED_BY(mutex) = -1;
};

Shared &SharedState() {
  static Shared *const shared = new Shared;
  return *shared;
}

CoreErrors &Cores() {
  static CoreErrors *const cores = new CoreErrors;
  return *cores;
}

/// The current value of an advanced integer option. 0 or an errno value.
int ReadIntOption(const char *group, const char *name, int64_t *value) {
  struct Destroy {
    void operator()(HSI_ParamList *list) const { HSI_ParamListDestroy(list); }
  };
  const std::unique_ptr<HSI_ParamList, Destroy> option(HSI_ParamListCreate());
  HYK_ReturnStatus status = option == nullptr ? kHykNoMemory : kHykOk;
  if (status == kHykOk) status = HSI_ParamListAddString(option.get(), group);
  if (status == kHykOk) status = HSI_ParamListAddString(option.get(), name);
  if (status == kHykOk) status = HSI_Get("config/intOpts", option.get(), value, sizeof *value);
  return HYK_ReturnStatusToErrno(status);
}

/// What decides whether a core may go offline, as far as the kernel tells: what can't be read is 0 or empty.
struct Processors {
  uint32_t cores = 0, pcpus = 0;
  bool offliningEnabled = false;
  bool isIntel = false;
};

Processors ReadProcessors() {
  std::array<char, kHsiCpuInfoSize> info{};
  HSI_Get("hardware/cpu/cpuInfo", nullptr, info.data(), info.size());
  uint8_t enabled = 0;
  HSI_Get("sched/offline/enabled", nullptr, &enabled, sizeof enabled);
  std::array<char, kHsiCpuListSize + 1> list{};  // and a NUL behind
  try {
    HykCtl::Util::Sysinfo("hardware/cpu/cpuList").AddInstancePath(int64_t{0}).Get(list.data(), kHsiCpuListSize);
  } catch (const std::exception &) {
    list.fill('\0');  // no vendor, no offlining
  }
  Processors processors;
  std::memcpy(&processors.cores, info.data() + kHsiCpuInfoCores, sizeof processors.cores);
  std::memcpy(&processors.pcpus, info.data() + kHsiCpuInfoPcpus, sizeof processors.pcpus);
  processors.offliningEnabled = enabled != 0;
  processors.isIntel = std::string_view(list.data() + kHsiCpuListVendor) == "GenuineIntel";
  return processors;
}

void TakeOffline(uint64_t pcpu, uint64_t core) try {
  HykCtl::Util::Sysinfo("sched/pcpus/offline").AddInstancePath(static_cast<int64_t>(pcpu)).Set();
  Cores().SetOffline(core);
} catch (const std::exception &failure) {
  Log("Cannot take PCPU %lu offline: %s\n", pcpu, failure.what());
}

/// Count an error of a core's own caches and TLBs, and take the PCPU offline when they are too many.
void JudgeCore(uint64_t pcpu, uint64_t status) {
  const Processors processors = ReadProcessors();
  if (!processors.isIntel || !processors.offliningEnabled) return Reason("no core is taken offline on this host");
  const uint64_t core = CoreOf(pcpu, processors.cores, processors.pcpus);
  int64_t threshold = 0;
  if (!IsFirstLevelError(status)) return Reason("status %#lx is of no first-level cache or TLB", status);
  if (Cores().IsOffline(core)) return Reason("core %lu is offline already", core);
  if (ReadIntOption("Cpu", "CPUOfflineThreshold", &threshold) != 0 || threshold == 0) {
    return Reason("Cpu/CPUOfflineThreshold is 0: no core is taken offline");
  }
  const int64_t now = MonotonicNs() / kNsPerSecond;
  if (Cores().Count(core, (status & kStatusOverflow) != 0, threshold, now)) return TakeOffline(pcpu, core);
  Reason("core %lu: fewer than %ld errors within a day", core, threshold);
}

bool IsBeingRetired(uint64_t page) {
  HSI_PageStatus status{};
  HykCtl::Util::Sysinfo("system/pageRetire/MPNStatus").AddInput(static_cast<int64_t>(page)).Get(&status, sizeof status);
  return status.first != 0 || status.second != 0;
}

/// Count errors of the page that holds `address`, and have it retired when they are too many.
void JudgePage(uint64_t address, uint64_t errors) {
  const uint64_t page = address >> kPageShift;
  Shared &shared = SharedState();
  {
    MutexLock lock(shared.mutex);
    if (!shared.counts.Add(page, errors)) return;
  }
  try {
    const PageAction action = CpuPageStates().Judge(page, IsBeingRetired);
    if (action == PageAction::kReport) PostMessage<kPageErrorsHigh>(page);
    if (action != PageAction::kRetire) return Reason("page %#lx is being retired", page);
    Reason("page %#lx is to be retired", page);
    HykCtl::Util::Sysinfo("system/pageRetire/retireMPNs")
        .AddInput(static_cast<int64_t>(page))
        .AddInput(int64_t{1})
        .AddInput("NiceRetire")
        .Set();
  } catch (const std::exception &failure) {
    Log("Cannot retire page %#lx: %s\n", page, failure.what());
  }
}

/// A machine check that the kernel has logged.
void OnMachineCheck(Observation *observation) {
  std::array<uint64_t, 8> log{};
  if (Ryn_GetArgs(observation, "%lu %lu %lu %lu %lu %lu %lu %lu", &log[0], &log[1], &log[2], &log[3], &log[4], &log[5],
                  &log[6], &log[7]) != 0) {
    return;
  }
  const uint64_t status = log[1], pcpu = log[4], address = log[5], errors = log[7];
  JudgeCore(pcpu, status);
  if ((status & kStatusAddressValid) != 0) JudgePage(address, errors);
}

void OnCorrectedMemoryError(Observation *observation) {
  uint64_t address = 0;
  if (Ryn_GetArgs(observation, "%lu", &address) != 0) return;
  JudgePage(address, 1);
}

/// kept: read, and used for nothing yet.
void OnExtendedMachineCheck(Observation *observation) {
  std::array<uint64_t, 11> log{};
  Ryn_GetArgs(observation, "%lu %lu %lu %lu %lu %lu %lu %lu %lu %lu %lu", &log[0], &log[1], &log[2], &log[3], &log[4],
              &log[5], &log[6], &log[7], &log[8], &log[9], &log[10]);
}

/// kept: read, and used for nothing yet.
void OnNonMaskableInterrupt(Observation *observation) {
  uint64_t first = 0, second = 0;
  uint32_t third = 0, fourth = 0;
  Ryn_GetArgs(observation, "%lx %lx %x %u", &first, &second, &third, &fourth);
}

}  // namespace

PageStates &CpuPageStates() {
  static PageStates *const states = new PageStates;
  return *states;
}

void RefreshCpuOptions() {
  Shared &shared = SharedState();
  int64_t value = 0;
  if (ReadIntOption("PageRetire", "PageErrorCorrThreshold", &value) == 0) {
    MutexLock lock(shared.mutex);
    shared.counts.SetThreshold(static_cast<uint8_t>(value));
  }
  if (ReadIntOption("PageRetire", "PageErrorCorrPeriod", &value) != 0) return;
  const auto periodS = static_cast<uint32_t>(value);
  int timer = -1;
  {
    MutexLock lock(shared.mutex);
    if (shared.periodS == periodS) return;
    shared.periodS = periodS;
    timer = shared.resetTimer;
  }
  ArmTimer(timer, 1, periodS);
}

void ResetPageErrorCounts() {
  MutexLock lock(SharedState().mutex);
  SharedState().counts.Reset();
}

void StartCpuTimers() {
  if (const int timer = RegisterTimer("page error options", RefreshCpuOptions); timer != -1)
    ArmTimer(timer, 1, kRefreshS);
  const int resetTimer = RegisterTimer("page error period", ResetPageErrorCounts);
  uint32_t periodS = 0;
  {
    MutexLock lock(SharedState().mutex);
    SharedState().resetTimer = resetTimer;
    periodS = SharedState().periodS;
  }
  if (resetTimer != -1) ArmTimer(resetTimer, 1, periodS);
  RefreshCpuOptions();
}

std::span<const PostRow> CpuPostRows() {
  return kCpuRows;
}

std::span<const EventMessage> CpuMessages() {
  return kMessages;
}

HandlerTable CpuHandlers() {
  HandlerTable table;
  table["ryn.cpu.mce.log4"] = OnMachineCheck;
  table["ryn.cpu.mcax.log"] = OnExtendedMachineCheck;
  table["ryn.cpu.mem.ce.log"] = OnCorrectedMemoryError;
  table["ryn.cpu.nmi.ipi2.log"] = OnNonMaskableInterrupt;
  table["ryn.cpu.nmi.ipi2.savebt"] = OnNonMaskableInterrupt;
  AddPostRows<kCpuRows>(&table);
  AddSharedRows<kHyperthreadingRows>(&table);
  return table;
}

void RyndCpuCorrelator() {
  StartCpuTimers();
  RunCorrelator("cpu", "cpu", FetchIdOnly, CpuHandlers());
}

}  // namespace rynd
