// Decides what is told of discarded records, and when. The poll loop's thread only.
#pragma once

#include <sys/types.h>

#include <array>
#include <cstdint>

#include "platform/ryn.h"
#include "platform/statistics.h"

namespace hosted {

/// Who sent a record of the user context; no process (0) for a kernel context's.
struct Sender {
  pid_t pid = 0;
  uid_t uid = 0;
};

/// Bad records of one context that were discarded for one reason.
struct Discarded {
  uint32_t context = 0;  ///< its id
  size_t reason = 0;     ///< as counted by ContextCounters
  uint64_t count = 0;
  Sender sender;         ///< the last one
  bool several = false;  ///< others sent some of them
};

/// The first discarded record is told at once; what follows within a second of milliseconds is held back and told as a
/// sum for each context and reason. It is told the time: milliseconds of a clock that never goes back.
class DiscardLog {
 public:
  /// Count a bad record. True when it is to be told at once, false when it is held back.
  bool Add(int64_t now, uint32_t context, size_t reason, const Sender &sender);
  bool HoldsBack() const { return held_ > 0; }
  /// Take the next sum when the second has passed. False with none left.
  bool TakeDue(int64_t now, Discarded *sum);
  /// Take the next sum whatever the time, as no more will come. False with none left; the next bad record is told at
  /// once then.
  bool TakeLast(Discarded *sum);

 private:
  bool Take(Discarded *sum);

  static constexpr int64_t kPause = 1000;
  static constexpr size_t kContexts = kRynUserContext + 1;
  std::array<std::array<Discarded, kRynDiscardReasons>, kContexts> sums_{};
  size_t held_ = 0;  ///< sums that are not 0
  bool paused_ = false;
  int64_t pauseEnd_ = 0;
};

/// Count a bad record and tell of it as DiscardLog says.
void DiscardRecord(uint32_t context, const char *reason, const Sender &sender);
/// Tell of what is held back and due. Costs nothing while nothing is.
void TellDueDiscards();
/// Tell of all that is held back.
void TellLastDiscards();

}  // namespace hosted
