// The pending transitions of uplinks and the deadlines by which they settle, served by one timer of the daemon. Network
// correlator's thread; told the time, in nanoseconds of the monotonic clock.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace rynd {

/// What of an uplink is pending, one bit each. LINK_ is the NIC's own link, PG_ port groups, DVPORT_ distributed ports.
enum UplinkTransitionState : uint32_t {
  PG_DOWN = 0x01,
  PG_UP = 0x02,
  DVPORT_DOWN = 0x04,
  DVPORT_UP = 0x08,
  LINK_DOWN = 0x10,
  LINK_UP = 0x20,
  WATCHDOG = 0x40,
};

/// The single transition `state` in words, such as "port group down".
const char *TransitionName(uint32_t state);

/// When a transition of an uplink settles.
struct UplinkTimer {
  std::string uplink;
  uint32_t state;      ///< a single UplinkTransitionState
  int64_t deadlineNs;  ///< of the monotonic clock
};

/// Holds one mask for each name of an uplink that it has been given, for good: the host's NICs bound it.
class UplinkTimers {
 public:
  /// `timerId` is the identity of the daemon's timer that is armed for the earliest deadline.
  explicit UplinkTimers(int timerId) : timerId_(timerId) {}

  /// Make `state` of `uplink` pending for `seconds`; nothing when it is pending already.
  void ScheduleUplinkTimer(int64_t seconds, const std::string &uplink, uint32_t state, int64_t nowNs);
  /// True when all of the bits of `state` are pending.
  bool IsTransitionPending(const std::string &uplink, uint32_t state) const;
  /// All that is pending of `uplink`, as a mask.
  uint32_t PendingOf(const std::string &uplink) const;
  /// Clear the bits of `state` when all of them are pending. Their timers stay.
  void ClearTransitionPending(const std::string &uplink, uint32_t state);
  /// Clear the single bit `state` and drop its timer.
  void Cancel(const std::string &uplink, uint32_t state);
  /// Clear all that is pending of `uplink` and drop its timers.
  void CancelAll(const std::string &uplink);

  /// Take the earliest timer when it has at most one second left. None: the daemon's timer is armed for the earliest,
  /// or nothing is held.
  std::optional<UplinkTimer> TakeSettled(int64_t nowNs);
  /// The timers that are held, in no particular order.
  const std::vector<UplinkTimer> &Held() const { return uplinkTimers_; }

 private:
  const int timerId_;
  std::map<std::string, uint32_t> pendingTransitions_;
  std::vector<UplinkTimer> uplinkTimers_;  ///< a heap, the earliest deadline on top
};

}  // namespace rynd
