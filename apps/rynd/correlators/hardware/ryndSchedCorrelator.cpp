// The scheduler QoS correlator: what the kernel's scheduler refuses a virtual machine. It keeps no state.
#include "core/agents/runner.h"
#include "core/basics/log.h"
#include "correlators/hardware/hardwareCorrelators.h"
#include "correlators/rows/defaultHandlers.h"

namespace rynd {
namespace {

constexpr Fields kVirtualMachine = {{ArgType::kStr}};

constexpr auto kSchedRows = std::to_array<PostRow>({
    {"ryn.sched.latency.abort", kProblem, kVirtualMachine,
     "@&!*@*@(amb.problem.sched.latency.abort)Unable to apply latency-sensitivity setting to virtual machine %s. No "
     "valid placement on the host."},
    {"ryn.sched.qos.cmt.notsupported", kProblem, kVirtualMachine,
     "@&!*@*@(amb.problem.sched.qos.cmt.notsupported)Unable to support L3 cache monitoring for virtual machine %s. No "
     "processor capabilities."},
    {"ryn.sched.qos.cmt.noresource", kProblem, kVirtualMachine,
     "@&!*@*@(amb.problem.sched.qos.cmt.noresource)Unable to support L3 cache monitoring for virtual machine %s. Out "
     "of resources."},
    {"ryn.sched.qos.cat.notsupported", kProblem, kVirtualMachine,
     "@&!*@*@(amb.problem.sched.qos.cat.notsupported)Unable to support L3 cache allocation for virtual machine %s. No "
     "processor capabilities."},
    {"ryn.sched.qos.cat.noresource", kProblem, kVirtualMachine,
     "@&!*@*@(amb.problem.sched.qos.cat.noresource)Unable to support L3 cache allocation for virtual machine %s. Out "
     "of resources."},
});
static_assert(kSchedRows.size() == 5);
static_assert(UniqueIds(kSchedRows));

void LogArgFailure(const char * /*id*/, uint32_t /*field*/, int status) {
  Log("Failed to arg: %d\n", status);
}

}  // namespace

std::span<const PostRow> SchedPostRows() {
  return kSchedRows;
}

HandlerTable SchedHandlers() {
  HandlerTable table;
  AddPostRows<kSchedRows, LogArgFailure>(&table);
  return table;
}

void RyndSchedCorrelator() {
  RunCorrelator("sched", "sched", PrintObservation, SchedHandlers());
}

}  // namespace rynd
