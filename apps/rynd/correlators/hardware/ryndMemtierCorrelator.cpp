// The memory-tiering correlator: problems of the NVMe devices that the kernel uses as a second tier of memory, one
// event an observation. It keeps no state.
#include "core/agents/runner.h"
#include "correlators/hardware/hardwareCorrelators.h"
#include "correlators/rows/defaultHandlers.h"

namespace rynd {
namespace {

constexpr Fields kDevice = {{ArgType::kStr}};
constexpr Fields kTwoNumbers = {{ArgType::kLong, ArgType::kLong}, "%lu %lu"};  // sizes in megabytes, or counts

constexpr auto kMemtierRows = std::to_array<PostRow>({
    {"ryn.memory.tiering.device.invalid.tier.partition", kProblem, kDevice,
     "@&!*@*@(amb.problem.memory.tiering.device.invalid.tier.partition)NVMe device %s does not have a valid tier "
     "partition."},
    {"ryn.memory.tiering.device.not.present", kProblem, kDevice,
     "@&!*@*@(amb.problem.memory.tiering.device.not.present)NVMe tiering device %s is not present."},
    // kept: "parititon" is what the agent knows.
    {"ryn.memory.tiering.partition.delete.failed", kProblem, kDevice,
     "@&!*@*@(amb.problem.memory.tiering.partition.delete.failed)Failed to delete the memory tiering parititon on the "
     "device %s"},
    {"ryn.memory.tiering.device.nonnvme.warning", kAudit, kDevice,
     "@&!*@*@(amb.audit.memory.tiering.device.nonnvme.warning)Using a non NVMe storage device %s, performance may be "
     "degraded."},
    {"ryn.memory.tiering.device.error", kProblem, kDevice,
     "@&!*@*@(amb.problem.memory.tiering.device.error)NVMe tiering device %s is not healthy. Please check device "
     "health monitor."},
    {"ryn.memory.tiering.enable.mirroring.failed", kProblem, kTwoNumbers,
     "@&!*@*@(amb.problem.memory.tiering.enable.mirroring.failed)Expected number of tier devices is %lu, but the "
     "number of configured tier devices is %lu."},
    {"ryn.memory.tiering.tier.size.lt.config.size", kAudit, kTwoNumbers,
     "@&!*@*@(amb.audit.memory.tiering.tier.size.lt.config.size)NVMe tier size %luMB is less than the configured size "
     "%luMB."},
    {"ryn.memory.tiering.config.size.gt.device.size", kAudit, kTwoNumbers,
     "@&!*@*@(amb.audit.memory.tiering.config.size.gt.device.size)Expected tier size from the configuration was %luMB "
     "but since the device size is insufficient, only %luMB will be used for tiering."},
});
static_assert(kMemtierRows.size() == 8);
static_assert(UniqueIds(kMemtierRows));

}  // namespace

std::span<const PostRow> MemtierPostRows() {
  return kMemtierRows;
}

HandlerTable MemtierHandlers() {
  HandlerTable table;
  AddPostRows<kMemtierRows>(&table);
  return table;
}

void RyndMemtierCorrelator() {
  RunCorrelator("Memtier", "memory", IgnoreObservation, MemtierHandlers());
}

}  // namespace rynd
