// What the calling thread acts upon while it posts: an observation, or a timer. Each thread for itself.
#pragma once

#include <cstdint>
#include <utility>

namespace rynd {

/// Why an event is posted. Both texts are borrowed for as long as the cause is set; at most one is not null.
struct Cause {
  const char *observationId = nullptr;
  uint64_t observationUs = 0;   ///< its time, microseconds since the epoch
  const char *timer = nullptr;  ///< what settled or came due
};

inline thread_local constinit Cause currentCause;

/// Makes `cause` the calling thread's for its own lifetime.
class CauseScope {
 public:
  explicit CauseScope(const Cause &cause) : before_(std::exchange(currentCause, cause)) {}
  ~CauseScope() { currentCause = before_; }
  CauseScope(const CauseScope &) = delete;
  CauseScope &operator=(const CauseScope &) = delete;

 private:
  Cause before_;
};

}  // namespace rynd
