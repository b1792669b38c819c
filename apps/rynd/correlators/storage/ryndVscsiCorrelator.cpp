// The virtual SCSI correlator: reports shared virtual disks that can't be attached, powered on or added, and NPIV
// settings that were dropped. It keeps no state.
#include "core/agents/runner.h"
#include "correlators/rows/defaultHandlers.h"
#include "correlators/storage/storageCorrelators.h"

namespace rynd {
namespace {

constexpr Fields kFilterDiskAndWorld = {{ArgType::kStr, ArgType::kStr, ArgType::kStr}};

constexpr auto kVscsiRows = std::to_array<PostRow>({
    {"ryn.vscsi.shared.hydk.filter.attach.failed", kProblem, kFilterDiskAndWorld,
     "@&!*@*@(amb.problem.vscsi.shared.hydk.filter.attach.failed)Failed to attach filter %s on disk %s using physical "
     "bus sharing for world %s as it is not supported."},
});

constexpr EventMessage kPowerOnFailed = {
    kProblem,
    "@&!*@*@(amb.problem.vscsi.shared.hydk.virtual.machine.power.on.failed)Two or more VMs (%s and %s) sharing same "
    "virtual disk are not allowed to be Powered-On on same host."};
constexpr EventMessage kNpivDropped = {
    kProblem,
    "@&!*@*@(amb.problem.vscsi.npiv.configuration.dropped)NPIV settings dropped for VDISK - scsi%u:%u (VMName: %s)."};
constexpr EventMessage kNoFreeSlot = {
    kProblem,
    "@&!*@*@(amb.problem.vscsi.shared.hydk.no.free.slot.available)No Free slot available. Maximum number of VMs "
    "supported in MSCS cluster are %u"};
constexpr EventMessage kTooManyDisks = {
    kProblem,
    "@&!*@*@(amb.problem.vscsi.shared.hydk.add.failure.max.count)Failed to add shared virtual disk. Maximum number of "
    "shared hydks supported per AMB host are %u"};
constexpr EventMessage kVscsiMessages[] = {kPowerOnFailed, kNpivDropped, kNoFreeSlot, kTooManyDisks};

void LogAttachFailure(const char * /*id*/, uint32_t field, int status) {
  switch (field) {
    case 0:
      return Log("Failed to get filterName: %d", status);
    case 1:
      return Log("Failed to get devName: %d", status);
    default:
      return Log("Failed to get worldName: %d", status);
  }
}

// Kept: the handlers below post also what they could not read, as an empty name or 0.

void OnPowerOnFailed(Observation *observation) {
  const char *first = "";
  const char *second = "";
  int status = Ryn_GetStringArg(observation, 0, &first);
  if (status != 0) Log("Failed to get VM-1 name: %d", status);
  status = Ryn_GetStringArg(observation, 1, &second);
  if (status != 0) Log("Failed to get VM-2 name: %d", status);
  PostMessage<kPowerOnFailed>(first, second);
}

void OnNpivDropped(Observation *observation) {
  uint32_t adapter = 0;
  uint32_t target = 0;
  const char *name = "";
  int status = Ryn_GetArgs(observation, "%1$u", &adapter);
  if (status != 0) Log("Failed to get adapter ID: %d", status);
  status = Ryn_GetArgs(observation, "%2$u", &target);
  if (status != 0) Log("Failed to get target ID: %d", status);
  status = Ryn_GetArgs(observation, "%3$p", &name);
  if (status != 0) Log("Failed to get VM Name: %d", status);
  PostMessage<kNpivDropped>(adapter, target, name);
}

template <const EventMessage &kMessage>
void OnLimit(Observation *observation) {
  uint32_t limit = 0;
  const int status = Ryn_GetArgs(observation, "%u", &limit);
  if (status != 0) Log("Failed to get args: %d", status);
  PostMessage<kMessage>(limit);
}

}  // namespace

std::span<const PostRow> VscsiPostRows() {
  return kVscsiRows;
}

std::span<const EventMessage> VscsiMessages() {
  return kVscsiMessages;
}

HandlerTable VscsiHandlers() {
  HandlerTable table;
  AddPostRows<kVscsiRows, LogAttachFailure>(&table);
  table["ryn.vscsi.shared.hydk.virtual.machine.power.on.failed"] = OnPowerOnFailed;
  table["ryn.vscsi.npiv.configuration.dropped"] = OnNpivDropped;
  table["ryn.vscsi.shared.hydk.no.free.slot.available"] = OnLimit<kNoFreeSlot>;
  table["ryn.vscsi.shared.hydk.add.failure.max.count"] = OnLimit<kTooManyDisks>;
  return table;
}

void RyndVscsiCorrelator() {
  RunCorrelator("vscsi", "vscsi", IgnoreObservation, VscsiHandlers());
}

}  // namespace rynd
