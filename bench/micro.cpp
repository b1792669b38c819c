// What the daemon does for each observation between its system calls, in nanoseconds.
#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "core/agents/handlerTable.h"
#include "core/agents/subscription.h"

namespace rynd {
namespace {

/// Ids that share long beginnings, as real ones do.
std::vector<std::string> MakeIds(size_t count) {
  std::vector<std::string> ids;
  for (size_t i = 0; i < count; ++i) ids.push_back("ryn.hardware.health.module.state" + std::to_string(i));
  return ids;
}

void CopyAndLookUp(benchmark::State &state) {
  const std::vector<std::string> ids = MakeIds(static_cast<size_t>(state.range(0)));
  HandlerTable table;
  for (const std::string &id : ids) table[id] = [](Observation *) {};
  size_t next = 0;
  for ([[maybe_unused]] auto _ : state) {
    HandlerTable copy = table;
    benchmark::DoNotOptimize(copy[ids[next++ % ids.size()]]);
  }
}
BENCHMARK(CopyAndLookUp)->Arg(3)->Arg(69);

void MatchAllStreams(benchmark::State &state) {
  std::vector<Subscription *> subscriptions;
  for (int i = 0; i < 25; ++i) {
    subscriptions.push_back(SubscriptionCreate());
    SubscriptionAddPrefix(subscriptions.back(), ("storage.area" + std::to_string(i)).c_str());
    SubscriptionAddId(subscriptions.back(), ("storage.exact.id" + std::to_string(i)).c_str());
  }
  for ([[maybe_unused]] auto _ : state) {
    for (const Subscription *subscription : subscriptions) {
      benchmark::DoNotOptimize(SubscriptionMatches("ryn.storage.area7.timeout", *subscription));
    }
  }
  for (Subscription *subscription : subscriptions) SubscriptionDestroy(subscription);
}
BENCHMARK(MatchAllStreams);

}  // namespace
}  // namespace rynd
