#include "correlators/storage/alarmLimiter.h"

namespace rynd {

bool AlarmLimiter::Pass(std::string_view key, int64_t now) {
  const int64_t *held = lastAlarms_.Find(key);
  if (now - (held == nullptr ? 0 : *held) <= kQuietS) return false;
  lastAlarms_[key] = now;
  return true;
}

}  // namespace rynd
