#include "correlators/storage/alarmLimiter.h"

#include "core/basics/reason.h"

namespace rynd {

bool AlarmLimiter::Pass(std::string_view key, int64_t now) {
  const int64_t *held = lastAlarms_.Find(key);
  const int64_t last = held == nullptr ? 0 : *held;
  if (now - last <= kQuietS) {
    Reason("the alarm of %s was given %ld s ago: quiet for %ld s", key.empty() ? "this kind" : key, now - last,
           kQuietS);
    return false;
  }
  lastAlarms_[key] = now;
  return true;
}

}  // namespace rynd
