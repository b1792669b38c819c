// The KVol container correlator: reports containers that go offline and come online. It keeps no state: the agent pairs
// the two.
#include "core/agents/runner.h"
#include "correlators/rows/defaultHandlers.h"
#include "correlators/storage/storageCorrelators.h"

namespace rynd {
namespace {

constexpr Fields kContainer = {{ArgType::kStr}};

constexpr auto kKvolRows = std::to_array<PostRow>({
    {"ryn.kvol.container.offline", kProblem, kContainer,
     "@&!*@*@(amb.problem.kvol.container.offline)KVol container (%s) has gone offline."},
    {"ryn.kvol.container.online", kClear, kContainer,
     "@&!*@*@(amb.clear.kvol.container.online)KVol container (%s) has come online."},
});
static_assert(kKvolRows.size() == 2);
static_assert(UniqueIds(kKvolRows));

}  // namespace

std::span<const PostRow> KvolPostRows() {
  return kKvolRows;
}

HandlerTable KvolHandlers() {
  HandlerTable table;
  AddPostRows<kKvolRows>(&table);
  return table;
}

void RyndKvolCorrelator() {
  RunCorrelator("Kvol", "kvol", IgnoreObservation, KvolHandlers());
}

}  // namespace rynd
