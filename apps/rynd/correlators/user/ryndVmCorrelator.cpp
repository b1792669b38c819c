// The VM-kill correlator: virtual machines that the kernel had to power off. It keeps no state; its handlers run on its
// agent's thread.
#include <string>

#include "core/agents/messageFormatArgs.h"
#include "core/agents/runner.h"
#include "correlators/rows/defaultHandlers.h"
#include "correlators/rows/volumeOfPath.h"
#include "correlators/user/userCorrelators.h"

namespace rynd {
namespace {

constexpr ArgTypes kFile = {ArgType::kStr};
constexpr ArgTypes kFileAndPage = {ArgType::kStr, ArgType::kLong};
constexpr ArgTypes kFileAndPath = {ArgType::kStr, ArgType::kStr};
constexpr ArgTypes kFileActionsSeconds = {ArgType::kStr, ArgType::kInt, ArgType::kLong};

/// The arguments are extracted by the message that the kernel logs.
constexpr auto kVmRows = std::to_array<PostRow>({
    {"ryn.vm.kill.unexpected.forcefulPageRetire.64",
     kProblem,
     {kFileAndPage,
      "The virtual machine using the configuration file %s contains the host physical page %#lx that was scheduled for "
      "immediate retirement. To avoid system instability, the virtual machine has been powered off."},
     "@&!*@*@(amb.problem.vm.kill.unexpected.forcefulPageRetire.64.2)%s contained the host physical page %#lx which "
     "was "
     "scheduled for immediate retirement. To avoid system instability the virtual machine is forcefully powered off."},
    {"ryn.vm.kill.unexpected.hytrack",
     kProblem,
     {kFile,
      "The virtual machine using the configuration file %s has been powered off to prevent system instability. See the "
      "kernel log file for more details."},
     "@&!*@*@(amb.problem.vm.kill.unexpected.hytrack.2)%s is allocating too many pages while system is critically low "
     "in free memory. It is forcefully terminated to prevent system instability."},
    {"ryn.vm.kill.unexpected.fault.failure",
     kProblem,
     {kFileAndPath,
      "The virtual machine using the configuration file %s could not fault in a page from the swap file at %s. The "
      "virtual machine has been powered off."},
     "@&!*@*@(amb.problem.vm.kill.unexpected.fault.failure.2)%s could not fault in a guest physical page from the "
     "hypervisor level swap file on %s. The VM is terminated as further progress is impossible."},
    {"ryn.vm.kill.unexpected.hyx.fault.failure",
     kProblem,
     {kFile,
      "The virtual machine using the configuration file %s could not fault in a page for the virtual machine user "
      "world. The virtual machine has been powered off."},
     "@&!*@*@(amb.problem.vm.kill.unexpected.hyx.fault.failure.2)%s could not fault in a page. The VM is terminated as "
     "further progress is impossible."},
    {"ryn.vm.kill.unexpected.noSwapResponse",
     kProblem,
     {kFileActionsSeconds,
      "The virtual machine using the configuration file %s did not respond to %u swap actions in %lu seconds. To avoid "
      "system instability, the virtual machine has been powered off."},
     "@&!*@*@(amb.problem.vm.kill.unexpected.noSwapResponse.2)%s did not respond to %u swap actions in %lu seconds and "
     "is forcefully powered off to prevent system instability."},
});
static_assert(kVmRows.size() == 5);
static_assert(UniqueIds(kVmRows));

constexpr size_t kSwapFileRow = 2;

/// What an argument is that can't be extracted.
template <typename Value>
constexpr Value Unread() {
  if constexpr (std::is_same_v<Value, const char *>) return "";
  return Value{};
}

/// Kept: the event is posted in every case. What can't be extracted is an empty text or 0.
template <size_t kRow, size_t... kField>
void PostAlways(const Observation *observation, std::index_sequence<kField...>) {
  auto values = post_row::MakeValues<kVmRows, kRow>(std::index_sequence<kField...>());
  ((std::get<kField>(values) = Unread<std::tuple_element_t<kField, decltype(values)>>()), ...);
  GetArgsByMessageFormat(observation, kVmRows[kRow].fields.extraction, &std::get<kField>(values)...);
  if constexpr (kRow == kSwapFileRow) {
    const std::string volume = VolumeOfPath(std::get<1>(values));
    std::get<1>(values) = volume.c_str();
    post_row::Post<kVmRows, kRow>(values);
  } else {
    post_row::Post<kVmRows, kRow>(values);
  }
}

template <size_t kRow>
void OnVmKill(Observation *observation) {
  PostAlways<kRow>(observation, std::make_index_sequence<post_row::Count(kVmRows[kRow].fields.types)>());
}

template <size_t... kRow>
void AddHandlers(HandlerTable *table, std::index_sequence<kRow...>) {
  static_assert(std::string_view(kVmRows[kSwapFileRow].id) == "ryn.vm.kill.unexpected.fault.failure");
  (((*table)[kVmRows[kRow].id] = OnVmKill<kRow>), ...);
}

}  // namespace

std::span<const PostRow> VmPostRows() {
  return kVmRows;
}

HandlerTable VmHandlers() {
  HandlerTable table;
  AddHandlers(&table, std::make_index_sequence<kVmRows.size()>());
  return table;
}

void RyndVmCorrelator() {
  RunCorrelator("VM", "vm", LogNoCorrelator, VmHandlers());
}

}  // namespace rynd
