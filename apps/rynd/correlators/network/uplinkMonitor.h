// Turns what the kernel reports of the host's uplinks, port by port, into one event for each class of loss or restore
// once a transition has settled. Network correlator's thread; told the time, in nanoseconds of the monotonic clock.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <vector>

#include "correlators/network/uplinkPorts.h"
#include "correlators/network/uplinkTimers.h"
#include "correlators/rows/eventMessage.h"

namespace rynd {

/// `names` (a container of texts) as an event lists them: each between double quotes, separated by ", ".
template <typename Names>
std::string JoinQuotedList(const Names &names) {
  std::string list;
  for (const std::string &name : names) list.append(list.empty() ? "\"" : ", \"").append(name).append("\"");
  return list;
}

class UplinkMonitor {
 public:
  /// One kind of port: what was reported and waits, by uplink, and what is lost. Records are there exactly while their
  /// transition is pending. More than PortRecords holds of one uplink and kind are dropped, which is logged: only where
  /// nothing decides them any more, which a watchdog that found no transient failure leaves behind.
  struct Ports {
    using Records = std::map<std::string, PortRecords>;
    Records downRecords, upRecords;
    LossList connectivityLost, redundancyLost;
    /// Ports whose redundancy is back, until an event can say so: as often as they came back.
    WaitingNames redundancyRestored;
  };

  /// `timerId` is the identity of the daemon's timer that calls for OnUplinkTimeout().
  explicit UplinkMonitor(int timerId) : timers_(timerId) {}

  // A transition of `uplink`, or of a port that uses it and has `remaining` active uplinks left.
  void PortGroupUplinkDown(const std::string &uplink, const std::string &portGroup, int32_t remaining, int64_t nowNs);
  void PortGroupUplinkUp(const std::string &uplink, const std::string &portGroup, int32_t remaining, int64_t nowNs);
  void DVPortUplinkDown(const std::string &uplink, const UplinkPort &port, int32_t remaining, int64_t nowNs);
  void DVPortUplinkUp(const std::string &uplink, const UplinkPort &port, int32_t remaining, int64_t nowNs);
  void HynicLinkDown(const std::string &uplink, int64_t nowNs);
  void HynicLinkUp(const std::string &uplink, int64_t nowNs);
  void UplinkWatchdogTimeout(const std::string &uplink, int64_t nowNs);
  /// Decide all that has settled, and arm the timer for what has not.
  void OnUplinkTimeout(int64_t nowNs);

  /// The uplinks whose watchdog has timed out and was not taken for a transient failure, and since when (`nowNs`): they
  /// report nothing meanwhile.
  const std::map<std::string, int64_t> &WatchedSince() const { return watchedSinceNs_; }
  UplinkTimers &Timers() { return timers_; }
  const Ports &PortGroups() const { return portGroups_; }
  const Ports &DVPorts() const { return dvports_; }

 private:
  void Settle(const UplinkTimer &timer);
  void SettleLinkDown(const std::string &uplink);
  void SettleLinkUp(const std::string &uplink);
  void SettleWatchdog(const std::string &uplink);
  void ForgetTransientFailure(const std::string &uplink, uint32_t pending);
  void ReportPortGroupLoss(const std::string &uplink);
  void ReportDVPortLoss(const std::string &uplink);
  void RestorePortGroups(const std::string &uplink);
  void RestoreDVPorts(const std::string &uplink);

  void AddPortGroupRecord(const std::string &uplink, PortRecords::Record record, Ports::Records *records,
                          uint32_t state, int64_t nowNs);
  void AddDVPortRecord(const std::string &uplink, PortRecords::Record record, Ports::Records *records, uint32_t state,
                       int64_t nowNs);

  UplinkTimers timers_;
  Ports portGroups_, dvports_;
  std::map<std::string, int64_t> watchedSinceNs_;
};

/// What it can post.
std::span<const EventMessage> UplinkMessages();

}  // namespace rynd
