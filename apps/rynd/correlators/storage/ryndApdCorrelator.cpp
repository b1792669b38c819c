// The storage APD correlator: reports each step of a device or file system through All Paths Down. It keeps no state,
// since the kernel decides when one is entered, left or has lasted too long.
#include "core/agents/runner.h"
#include "correlators/rows/defaultHandlers.h"
#include "correlators/storage/storageCorrelators.h"

namespace rynd {
namespace {

constexpr Fields kIdentifier = {{ArgType::kStr}};
constexpr Fields kIdentifierAndSeconds = {{ArgType::kStr, ArgType::kInt}};

constexpr auto kApdRows = std::to_array<PostRow>({
    {"ryn.storage.apd.start", kProblem, kIdentifier,
     "@&!*@*@(amb.problem.storage.apd.start)Device or filesystem with identifier [%s] has entered the All Paths Down "
     "state."},
    {"ryn.storage.apd.exit", kClear, kIdentifier,
     "@&!*@*@(amb.clear.storage.apd.exit)Device or filesystem with identifier [%s] has exited the All Paths Down "
     "state."},
    {"ryn.storage.apd.timeout", kProblem, kIdentifierAndSeconds,
     "@&!*@*@(amb.problem.storage.apd.timeout)Device or filesystem with identifier [%s] has entered the All Paths Down "
     "Timeout state after being in the All Paths Down state for %d seconds. I/Os will now be fast failed."},
});
static_assert(kApdRows.size() == 3);
static_assert(UniqueIds(kApdRows));

}  // namespace

std::span<const PostRow> ApdPostRows() {
  return kApdRows;
}

HandlerTable ApdHandlers() {
  HandlerTable table;
  AddPostRows<kApdRows>(&table);
  return table;
}

void RyndApdCorrelator() {
  RunCorrelator("APD", "storage.apd", LogNoCorrelator, ApdHandlers());
}

}  // namespace rynd
