// What the contexts count for the daemon's statistics. One thread writes, so that no counter needs more than a plain
// load and store.
#include "hosted/contexts/contextCounters.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>

#include "platform/ryn.h"
#include "platform/statistics.h"

namespace hosted {
namespace {

/// A count that one thread raises and any thread reads.
class Counter {
 public:
  void Add(uint64_t more) { count_.store(Get() + more, std::memory_order_relaxed); }
  void Set(uint64_t count) { count_.store(count, std::memory_order_relaxed); }
  uint64_t Get() const { return count_.load(std::memory_order_relaxed); }

 private:
  std::atomic<uint64_t> count_{0};
};

struct ContextCounters {
  Counter records, bytes, resets, resetRecords, resetBytes;
  std::array<Counter, kRynDiscardReasons> discarded;
};

std::array<ContextCounters, kRynUserContext + 1> contexts;
Counter connectionsNow, connectionsAccepted, connectionsRefused;
/// Reasons in the order of their first use.
std::array<std::atomic<const char *>, kRynDiscardReasons> reasons;
constexpr char kOtherReason[] = "another reason";

}  // namespace

void CountRecord(uint32_t id, size_t bytes) {
  contexts[id].records.Add(1);
  contexts[id].bytes.Add(bytes);
}

size_t CountDiscard(uint32_t id, const char *reason) {
  size_t index = 0;
  for (; index < reasons.size() - 1; ++index) {
    const char *known = reasons[index].load(std::memory_order_relaxed);
    if (known == nullptr) break;
    if (known == reason || std::strcmp(known, reason) == 0) {
      contexts[id].discarded[index].Add(1);
      return index;
    }
  }
  reasons[index].store(index < reasons.size() - 1 ? reason : kOtherReason, std::memory_order_relaxed);
  contexts[id].discarded[index].Add(1);
  return index;
}

void CountReset(uint32_t id, size_t records, size_t bytes) {
  contexts[id].resets.Add(1);
  contexts[id].resetRecords.Add(records);
  contexts[id].resetBytes.Add(bytes);
}

void CountConnections(size_t now, bool accepted, bool refused) {
  connectionsNow.Set(now);
  connectionsAccepted.Add(accepted ? 1 : 0);
  connectionsRefused.Add(refused ? 1 : 0);
}

}  // namespace hosted

const char *RynLib_DiscardReason(size_t index) {
  return index < kRynDiscardReasons ? hosted::reasons[index].load(std::memory_order_relaxed) : nullptr;
}

int RynLib_GetContextStatistics(uint32_t id, RynContextStatistics *statistics) {
  *statistics = {};
  if (id > kRynUserContext) return EINVAL;
  const hosted::ContextCounters &counters = hosted::contexts[id];
  statistics->records = counters.records.Get();
  statistics->bytes = counters.bytes.Get();
  statistics->resets = counters.resets.Get();
  statistics->resetRecords = counters.resetRecords.Get();
  statistics->resetBytes = counters.resetBytes.Get();
  for (size_t i = 0; i < kRynDiscardReasons; ++i) statistics->discarded[i] = counters.discarded[i].Get();
  return 0;
}

void RynLib_GetUserStatistics(RynUserStatistics *statistics) {
  *statistics = {hosted::connectionsNow.Get(), hosted::connectionsAccepted.Get(), hosted::connectionsRefused.Get()};
}
