// The events of settled uplink transitions.
#pragma once

#include "correlators/rows/eventMessage.h"

namespace rynd {

inline constexpr EventMessage kLinkStateDown = {
    kProblem, "@&!*@*@(amb.problem.net.hynic.linkstate.down)Physical NIC %s linkstate is down"};
inline constexpr EventMessage kLinkStateUp = {
    kClear, "@&!*@*@(amb.clear.net.hynic.linkstate.up)Physical NIC %s linkstate is up"};
inline constexpr EventMessage kWatchdogReset = {
    kProblem,
    "@&!*@*@(amb.problem.net.hynic.watchdog.reset)Uplink %s has recovered from a transient failure due to watchdog "
    "timeout"};

// Port groups: switch, uplink, names; restored: switch, names, uplink.
inline constexpr EventMessage kConnectivityLost = {
    kProblem,
    "@&!*@*@(amb.problem.net.connectivity.lost)Lost network connectivity on virtual switch %s. Physical NIC %s is "
    "down. Affected port groups: %s"};
inline constexpr EventMessage kRedundancyLost = {
    kProblem,
    "@&!*@*@(amb.problem.net.redundancy.lost)Lost uplink redundancy on virtual switch %s. Physical NIC %s is down. "
    "Affected port groups: %s"};
inline constexpr EventMessage kRedundancyDegraded = {
    kProblem,
    "@&!*@*@(amb.problem.net.redundancy.degraded)Uplink redundancy degraded on virtual switch %s. Physical NIC %s is "
    "down. Affected port groups: %s"};
inline constexpr EventMessage kConnectivityRestored = {
    kClear,
    "@&!*@*@(amb.clear.net.connectivity.restored)Network connectivity restored on virtual switch %s, portgroups: %s. "
    "Physical NIC %s is up"};
inline constexpr EventMessage kRedundancyRestored = {
    kClear,
    "@&!*@*@(amb.clear.net.redundancy.restored)Uplink redundancy restored on virtual switch %s, portgroups: %s. "
    "Physical NIC %s is up"};

// Distributed ports: names, uplink.
inline constexpr EventMessage kDVPortConnectivityLost = {
    kProblem,
    "@&!*@*@(amb.problem.net.dvport.connectivity.lost)Lost network connectivity on DVPorts: %s. Physical NIC %s is "
    "down."};
inline constexpr EventMessage kDVPortRedundancyLost = {
    kProblem,
    "@&!*@*@(amb.problem.net.dvport.redundancy.lost)Lost uplink redundancy on DVPorts: %s. Physical NIC %s is down."};
inline constexpr EventMessage kDVPortRedundancyDegraded = {
    kProblem,
    "@&!*@*@(amb.problem.net.dvport.redundancy.degraded)Uplink redundancy degraded on DVPorts: %s. Physical NIC %s is "
    "down."};
inline constexpr EventMessage kDVPortConnectivityRestored = {
    kClear,
    "@&!*@*@(amb.clear.net.dvport.connectivity.restored)Network connectivity restored on DVPorts: %s. Physical NIC %s "
    "is up"};
inline constexpr EventMessage kDVPortRedundancyRestored = {
    kClear,
    "@&!*@*@(amb.clear.net.dvport.redundancy.restored)Uplink redundancy restored on DVPorts: %s. Physical NIC %s is up "
    "recently"};

inline constexpr EventMessage kUplinkMessages[] = {kLinkStateDown,
                                                   kLinkStateUp,
                                                   kWatchdogReset,
                                                   kConnectivityLost,
                                                   kRedundancyLost,
                                                   kRedundancyDegraded,
                                                   kConnectivityRestored,
                                                   kRedundancyRestored,
                                                   kDVPortConnectivityLost,
                                                   kDVPortRedundancyLost,
                                                   kDVPortRedundancyDegraded,
                                                   kDVPortConnectivityRestored,
                                                   kDVPortRedundancyRestored};

}  // namespace rynd
