// Bonds from messages of a Linux 6.1: two ports, first in step with their partner, then one after the other not.
#include <gtest/gtest.h>

#include "models/network/bondModel.h"
#include "models/recorder.h"
#include "models/testSupport.h"

namespace rynlinuxd {
namespace {

/// As they came, without what has nothing to do with bonds.
constexpr char kBondMessage[] =
    "780000001000020000000000be000000000001000500000043140100000000000a000300626f6e64300000004c00120009000100626f6e"
    "64000000003c00020005000100040000003000170006000100010000000600020002000000060003000f000000060004000f0000000a00"
    "0500cee25fb5f69d0000";
constexpr char kPortMessage[] =
    "b40000001000020000000000be00000000000100080000004318010000000000070003007030000008000a000500000084001200090001"
    "00766574680000000009000400626f6e6400000000680005000500010000000000050002000000000008000300000000000a0004006a15"
    "8fb610fa0000060005000000000008000900000000000600060001000000050007003f000000060008003f00000005000b000000000005"
    "000c000000000006000a00ff000000";

BondFacts Read(const char *hex) {
  const BondDatagram datagram = ParseBondDatagram(FromHex(hex));
  EXPECT_EQ(datagram.links.size(), 1u);
  return datagram.links.empty() ? BondFacts{} : datagram.links[0];
}

TEST(BondMessages, BondsAndTheirPortsAreRead) {
  const BondFacts bond = Read(kBondMessage), port = Read(kPortMessage);
  EXPECT_EQ(bond.name + ' ' + port.name + ' ' + port.address, "bond0 p0 6a:15:8f:b6:10:fa");
  EXPECT_TRUE(bond.isUp && bond.isLacp && bond.hasPartner && bond.aggregator == 1 && bond.bond == 0);
  EXPECT_TRUE(port.isUp && port.hasLink && port.bond == bond.index && port.portAggregator == 1 &&
              port.actorState == 63 && !port.isLacp);
  for (const char *hex : {kBondMessage, kPortMessage}) ReadDamaged(FromHex(hex), ParseBondDatagram);
}

class Host {
 public:
  Recorder recorder;
  BondModel model{&recorder.ledger, &recorder};
  BondFacts bond = Read(kBondMessage), first = Read(kPortMessage), second = first;
  int64_t nowNs = 0;

