// Tells of discarded records, at most once a second. The poll loop's thread only; allocates nothing.
#include "hosted/contexts/discardLog.h"

#include <time.h>

#include <cstdio>

#include "hosted/contexts/contextCounters.h"
#include "hosted/log/log.h"

namespace hosted {
namespace {

DiscardLog discardLog;

int64_t MonotonicMilliseconds() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1'000'000;
}

void Tell(const Discarded &sum, const char *more) {
  char source[80];
  if (sum.context == kRynUserContext) {
    std::snprintf(source, sizeof source, "user (%spid %d, uid %u)", sum.several ? "several programs, the last " : "",
                  sum.sender.pid, sum.sender.uid);
  } else {
    std::snprintf(source, sizeof source, "kernel-%02u", sum.context);
  }
  Log("Discarded %llu%s bad record%s of %s: %s", static_cast<unsigned long long>(sum.count), more,
      sum.count == 1 ? "" : "s", source, RynLib_DiscardReason(sum.reason));
}

}  // namespace

bool DiscardLog::Add(int64_t now, uint32_t context, size_t reason, const Sender &sender) {
  if (held_ == 0 && (!paused_ || now >= pauseEnd_)) {
    paused_ = true;
    pauseEnd_ = now + kPause;
    return true;
  }
  Discarded &sum = sums_[context][reason];
  if (sum.count == 0) {
    sum = {context, reason, 0, sender, false};
    ++held_;
  }
  if (sum.sender.pid != sender.pid || sum.sender.uid != sender.uid) sum.several = true;
  sum.sender = sender;
  ++sum.count;
  return false;
}

bool DiscardLog::Take(Discarded *sum) {
  for (auto &context : sums_) {
    for (Discarded &held : context) {
      if (held.count == 0) continue;
      *sum = held;
      held.count = 0;
      --held_;
      return true;
    }
  }
  return false;
}

bool DiscardLog::TakeDue(int64_t now, Discarded *sum) {
  if (held_ == 0 || now < pauseEnd_ || !Take(sum)) return false;
  if (held_ == 0) pauseEnd_ = now + kPause;
  return true;
}

bool DiscardLog::TakeLast(Discarded *sum) {
  if (Take(sum)) return true;
  paused_ = false;
  return false;
}

void DiscardRecord(uint32_t context, const char *reason, const Sender &sender) {
  TellDueDiscards();
  const size_t index = CountDiscard(context, reason);
  if (discardLog.Add(MonotonicMilliseconds(), context, index, sender)) Tell({context, index, 1, sender, false}, "");
}

void TellDueDiscards() {
  if (!discardLog.HoldsBack()) return;
  const int64_t now = MonotonicMilliseconds();
  Discarded sum;
  while (discardLog.TakeDue(now, &sum)) Tell(sum, " more");
}

void TellLastDiscards() {
  Discarded sum;
  while (discardLog.TakeLast(&sum)) Tell(sum, " more");
}

}  // namespace hosted
