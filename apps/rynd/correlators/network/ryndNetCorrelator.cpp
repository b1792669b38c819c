// The network correlator: one event for each observation of firewall, LACP, port sets, fencing, teaming and the like,
// and the handlers that settle what uplinks do. The agent's own thread.
#include <array>
#include <exception>

#include "core/agents/runner.h"
#include "correlators/network/linkFlapping.h"
#include "correlators/network/networkCorrelators.h"
#include "correlators/network/uplinkHandlers.h"
#include "correlators/network/uplinkMonitor.h"
#include "correlators/rows/defaultHandlers.h"
#include "platform/hykCtlUtil.h"
#include "platform/ryn.h"

namespace rynd {
namespace {

constexpr ArgType kStr = ArgType::kStr, kInt = ArgType::kInt;
constexpr Fields kNothing = {};
constexpr Fields kText = {{kStr}};
constexpr Fields kTextsByIndex2 = {{kStr, kStr}};
constexpr Fields kTextsByIndex3 = {{kStr, kStr, kStr}};
constexpr Fields kIntAndText = {{kInt, kStr}};
constexpr Fields kTextByFormat = {{kStr}, "%p"};
constexpr Fields kTextAndInt = {{kStr, kInt}, "%p %d"};
constexpr Fields kTwoTexts = {{kStr, kStr}, "%p %p"};
constexpr Fields kThreeTexts = {{kStr, kStr, kStr}, "%p %p %p"};
constexpr Fields kFourTexts = {{kStr, kStr, kStr, kStr}, "%p %p %p %p"};
constexpr Fields kIntAndTwoTexts = {{kInt, kStr, kStr}, "%u %p %p"};

constexpr auto kNetRows = std::to_array<PostRow>({
    {"ryn.net.migrate.bindtohyk.failed", kProblem, kText,
     "@&!*@*@(amb.problem.net.migrate.bindtohyk)The AMB advanced config option /Migrate/Hyknic is set to an invalid "
     "hyknic: '%s'.  /Migrate/Hyknic specifies a hyknic that ZMove binds to for improved performance.  Please update "
     "the config option with a valid hyknic or, if you don't want ZMove to bind to a specific hyknic, remove the "
     "invalid hyknic and leave the option blank."},
    {"ryn.net.migrate.unsupported.latency", kProblem, kIntAndTwoTexts,
     "@&!*@*@(amb.problem.net.migrate.unsupported.latency)Ambi has detected %ums round-trip zMove network latency "
     "between host %s and %s.  High latency zMove networks are only supported if both Ambi hosts have been configured "
     "for zMove latency tolerance."},
    {"ryn.net.uplink.mtu.failed", kProblem, kIntAndText,
     "@&!*@*@(amb.problem.net.uplink.mtu.failed)Hykernel failed to set the MTU value %d on the uplink %s."},
    {"ryn.net.hyknic.ip.duplicate", kProblem, kTextsByIndex3,
     "@&!*@*@(amb.problem.net.hyknic.ip.duplicate)Duplicate IP address detected for %s on interface %s, current owner "
     "being %s."},
    {"ryn.net.firewall.disabled", kAudit, kNothing,
     "@&!*@*@(amb.audit.net.firewall.disabled)Firewall has been disabled."},
    {"ryn.net.firewall.enabled", kAudit, kText,
     "@&!*@*@(amb.audit.net.firewall.enabled)Firewall has been enabled for port %s"},
    {"ryn.net.portset.port.full", kProblem, kTextAndInt,
     "@&!*@*@(amb.problem.net.portset.port.full)Portset %s has reached the maximum number of ports (%d). Cannot apply "
     "for any more free ports."},
    {"ryn.net.portset.port.connect.fail",
     kProblem,
     kTextsByIndex3,
     "@&!*@*@(amb.problem.net.proxyswitch.port.unavailable)Virtual NIC with hardware address %s failed to connect to "
     "distributed virtual port %s on switch %s. No more ports available on the host proxy switch",
     {2, 1, 0}},
    {"ryn.net.portset.port.vlan.invalidid", kProblem, kTextAndInt,
     "@&!*@*@(amb.problem.net.portset.port.vlan.invalidid)%s VLANID %d is invalid. VLAN ID has to be between 0 and "
     "4095."},
    {"ryn.net.gateway.set.failed", kProblem, kText,
     "@&!*@*@(amb.problem.net.gateway.set.failed)Cannot connect to the specified gateway %s. Failed to set it."},
    {"ryn.net.heap.belowthreshold", kProblem, kTextAndInt,
     "@&!*@*@(amb.problem.net.heap.belowthreshold)%s free size dropped below %d percent."},
    {"ryn.net.lacp.enable", kAudit, kTextByFormat, "@&!*@*@(amb.audit.net.lacp.enable)LACP for QDS %s is enabled"},
    {"ryn.net.lacp.disable", kAudit, kTextByFormat, "@&!*@*@(amb.audit.net.lacp.disable)LACP for QDS %s is disabled"},
    {"ryn.net.lacp.policy.incompatible", kProblem, kTextByFormat,
     "@&!*@*@(amb.problem.net.lacp.policy.incompatible)Current teaming policy for QDS: %s is incompatible, supported "
     "is IP hash only"},
    {"ryn.net.lacp.policy.linkstatus", kProblem, kTextByFormat,
     "@&!*@*@(amb.problem.net.lacp.policy.linkstatus)Current teaming policy for QDS %s is incompatible, supported link "
     "failover detection is link status only."},
    {"ryn.net.lacp.uplink.inactive", kProblem, kTextByFormat,
     "@&!*@*@(amb.problem.net.lacp.uplink.inactive)All uplinks on QDS %s must be active for LACP"},
    {"ryn.net.lacp.uplink.transition.down", kProblem, kTwoTexts,
     "@&!*@*@(amb.problem.net.lacp.uplink.transition.down)uplink %s on QDS %s is moved out of link aggregation group."},
    {"ryn.net.lacp.uplink.transition.up", kClear, kTwoTexts,
     "@&!*@*@(amb.clear.net.lacp.uplink.transition.up)uplink %s on QDS %s is moved into link aggregation group"},
    {"ryn.net.lacp.uplink.fail.speed", kProblem, kTwoTexts,
     "@&!*@*@(amb.problem.net.lacp.uplink.fail.speed)Speed across all uplink ports must be same, QDS %s uplink %s has "
     "different speed"},
    {"ryn.net.lacp.uplink.fail.duplex", kProblem, kTwoTexts,
     "@&!*@*@(amb.problem.net.lacp.uplink.fail.duplex)Duplex mode across all uplink ports must be full, QDS %s uplink "
     "%s has different mode"},
    {"ryn.net.lacp.uplink.blocked", kProblem, kTwoTexts,
     "@&!*@*@(amb.problem.net.lacp.uplink.blocked)uplink %s on QDS %s is blocked"},
    {"ryn.net.lacp.uplink.unblocked", kClear, kTwoTexts,
     "@&!*@*@(amb.clear.net.lacp.uplink.unblocked)uplink %s on QDS %s is unblocked"},
    {"ryn.net.lacp.uplink.connected", kAudit, kTwoTexts,
     "@&!*@*@(amb.audit.net.lacp.uplink.connected)uplink %s on QDS %s got connected"},
    {"ryn.net.lacp.uplink.disconnected", kProblem, kTwoTexts,
     "@&!*@*@(amb.problem.net.lacp.uplink.disconnected)uplink %s on QDS %s got disconnected"},
    {"ryn.net.lacp.uplink.peer.noresponse", kProblem, kTextByFormat,
     "@&!*@*@(amb.problem.net.lacp.peer.noresponse.2)No peer response on QDS %s"},
    {"ryn.net.lacp.lag.transition.down", kProblem, kTwoTexts,
     "@&!*@*@(amb.problem.net.lacp.lag.transition.down)LAG %s on QDS %s is down."},
    {"ryn.net.lacp.lag.transition.up", kClear, kTwoTexts,
     "@&!*@*@(amb.clear.net.lacp.lag.transition.up)LAG %s on QDS %s is up."},
    {"ryn.net.portset.unsupported.psclass", kProblem, kTextByFormat,
     "@&!*@*@(amb.problem.net.portset.unsupported.psclass)%s is not a Corvane supported portset class, the relevant "
     "module must be unloaded."},
    {"ryn.net.teaming.policy.invalid.uplink", kProblem, kThreeTexts,
     "@&!*@*@(amb.problem.net.teaming.policy.invalid.uplink)Failed to update teaming policy %s on portset %s due to an "
     "invalid uplink %s which disallows normal I/O."},
    {"ryn.net.rspan.teaming.uplink.io.conflict", kProblem, kFourTexts,
     "@&!*@*@(amb.problem.net.rspan.teaming.uplink.io.conflict)Failed to set RSPAN src session %s on portset %s due to "
     "it disallows uplink I/O which conflicts with %s teaming policy %s."},
    {"ryn.net.uplink.down.reason", kProblem, kTextsByIndex2,
     "@&!*@*@(amb.problem.ryn.net.uplink.down.reason)Uplink %s link down (Reason: %s)."},
});
static_assert(kNetRows.size() == 31);
static_assert(UniqueIds(kNetRows));

// Each of these two tables has one handler.
constexpr auto kFirewallConfigRows = std::to_array<PostRow>({
    {"ryn.net.firewall.config.changed", kAudit, kTwoTexts,
     "@&!*@*@(amb.audit.net.firewall.config.changed)Firewall configuration has changed. Operation '%s' for rule set %s "
     "succeeded."},
    {"ryn.net.firewall.config.failed", kProblem, kTwoTexts,
     "@&!*@*@(amb.problem.net.firewall.config.failed)Firewall configuration operation '%s' failed. The changes were "
     "not applied to rule set %s."},
});
constexpr auto kFirewallPortRows = std::to_array<PostRow>({
    {"ryn.net.firewall.port.hooked", kAudit, kText,
     "@&!*@*@(amb.audit.net.firewall.port.hooked)Port %s is now protected by Firewall."},
    {"ryn.net.firewall.port.hookfailed", kProblem, kText,
     "@&!*@*@(amb.problem.net.firewall.port.hookfailed)Adding port %s to Firewall failed."},
    {"ryn.net.firewall.port.removed", kAudit, kText,
     "@&!*@*@(amb.audit.net.firewall.port.removed)Port %s is not protected with Firewall now."},
});
static_assert(kFirewallConfigRows.size() == 2 && kFirewallPortRows.size() == 3);

constexpr EventMessage kTso6NotSupported = {
    kProblem,
    "@&!*@*@(amb.problem.net.e1000.tso6.notsupported)Guest-initiated IPv6 TCP Segmentation Offload (TSO) packets "
    "ignored. Manually disable TSO inside the guest operating system in Virtual Machine %s, or use a different virtual "
    "adapter."};
constexpr EventMessage kBadFenceId = {
    kProblem,
    "@&!*@*@(amb.problem.net.fence.port.badfenceid)Hykernel fails to set fenceId %d on distributed virtual port %s on "
    "switch %s, reason: invalid fenceId"};
constexpr EventMessage kFenceSwitchUnavailable = {
    kProblem,
    "@&!*@*@(amb.problem.net.fence.switch.unavailable)Hykernel fails to set fenceId %d on distributed virtual port %s "
    "on switch %s, reason: dvSwitch fence property is not set"};
constexpr EventMessage kFenceResourceLimited = {
    kProblem,
    "@&!*@*@(amb.problem.net.fence.resource.limited)Hykernel fails to set fenceId %d on distributed virtual port %s on "
    "switch %s, reason: maximum number of fence networks or ports have been reached"};
constexpr EventMessage kMessages[] = {kTso6NotSupported, kBadFenceId, kFenceSwitchUnavailable, kFenceResourceLimited};

/// The name of the virtual machine stands in the kernel's information about its group.
void OnTso6NotSupported(Observation *observation) {
  int32_t groupId = 0;
  if (Ryn_GetIntArg(observation, 0, &groupId) != 0) return;
  HsiVmmGroupInfo info{};
  try {
    HykCtl::Util::Sysinfo("vm/vmmGroupInfo").AddInstancePath(groupId).Get(&info, sizeof info);
  } catch (const std::exception &) {
    return;
  }
  PostMessage<kTso6NotSupported>(static_cast<const char *>(info.displayName));
}

void OnFencePortFail(Observation *observation) {
  constexpr uint32_t kBadFenceIdStatus = 0x0BAD0007;
  constexpr uint32_t kSwitchUnavailableStatus = 0x0BAD0002;
  const char *port = nullptr;
  const char *switchName = nullptr;
  int32_t fenceId = 0;
  uint32_t status = 0;
  if (Ryn_GetArgs(observation, "%p %p %d %d", &port, &switchName, &fenceId, &status) != 0) return;
  switch (status) {
    case kBadFenceIdStatus:
      return PostMessage<kBadFenceId>(fenceId, port, switchName);
    case kSwitchUnavailableStatus:
      return PostMessage<kFenceSwitchUnavailable>(fenceId, port, switchName);
    default:
      return PostMessage<kFenceResourceLimited>(fenceId, port, switchName);
  }
}

}  // namespace

std::span<const PostRow> NetPostRows() {
  return kNetRows;
}
std::span<const PostRow> NetFirewallConfigPostRows() {
  return kFirewallConfigRows;
}
std::span<const PostRow> NetFirewallPortPostRows() {
  return kFirewallPortRows;
}
std::span<const EventMessage> NetMessages() {
  return kMessages;
}

HandlerTable NetHandlers() {
  HandlerTable table;
  AddUplinkHandlers(&table);
  AddPostRows<kNetRows>(&table);
  AddSharedRows<kFirewallConfigRows>(&table);
  AddSharedRows<kFirewallPortRows>(&table);
  table["ryn.net.e1000.tso6.notsupported"] = OnTso6NotSupported;
  table["ryn.net.fence.port.fail"] = OnFencePortFail;
  return table;
}

void RyndNetCorrelator() {
  const HandlerTable table = NetHandlers();
  if (!RegisterUplinkTimer()) return;
  const int wakeFd = OpenUplinkWakePipe();
  RunCorrelatorWithTimer("net", "net", LogNoCorrelator, table, OnUplinkTimeout, &wakeFd, 1);
}

}  // namespace rynd
