// How often an alarm may be repeated. Told the time; one agent's thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "correlators/rows/boundedMap.h"

namespace rynd {

/// One alarm a key every 300 seconds. An entry a key is kept for the whole run, but at most kMostMapEntries of them:
/// with more keys than that, those whose alarm is the oldest count as new.
class AlarmLimiter {
 public:
  static constexpr int64_t kQuietS = 300;
  /// Whether the alarm of `key` is due at `now` (whole seconds, never set back): its last was more than kQuietS ago, or
  /// at 0 when none is known. If so, `now` is its new time.
  bool Pass(std::string_view key, int64_t now);
  /// The keys that are held.
  size_t Size() const { return lastAlarms_.Size(); }

 private:
  BoundedMap<std::string, int64_t> lastAlarms_;  ///< whole seconds, never set back
};

}  // namespace rynd
