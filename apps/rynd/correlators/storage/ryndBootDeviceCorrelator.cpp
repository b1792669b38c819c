// The boot device correlator: reports when the device that the host booted from becomes inaccessible and when it
// recovers. It keeps no state, since the kernel decides.
#include "core/agents/runner.h"
#include "correlators/rows/defaultHandlers.h"
#include "correlators/storage/storageCorrelators.h"

namespace rynd {
namespace {

constexpr Fields kDevice = {{ArgType::kStr}};

// Kept: "Current State" with a capital in the time-out alone, as agents know it.
constexpr auto kBootDeviceRows = std::to_array<PostRow>({
    {"ryn.bootdevice.apd.start.v2", kProblem, kDevice,
     "@&!*@*@(amb.problem.bootdevice.apd.start.v2)Boot device '%s' is not accessible. Current state: All Paths Down. "
     "Refer to KB 415836 for more details."},
    {"ryn.bootdevice.apd.timeout.v2", kProblem, kDevice,
     "@&!*@*@(amb.problem.bootdevice.apd.timeout.v2)Boot device '%s' is not accessible. Current State: All Paths Down "
     "Timeout. Refer to KB 415836 for more details."},
    {"ryn.bootdevice.apd.exit.v2", kClear, kDevice,
     "@&!*@*@(amb.clear.bootdevice.apd.exit.v2)Boot device '%s' is accessible now. Recovered from All Paths Down "
     "state."},
    {"ryn.bootdevice.pdl.v2", kProblem, kDevice,
     "@&!*@*@(amb.problem.bootdevice.pdl.v2)Boot device '%s' is not accessible. Current state: Permanent Device Loss. "
     "Refer to KB 415836 for more details."},
    {"ryn.bootdevice.pdl.restored.v2", kClear, kDevice,
     "@&!*@*@(amb.clear.bootdevice.pdl.restored.v2)Boot device '%s' is accessible now. Recovered from Permanent Device "
     "Loss state."},
});
static_assert(kBootDeviceRows.size() == 5);
static_assert(UniqueIds(kBootDeviceRows));

}  // namespace

std::span<const PostRow> BootDevicePostRows() {
  return kBootDeviceRows;
}

HandlerTable BootDeviceHandlers() {
  HandlerTable table;
  AddPostRows<kBootDeviceRows>(&table);
  return table;
}

void RyndBootDeviceCorrelator() {
  RunCorrelator("BootDevice", "bootdevice", FetchIdOnly, BootDeviceHandlers());
}

}  // namespace rynd
