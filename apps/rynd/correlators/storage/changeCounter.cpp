#include "correlators/storage/changeCounter.h"

#include "core/basics/reason.h"

namespace rynd {

void ChangeCounter::Enter(std::string_view path, Change change) {
  if (counts_.Find(path) != nullptr) {
    if (change == Change::kRemove) {
      counts_.Erase(path);
    } else {
      ++counts_[path];
    }
  } else if (change != Change::kRemove) {
    counts_[path] = change == Change::kAdd ? 0 : 1;
  }
}

bool ChangeCounter::Count(std::string_view path, Change change, int64_t now) {
  if (now - resetS_ > kResetS) {
    counts_.Clear();
    resetS_ = now;
  }
  Enter(path, change);
  // Kept: swept behind the change, not before it: a tenth change alarms after any pause, a count below is lost.
  if (now - sweepS_ > kSweepS) {
    counts_.ForEach([](uint32_t &count) {
      if (count < kAlarmCount) count = 0;
    });
    sweepS_ = now;
  }
  const uint32_t count = counts_[path];
  Reason("counter of path %s at %u, alarm at %u", path, count, kAlarmCount);
  return count == kAlarmCount;
}

}  // namespace rynd