  Host() {
    second.index = 10;
    second.name = "p1";
    second.address = "de:0d:50:28:e2:82";
  }
  /// What is told once all of it is so for `seconds`.
  std::string After(double seconds) {
    for (const BondFacts *facts : {&bond, &first, &second}) model.Change(*facts, nowNs);
    return Wait(seconds);
  }
  std::string Wait(double seconds) {
    const int64_t endNs = nowNs + static_cast<int64_t>(seconds * 1e9);
    while (model.Due() <= endNs) {
      nowNs = std::max(nowNs, model.Due());
      model.OnDue(nowNs);
    }
    nowNs = endNs;
    return recorder.Take();
  }
  void Remove(const BondFacts &facts) {
    BondFacts gone = facts;
    gone.isGone = true;
    model.Change(gone, nowNs);
  }
};

TEST(Bonds, EachLossIsToldAndItsEnd) {
  Host host;
  host.model.Replace({host.first, host.second, host.bond}, 0);
  EXPECT_EQ(host.After(60), "") << "as it is";
  // A cable is pulled.
  host.first.hasLink = false;
  host.first.actorState = 15;
  EXPECT_EQ(host.After(0.5), "");
  EXPECT_EQ(host.After(2), "net.lacp.uplink.disconnected p0 bond0\nnet.lacp.uplink.transition.down p0 bond0\n");
  // The partner of the other falls silent: the kernel goes on sending by itself, through an aggregator of its own.
  host.second.portAggregator = 2;
  host.second.actorState = 79;
  host.bond.aggregator = 2;
  host.bond.hasPartner = false;
  EXPECT_EQ(host.After(2), "net.lacp.uplink.transition.down p1 bond0\nnet.lacp.lag.transition.down bond0 bond0\n");
  EXPECT_EQ(host.After(600), "");
  host.recorder.ledger.MarkStale();
  host.model.Retell(host.nowNs);
  EXPECT_EQ(host.recorder.reports.size(), 4u) << "all that is open, to a new daemon";
  host.recorder.Take();
  host.second.portAggregator = host.bond.aggregator = 1;
  host.second.actorState = host.first.actorState = 63;
  host.bond.hasPartner = host.first.hasLink = true;
  EXPECT_EQ(host.After(2),
            "net.lacp.uplink.connected p0 bond0\nnet.lacp.uplink.transition.up p0 bond0\n"
            "net.lacp.uplink.transition.up p1 bond0\nnet.lacp.lag.transition.up bond0 bond0\n");
}

TEST(Bonds, WhatIsMadeOrSwitchedOffLosesNothing) {
  Host host;
  host.model.Replace({}, 0);
  // Made, with ports that find their partner after a while.
  host.first.hasLink = host.second.hasLink = host.bond.hasPartner = false;
  host.first.actorState = host.second.actorState = 71;
  EXPECT_EQ(host.After(3), "net.lacp.enable bond0\n");
  host.first.hasLink = host.second.hasLink = true;
  EXPECT_EQ(host.After(3), "net.lacp.uplink.connected p0 bond0\nnet.lacp.uplink.connected p1 bond0\n");
  host.bond.hasPartner = true;
  host.first.actorState = 63;
  EXPECT_EQ(host.After(3), "");
  EXPECT_EQ(host.After(60), "net.lacp.uplink.transition.down p1 bond0\n") << "one never does";
  // A port is switched off and on; then the bond.
  host.first.isUp = host.first.hasLink = false;
  host.first.actorState = 7;
  host.second.actorState = 63;
  EXPECT_EQ(host.After(60), "net.lacp.uplink.transition.up p1 bond0\n");
  host.first.isUp = true;
  EXPECT_EQ(host.After(5), "");
  host.first.hasLink = true;
  host.first.actorState = 63;
  EXPECT_EQ(host.After(5), "");
  host.bond.isUp = host.bond.hasPartner = false;
  EXPECT_EQ(host.After(100), "");
  host.bond.isUp = true;
  EXPECT_EQ(host.After(5), "");
  host.bond.hasPartner = true;
  EXPECT_EQ(host.After(5), "");
  // A flap between two looks; one that leaves and returns; and one that does not.
  host.first.hasLink = false;
  host.After(0.3);
  host.first.hasLink = true;
  EXPECT_EQ(host.After(5), "");
  const int32_t bond = std::exchange(host.first.bond, 0);
  host.After(0.3);
  host.first.bond = bond;
  EXPECT_EQ(host.After(5), "");
  host.first.bond = 0;
  EXPECT_EQ(host.After(5), "net.lacp.uplink.disconnected p0 bond0\n");
  // The bond is removed: its ports leave it first.
  host.second.bond = 0;
  host.model.Change(host.second, host.nowNs);
  host.Remove(host.bond);
  EXPECT_EQ(host.Wait(60), "net.lacp.disable bond0\n");
  EXPECT_FALSE(host.model.HasBonds());
}

TEST(Bonds, OtherModesAreNotOfInterestAndLostMessagesAreMadeUpFor) {
  Host host;
  host.model.Replace({host.bond, host.first, host.second}, 0);
  host.recorder.Take();
  host.bond.isLacp = false;
  EXPECT_EQ(host.After(60), "net.lacp.disable bond0\n");
  host.first.hasLink = false;
  EXPECT_EQ(host.After(60), "");
  host.bond.isLacp = host.first.hasLink = true;
  EXPECT_EQ(host.After(60), "net.lacp.enable bond0\n") << "its ports were never away";
  host.model.Replace({host.bond, host.second}, host.nowNs);
  EXPECT_EQ(host.Wait(60), "net.lacp.uplink.disconnected p0 bond0\n");
  host.model.Replace({host.second}, host.nowNs);
  EXPECT_EQ(host.Wait(60), "net.lacp.disable bond0\n");
  // A run before this one knew of it.
  host.recorder.ledger.RecordTold({"", "", {}, "lacp of bond7", "on"}, 1);
  BondModel later(&host.recorder.ledger, &host.recorder);
  later.Replace({}, 0);
  EXPECT_EQ(host.recorder.Take(), "net.lacp.disable bond7\n");
}

}  // namespace
}  // namespace rynlinuxd
