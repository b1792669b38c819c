// The HCM correlator: a physical disk that was inserted, removed or is about to fail. It keeps no state.
#include "core/agents/runner.h"
#include "correlators/hardware/hardwareCorrelators.h"
#include "correlators/rows/defaultHandlers.h"

namespace rynd {
namespace {

constexpr Fields kDisk = {{ArgType::kStr}, "%p"};

constexpr auto kHcmRows = std::to_array<PostRow>({
    {"ryn.hcm.event.disk.insertion", kAudit, kDisk,
     "@&!*@*@(amb.audit.hcm.event.disk.insertion)A physical disk has been inserted (%s)."},
    {"ryn.hcm.event.disk.removal", kAudit, kDisk,
     "@&!*@*@(amb.audit.hcm.event.disk.removal)A physical disk has been removed (%s)."},
    {"ryn.hcm.event.disk.predictive.failure", kProblem, kDisk,
     "@&!*@*@(amb.problem.hcm.event.disk.predictive.failure)A physical disk has a predictive failure (%s)."},
});
static_assert(kHcmRows.size() == 3);
static_assert(UniqueIds(kHcmRows));

}  // namespace

std::span<const PostRow> HcmPostRows() {
  return kHcmRows;
}

HandlerTable HcmHandlers() {
  HandlerTable table;
  AddSharedRows<kHcmRows>(&table);
  return table;
}

void RyndHcmCorrelator() {
  RunCorrelator("HCM", "hcm", IgnoreObservation, HcmHandlers());
}

}  // namespace rynd
