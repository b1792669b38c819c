// The page-retirement correlator: reports how many faulty memory pages are being retired, and kills a virtual machine
// that keeps touching one. Runs on its agent's thread.
#include "correlators/hardware/ryndPageRetireCorrelator.h"

#include <array>
#include <exception>
#include <memory>
#include <optional>
#include <string>

#include "core/agents/messageFormatArgs.h"
#include "core/agents/runner.h"
#include "core/basics/clock.h"
#include "core/basics/log.h"
#include "core/basics/reason.h"
#include "correlators/hardware/hardwareCorrelators.h"
#include "correlators/hardware/retirementReports.h"
#include "correlators/rows/defaultHandlers.h"
#include "platform/hostMgmt.h"
#include "platform/hykCtlResource.h"
#include "platform/hykCtlUtil.h"

namespace rynd {
namespace {

constexpr char kSource[] = "apps/rynd/ryndPageRetireCorrelator";  // kept: as support knows it, with the lines below

constexpr char kSelectedId[] = "ryn.pageretire.selectedmpnthreshold.host.exceeded";
constexpr char kNotRetiredId[] = "ryn.pageretire.selectedbutnotretired.high";
constexpr char kRequestId[] = "ryn.pageretire.platform.retire.request";
constexpr char kInjectedId[] = "ryn.pageretire.mce.injected";

constexpr EventMessage kSelected = {
    kProblem,
    "@&!*@*@(amb.problem.pageretire.selectedmpnthreshold.host.exceeded)Number of host physical memory pages that have "
    "been selected for retirement (%lu) exceeds threshold (%lu)."};
constexpr EventMessage kNotRetired = {
    kProblem,
    "@&!*@*@(amb.problem.pageretire.selectedbutnotretired.high)Number of host physical memory pages that have been "
    "selected for retirement but could not yet be retired is high: %lu"};
constexpr EventMessage kRequested = {kProblem,
                                     "@&!*@*@(amb.problem.pageretire.platform.retire.request)Memory page retirement "
                                     "requested by platform firmware. FRU ID: %s. Refer to System Hardware Log: %s"};
constexpr EventMessage kKilling = {
    kProblem,
    "@&!*@*@(amb.problem.pageretire.mce.injected.2)Killing %s because at least %d uncorrectable memory error machine "
    "check exceptions were injected for guest physical page %#lx but the virtual machine's operating system kept using "
    "the page."};
constexpr auto kMessages = std::to_array<EventMessage>({kSelected, kNotRetired, kRequested, kKilling});

RetirementReports &Reports() {
  static RetirementReports *const reports = new RetirementReports(0, 0);
  return *reports;
}

/// Post the event and kill the virtual machine; false when there is none that is known by this world id.
bool KillVirtualMachine(int32_t worldId, int32_t count, uint64_t page, bool repeated) {
  std::unique_ptr<HykCtl::Resource::VirtualMachine> machine;
  std::string name;
  try {
    machine = HykCtl::Resource::ResourceInfoImpl().GetVirtualMachineByWorldId(worldId);
    name = machine->GetName();
  } catch (const std::exception &failure) {
    if (!repeated) Log("Cannot kill virtual machine %d: %s\n", worldId, failure.what());
    return false;
  }
  PostMessage<kKilling>(name.c_str(), count, page);
  try {
    machine->Kill(0);
  } catch (const std::exception &failure) {
    Log("Cannot kill virtual machine %d: %s\n", worldId, failure.what());
  }
  return true;
}

/// The current value of a page-retirement option. Throws what the platform throws.
int64_t ReadOption(const char *name) {
  int64_t value = 0;
  HykCtl::Util::Sysinfo("config/intOpts").AddInstancePath("PageRetire").AddInstancePath(name).Get(&value, sizeof value);
  return value;
}

uint64_t ReadThreshold() try {
  uint64_t threshold = 0;
  HykCtl::Util::Sysinfo("system/pageRetire/threshold").Get(&threshold, sizeof threshold);
  return threshold;
} catch (const HostMgmt::Lib::HostMgmtException &) {
  Panic("NOT_REACHED %s:%d \n", kSource, 179);
}

uint64_t ReadThresholdInterval() try {
  return static_cast<uint64_t>(ReadOption("ThresholdInterval"));
} catch (const HostMgmt::Lib::HostMgmtException &) {
  Panic("NOT_REACHED %s:%d \n", kSource, 190);
}

/// Whether the firmware's requests are reported.
bool IsFirmwareLogged() try {
  return ReadOption("ApeiLoggingEnabled") != 0;
} catch (const HostMgmt::Lib::HostMgmtException &) {
  Panic("NOT_REACHED %s:%d \n", kSource, 127);
}

bool HasId(const Observation *observation, const char *exactId) {
  const char *id = nullptr;
  Ryn_GetID(observation, &id);
  return Ryn_IsID(id, exactId);
}

void OnSelected(Observation *observation) {
  uint64_t count = 0;
  if (!HasId(observation, kSelectedId)) return;
  if (GetArgsByMessageFormat(observation, "Number of MPNs selected for retirement is %lu", &count) != 0) return;
  if (Reports().Selected(count)) return PostMessage<kSelected>(count, Reports().Threshold());
  Reason("%lu pages are not above the threshold of %lu, or not by the interval above the last report", count,
         Reports().Threshold());
}

void OnNotRetired(Observation *observation) {
  uint64_t count = 0;
  if (!HasId(observation, kNotRetiredId)) return;
  if (GetArgsByMessageFormat(observation, "Number of selected but not retired MPNs is high: %lu.", &count) != 0) return;
  if (Reports().NotRetired()) return PostMessage<kNotRetired>(count);
  Reason("it is reported once in the daemon's run");
}

void OnRetireRequest(Observation *observation) {
  if (!IsFirmwareLogged()) return Reason("PageRetire/ApeiLoggingEnabled is 0: requests are not reported");
  const char *fru = nullptr;
  const char *hardwareLog = nullptr;
  constexpr char kTemplate[] =
      "Memory page retirement requested by platform firmware. FRU ID: %s. Refer to System Hardware Log: %s";
  if (GetArgsByMessageFormat(observation, kTemplate, &fru, &hardwareLog) != 0) return;
  if (HasId(observation, kRequestId)) PostMessage<kRequested>(fru, hardwareLog);
}

void OnInjected(Observation *observation) {
  constexpr char kTemplate[] = "Injected MCE for PPN %lx into virtual machine %d.";
  uint64_t page = 0;
  int32_t worldId = 0;
  std::optional<Injection> injection;
  if (HasId(observation, kInjectedId) && GetArgsByMessageFormat(observation, kTemplate, &page, &worldId) == 0) {
    injection = {worldId, page};
  }
  PageRetireInjections().Observe(WindowClockS(), injection);  // one that can't be read still lets time pass
}

}  // namespace

InjectionTable &PageRetireInjections() {
  static InjectionTable *const injections = new InjectionTable(KillVirtualMachine);
  return *injections;
}

std::span<const EventMessage> PageRetireMessages() {
  return kMessages;
}

HandlerTable PageRetireHandlers() {
  HandlerTable table;
  table[kSelectedId] = OnSelected;
  table[kNotRetiredId] = OnNotRetired;
  table[kRequestId] = OnRetireRequest;
  table[kInjectedId] = OnInjected;
  return table;
}

void StartPageRetirement() {
  const uint64_t threshold = ReadThreshold();
  Reports() = RetirementReports(threshold, ReadThresholdInterval());
}

void RyndPageRetireCorrelator() {
  StartPageRetirement();
  RunCorrelator("pageretire", "pageretire", FetchIdOnly, PageRetireHandlers());
}

}  // namespace rynd
