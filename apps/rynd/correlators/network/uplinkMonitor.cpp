#include "correlators/network/uplinkMonitor.h"

#include <algorithm>
#include <utility>

#include "core/basics/cause.h"
#include "core/basics/log.h"
#include "core/basics/reason.h"
#include "correlators/network/uplinkMessages.h"

namespace rynd {
namespace {

// Seconds in which a transition settles.
constexpr int64_t kPortSettleS = 2;
constexpr int64_t kLinkSettleS = 1;
constexpr int64_t kWatchdogSettleS = 7;

using Names = std::vector<std::string>;
using Ports = UplinkMonitor::Ports;
using Record = PortRecords::Record;

void LogDropped(const std::string &uplink, const UplinkPort &port) {
  Log("Too many transitions of ports of %s are undecided, dropping that of %s\n", uplink.c_str(), port.name.c_str());
}

void ReasonPortsTell(const std::string &uplink) {
  Reason("uplink %s: transitions of its ports are pending, which tell it instead", uplink);
}

/// Why a restore is not told yet.
void ReasonStillLost(const Ports &portGroups, const Ports &dvports) {
  if (!portGroups.connectivityLost.Empty()) Reason("some port group still lacks connectivity");
  if (!dvports.connectivityLost.Empty()) Reason("some DVPort still lacks connectivity");
  if (!portGroups.redundancyLost.Empty()) Reason("some port group still lacks redundancy");
  if (!dvports.redundancyLost.Empty()) Reason("some DVPort still lacks redundancy");
}

void ReasonNoSwitch(const std::string &portGroup) {
  Reason("the switch of port group %s cannot be found: its transitions are dropped", portGroup);
}

/// The names of the ports that went down, by what they have left.
struct Affected {
  Names connectivityLost, redundancyLost, redundancyDegraded;
};

/// Sort what went down with `uplink` and keep the losses.
Affected SortLosses(const std::string &uplink, const PortRecords &records, Ports *ports) {
  Affected affected;
  for (const auto &[port, remaining] : records) {
    if (remaining < 0) continue;
    if (remaining == 0) {
      affected.connectivityLost.push_back(port.name);
      ports->connectivityLost.Add(uplink, port);
    } else if (remaining == 1) {
      affected.redundancyLost.push_back(port.name);
      ports->redundancyLost.Add(uplink, port);
    } else {
      affected.redundancyDegraded.push_back(port.name);
    }
  }
  return affected;
}

/// Drop the losses that `records` of `uplink` make good, of its own kind of port and of the other. The names of the
/// ports whose connectivity is back; those whose redundancy is back join the ones that wait to be reported.
Names MakeGood(const std::string &uplink, const PortRecords &records, PortLookup lookup, Ports *own, Ports *other) {
  Names connectivityRestored;
  int32_t most = 0;
  for (const auto &[port, remaining] : records) {
    if (remaining <= 0) continue;
    most = std::max(most, remaining);
    own->connectivityLost.RemovePort(port);
    if (remaining == 1) {
      connectivityRestored.push_back(port.name);
    } else {
      own->redundancyRestored.Add(port.name);
      own->redundancyLost.RemovePort(port);
    }
  }
  // What any of them makes good goes once: a batch may be large.
  if (most > 0) {
    own->connectivityLost.RemoveUplink(uplink);
    own->connectivityLost.RemoveGone(&lookup);
    other->connectivityLost.RemoveUplink(uplink);
  }
  if (most > 1) {
    own->redundancyLost.RemoveUplink(uplink);
    own->redundancyLost.RemoveGone(&lookup);
    other->redundancyLost.RemoveUplink(uplink);
  }
  return connectivityRestored;
}

}  // namespace

std::span<const EventMessage> UplinkMessages() {
  return kUplinkMessages;
}

void UplinkMonitor::AddPortGroupRecord(const std::string &uplink, Record record, Ports::Records *records,
                                       uint32_t state, int64_t nowNs) {
  // Kept: the first one's deadline stands, unlike that of distributed ports.
  if (!records->contains(uplink)) timers_.ScheduleUplinkTimer(kPortSettleS, uplink, state, nowNs);
  const UplinkPort port = record.port;
  if (!(*records)[uplink].Append(std::move(record))) LogDropped(uplink, port);
}

void UplinkMonitor::AddDVPortRecord(const std::string &uplink, Record record, Ports::Records *records, uint32_t state,
                                    int64_t nowNs) {
  if (records->contains(uplink)) timers_.Cancel(uplink, state);
  timers_.ScheduleUplinkTimer(kPortSettleS, uplink, state, nowNs);
  const UplinkPort port = record.port;
  if (!(*records)[uplink].Replace(std::move(record))) LogDropped(uplink, port);
}

void UplinkMonitor::PortGroupUplinkDown(const std::string &uplink, const std::string &portGroup, int32_t remaining,
                                        int64_t nowNs) {
  AddPortGroupRecord(uplink, {{portGroup, ""}, remaining}, &portGroups_.downRecords, PG_DOWN, nowNs);
}

void UplinkMonitor::PortGroupUplinkUp(const std::string &uplink, const std::string &portGroup, int32_t remaining,
                                      int64_t nowNs) {
  AddPortGroupRecord(uplink, {{portGroup, ""}, remaining}, &portGroups_.upRecords, PG_UP, nowNs);
}

void UplinkMonitor::DVPortUplinkDown(const std::string &uplink, const UplinkPort &port, int32_t remaining,
                                     int64_t nowNs) {
  AddDVPortRecord(uplink, {port, remaining}, &dvports_.downRecords, DVPORT_DOWN, nowNs);
}

void UplinkMonitor::DVPortUplinkUp(const std::string &uplink, const UplinkPort &port, int32_t remaining,
                                   int64_t nowNs) {
  AddDVPortRecord(uplink, {port, remaining}, &dvports_.upRecords, DVPORT_UP, nowNs);
}

void UplinkMonitor::HynicLinkDown(const std::string &uplink, int64_t nowNs) {
  // These will say more.
  if ((timers_.PendingOf(uplink) & (PG_DOWN | DVPORT_DOWN)) != 0) return ReasonPortsTell(uplink);
  timers_.ScheduleUplinkTimer(kLinkSettleS, uplink, LINK_DOWN, nowNs);
}

void UplinkMonitor::HynicLinkUp(const std::string &uplink, int64_t nowNs) {
  if ((timers_.PendingOf(uplink) & (PG_UP | DVPORT_UP)) != 0) return ReasonPortsTell(uplink);
  timers_.ScheduleUplinkTimer(kLinkSettleS, uplink, LINK_UP, nowNs);
}

void UplinkMonitor::UplinkWatchdogTimeout(const std::string &uplink, int64_t nowNs) {
  timers_.ScheduleUplinkTimer(kWatchdogSettleS, uplink, WATCHDOG, nowNs);
  watchedSinceNs_.try_emplace(uplink, nowNs);
}

void UplinkMonitor::OnUplinkTimeout(int64_t nowNs) {
  while (const auto settled = timers_.TakeSettled(nowNs)) Settle(*settled);
}

void UplinkMonitor::Settle(const UplinkTimer &timer) {
  const std::string &uplink = timer.uplink;
  const std::string what = "uplink " + uplink + ": " + TransitionName(timer.state);
  const CauseScope cause({nullptr, 0, what.c_str()});
  // While the watchdog's window is open, all else keeps its bit and its records for the watchdog's decision. Kept: the
  // window stays open behind that decision, unless it finds a transient failure.
  const bool isWatched = timers_.IsTransitionPending(uplink, WATCHDOG);
  if (isWatched && timer.state != WATCHDOG) Reason("%s waits: the watchdog's window is open", what);
  switch (timer.state) {
    case PG_DOWN:
      return isWatched ? void() : ReportPortGroupLoss(uplink);
    case PG_UP:
      return isWatched ? void() : RestorePortGroups(uplink);
    case DVPORT_DOWN:
      return isWatched ? void() : ReportDVPortLoss(uplink);
    case DVPORT_UP:
      return isWatched ? void() : RestoreDVPorts(uplink);
    case LINK_DOWN:
      return isWatched ? void() : SettleLinkDown(uplink);
    case LINK_UP:
      return isWatched ? void() : SettleLinkUp(uplink);
    case WATCHDOG:
      return SettleWatchdog(uplink);
    default:
      Panic("Received timeout event for unknown state: %x\n", timer.state);
  }
}

void UplinkMonitor::SettleLinkDown(const std::string &uplink) {
  timers_.ClearTransitionPending(uplink, LINK_DOWN);
  if ((timers_.PendingOf(uplink) & (PG_DOWN | DVPORT_DOWN)) != 0) return ReasonPortsTell(uplink);
  PostMessage<kLinkStateDown>(uplink.c_str());
}

void UplinkMonitor::SettleLinkUp(const std::string &uplink) {
  timers_.ClearTransitionPending(uplink, LINK_UP);
  if ((timers_.PendingOf(uplink) & (PG_UP | DVPORT_UP)) != 0) return ReasonPortsTell(uplink);
  PostMessage<kLinkStateUp>(uplink.c_str());
  for (Ports *ports : {&portGroups_, &dvports_}) {
    ports->connectivityLost.RemoveUplink(uplink);
    ports->redundancyLost.RemoveUplink(uplink);
  }
  // Kept: these are posted without names, also when nothing was lost, so that the agent clears what it still holds.
  if (portGroups_.connectivityLost.Empty() && dvports_.connectivityLost.Empty()) {
    PostMessage<kConnectivityRestored>("", "", uplink.c_str());
    PostMessage<kDVPortConnectivityRestored>("", uplink.c_str());
  }
  if (portGroups_.redundancyLost.Empty() && dvports_.redundancyLost.Empty()) {
    PostMessage<kRedundancyRestored>("", "", uplink.c_str());
    PostMessage<kDVPortRedundancyRestored>("", uplink.c_str());
  }
}

void UplinkMonitor::SettleWatchdog(const std::string &uplink) {
  const uint32_t pending = timers_.PendingOf(uplink);
  const bool isUp = (pending & (PG_UP | DVPORT_UP | LINK_UP)) != 0;
  const bool isDown = (pending & (PG_DOWN | DVPORT_DOWN | LINK_DOWN)) != 0;
  if (isUp && isDown) return ForgetTransientFailure(uplink, pending);
  if (isUp || pending == WATCHDOG)
    return Reason("uplink %s: no loss within the watchdog's window, which stays", uplink);
  if (!isDown) Panic("Unknown state: %x\n", pending);
  if ((pending & PG_DOWN) != 0) return ReportPortGroupLoss(uplink);
  if ((pending & DVPORT_DOWN) != 0) return ReportDVPortLoss(uplink);
  PostMessage<kLinkStateDown>(uplink.c_str());
}

void UplinkMonitor::ForgetTransientFailure(const std::string &uplink, uint32_t pending) {
  watchedSinceNs_.erase(uplink);
  if ((pending & PG_DOWN) != 0) portGroups_.downRecords.erase(uplink);
  if ((pending & DVPORT_DOWN) != 0) dvports_.downRecords.erase(uplink);
  if ((pending & PG_UP) != 0) portGroups_.upRecords.erase(uplink);
  if ((pending & DVPORT_UP) != 0) dvports_.upRecords.erase(uplink);
  // Timers go with their bits: one that is left would report a part of this episode.
  timers_.CancelAll(uplink);
  PostMessage<kWatchdogReset>(uplink.c_str());
}

void UplinkMonitor::ReportPortGroupLoss(const std::string &uplink) {
  const auto found = portGroups_.downRecords.find(uplink);
  if (found == portGroups_.downRecords.end()) return;
  timers_.Cancel(uplink, PG_DOWN);  // a watchdog's decision may come before the timer
  const PortRecords records = std::move(found->second);
  portGroups_.downRecords.erase(found);
  const std::string virtualSwitch = SwitchOfPortGroup(records.FirstPort().name);
  if (virtualSwitch.empty()) return ReasonNoSwitch(records.FirstPort().name);
  const Affected affected = SortLosses(uplink, records, &portGroups_);
  const char *name = virtualSwitch.c_str();
  if (!affected.connectivityLost.empty()) {
    PostMessage<kConnectivityLost>(name, uplink.c_str(), JoinQuotedList(affected.connectivityLost).c_str());
  }
  if (!affected.redundancyLost.empty()) {
    PostMessage<kRedundancyLost>(name, uplink.c_str(), JoinQuotedList(affected.redundancyLost).c_str());
  }
  if (!affected.redundancyDegraded.empty()) {
    PostMessage<kRedundancyDegraded>(name, uplink.c_str(), JoinQuotedList(affected.redundancyDegraded).c_str());
  }
}

void UplinkMonitor::ReportDVPortLoss(const std::string &uplink) {
  const auto found = dvports_.downRecords.find(uplink);
  if (found == dvports_.downRecords.end()) return;
  timers_.Cancel(uplink, DVPORT_DOWN);
  const Affected affected = SortLosses(uplink, found->second, &dvports_);
  dvports_.downRecords.erase(found);
  if (!affected.connectivityLost.empty()) {
    PostMessage<kDVPortConnectivityLost>(JoinQuotedList(affected.connectivityLost).c_str(), uplink.c_str());
  }
  if (!affected.redundancyLost.empty()) {
    PostMessage<kDVPortRedundancyLost>(JoinQuotedList(affected.redundancyLost).c_str(), uplink.c_str());
  }
  if (!affected.redundancyDegraded.empty()) {
    PostMessage<kDVPortRedundancyDegraded>(JoinQuotedList(affected.redundancyDegraded).c_str(), uplink.c_str());
  }
}

void UplinkMonitor::RestorePortGroups(const std::string &uplink) {
  const auto found = portGroups_.upRecords.find(uplink);
  if (found == portGroups_.upRecords.end()) return;
  timers_.ClearTransitionPending(uplink, PG_UP);
  const PortRecords records = std::move(found->second);
  portGroups_.upRecords.erase(found);
  const std::string virtualSwitch = SwitchOfPortGroup(records.FirstPort().name);
  if (virtualSwitch.empty()) return ReasonNoSwitch(records.FirstPort().name);
  const Names restored = MakeGood(uplink, records, PortLookup(PortGroupExists), &portGroups_, &dvports_);
  ReasonStillLost(portGroups_, dvports_);
  if (!restored.empty() && portGroups_.connectivityLost.Empty() && dvports_.connectivityLost.Empty()) {
    PostMessage<kConnectivityRestored>(virtualSwitch.c_str(), JoinQuotedList(restored).c_str(), uplink.c_str());
  }
  WaitingNames &waiting = portGroups_.redundancyRestored;
  if (!waiting.Names().empty() && portGroups_.redundancyLost.Empty() && dvports_.redundancyLost.Empty()) {
    PostMessage<kRedundancyRestored>(virtualSwitch.c_str(), JoinQuotedList(waiting.Names()).c_str(), uplink.c_str());
    waiting.Clear();
  }
}

void UplinkMonitor::RestoreDVPorts(const std::string &uplink) {
  const auto found = dvports_.upRecords.find(uplink);
  if (found == dvports_.upRecords.end()) return;
  timers_.ClearTransitionPending(uplink, DVPORT_UP);
  const Names restored = MakeGood(uplink, found->second, PortLookup(DVPortExists), &dvports_, &portGroups_);
  dvports_.upRecords.erase(found);
  ReasonStillLost(portGroups_, dvports_);
  if (!restored.empty() && portGroups_.connectivityLost.Empty() && dvports_.connectivityLost.Empty()) {
    PostMessage<kDVPortConnectivityRestored>(JoinQuotedList(restored).c_str(), uplink.c_str());
  }
  WaitingNames &waiting = dvports_.redundancyRestored;
  if (!waiting.Names().empty() && portGroups_.redundancyLost.Empty() && dvports_.redundancyLost.Empty()) {
    PostMessage<kDVPortRedundancyRestored>(JoinQuotedList(waiting.Names()).c_str(), uplink.c_str());
    waiting.Clear();
  }
}

}  // namespace rynd
