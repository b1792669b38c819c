// Tells of user connections that were refused, at most once a second. The poll loop's thread only; allocates nothing.
#include "hosted/contexts/refusalLog.h"

#include <array>
#include <cstdio>

#include "hosted/log/log.h"
#include "hosted/log/stall.h"

namespace hosted {

void TellRefused(const Sender *sender, const char *reason) {
  constexpr int64_t kPauseNanoseconds = 1'000'000'000;
  static int64_t lastLine = 0;
  static unsigned long long untold = 0;
  const int64_t now = MonotonicNanoseconds();
  if (lastLine != 0 && now - lastLine < kPauseNanoseconds) {
    ++untold;
    return;
  }
  lastLine = now;
  std::array<char, 64> who{}, more{};
  if (sender != nullptr) std::snprintf(who.data(), who.size(), " of pid %d, uid %u", sender->pid, sender->uid);
  if (untold > 0) std::snprintf(more.data(), more.size(), " (and %llu more since the last such line)", untold);
  untold = 0;
  Log("Refused a user connection%s: %s%s", who.data(), reason, more.data());
}

}  // namespace hosted
