// Links: messages as bytes, and bursts of changes on a clock of the test's.
#include "models/linkModel.h"

#include <gtest/gtest.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <cstddef>
#include <cstring>

#include "models/recorder.h"
#include "models/testSupport.h"

namespace rynlinuxd {
namespace {

constexpr int64_t kMs = 1'000'000;

/// A NIC that is up, has lost its carrier 77 times, has two addresses and a place on its bus and is a bridge's port.
constexpr char kPortMessage[] =
    "800000001000000000000000000000000000000003000000010001000000000009000300657468310000000005002100000000000a003600"
    "525400ab010900000a000100525400ab01020000080030004d00000008000a000400000011003800303030303a30303a30332e3000000000"
    "100012800b0004006272696467650000";

TEST(LinkMessage, EveryFactIsReadAndNothingBeyondTheBytes) {
  const Bytes bytes = FromHex(kPortMessage);
  Bytes gone = bytes;
  gone[offsetof(nlmsghdr, nlmsg_type)] = std::byte{RTM_DELLINK};
  std::memcpy(gone.data() + gone.size() - 8, "bond", 5);  // in the place of "bridge"
  Bytes both = bytes;
  both.insert(both.end(), gone.begin(), gone.end());
  const LinkDatagram datagram = ParseLinkDatagram(both);
  ASSERT_EQ(datagram.links.size(), 2u);
  const LinkFacts &facts = datagram.links[0];
  EXPECT_EQ(facts.name + ' ' + facts.address + ' ' + facts.parent, "eth1 52:54:00:ab:01:09 0000:00:03.0");
  EXPECT_TRUE(facts.index == 3 && facts.isUp && !facts.hasCarrier && facts.losses == 77 && facts.bridge == 4);
  EXPECT_TRUE(datagram.links[1].isGone && datagram.links[1].bridge == 0) << "a bond is no bridge";
  gone[sizeof(nlmsghdr)] = std::byte{AF_BRIDGE};
  EXPECT_TRUE(ParseLinkDatagram(gone).links.empty()) << "a port that leaves its bridge is no link that goes";
  for (size_t size = 0; size < bytes.size(); ++size) {
    EXPECT_TRUE(ParseLinkDatagram(std::span(bytes).first(size)).links.empty()) << size;
  }
  ReadDamaged(bytes, ParseLinkDatagram);
}

LinkFacts Nic(int32_t index, bool up, bool carrier, uint32_t losses = 0, int32_t bridge = 0) {
  const std::string number = std::to_string(index);
  return {index, false, "eth" + number, "52:54:00:00:00:0" + number, "0000:00:03.0", up, carrier, losses, bridge};
}

LinkFacts Bridge() {
  return {.index = 9, .name = "br0"};
}

struct Links : testing::Test {
  Recorder told;
  LinkModel model{{"veth*"}, &told};
  int64_t now = 0;
  void At(int64_t ms, const LinkFacts &facts) {
    Pass(ms);
    model.Change(facts, now);
  }
  /// Let the time pass, and what falls due with it.
  void Pass(int64_t ms) {
    while (model.Due() <= ms * kMs) {
      now = std::max(now, model.Due());
      model.OnDue(now);
    }
    now = ms * kMs;
  }
};

TEST_F(Links, WhatIsNoLossIsNotTold) {
  model.Replace({Nic(1, true, true), Nic(2, true, true, 0, 9), Bridge()}, 0);
  At(100, Nic(1, false, false, 1));  // switched off, and on again with its carrier a second later
  At(200, Nic(1, true, false, 1));
  At(1200, Nic(1, true, true, 1));
  At(3000, Nic(2, true, true));  // leaves its bridge, and joins again
  At(3100, Nic(2, true, true, 0, 9));
  LinkFacts virtualLink = Nic(3, true, true);
  virtualLink.parent = "";
  At(3200, virtualLink);
  virtualLink.hasCarrier = false;
  At(3300, virtualLink);
  LinkFacts gone = Nic(2, false, false);
  gone.isGone = true;
  At(3400, gone);
  Pass(60'000);
  EXPECT_EQ(told.Take(), "");
}

TEST_F(Links, ALinkWithoutItsCarrierAfterBeingSwitchedOnCountsOnceItHadTimeToFindIt) {
  model.Replace({Nic(1, true, true)}, 0);
  At(100, Nic(1, false, false, 1));
  At(200, Nic(1, true, false, 1));
  Pass(9'000);
  EXPECT_EQ(told.Take(), "");
  Pass(20'000);
  EXPECT_EQ(told.Take(), "net.hynic.linkstate.down eth1\n");
  At(30'000, Nic(1, true, true, 1));
  Pass(40'000);
  EXPECT_EQ(told.Take(), "net.hynic.linkstate.up eth1\n");
}

TEST_F(Links, ALinkThatIsFoundIsGivenTheSameTime) {
  model.Replace({Nic(1, true, false), Nic(2, true, false)}, 0);
  At(3000, Nic(1, true, true));  // as after a boot: nothing was gained
  At(3100, Nic(3, true, false));
  At(3200, Nic(3, true, true));
  Pass(20'000);
  EXPECT_EQ(told.Take(), "") << "how they were found";
  At(21'000, Nic(2, true, true));
  EXPECT_EQ(told.Take(), "net.hynic.linkstate.up eth2\n");
  LinkModel next({}, &told);  // another run, in which the cable was pulled
  next.Replace({Nic(1, true, false)}, 0);
  EXPECT_EQ(told.Take(), "");
  next.OnDue(next.Due());
  EXPECT_EQ(told.Take(), "net.hynic.linkstate.down eth1\n");
}

TEST_F(Links, APortTellsItsBridgeAndWhatIsLeft) {
  model.Replace({Nic(1, true, true, 0, 9), Nic(2, true, true, 0, 9), Bridge()}, 0);
  At(100, Nic(1, true, false, 1, 9));
  EXPECT_EQ(told.Take(), "net.pg.uplink.transition.down eth1 br0 1 0\nnet.hynic.linkstate.down eth1\n");
  At(5000, Nic(2, true, false, 1, 9));
  At(9000, Nic(2, true, true, 1, 9));
  EXPECT_EQ(told.Take(),
            "net.pg.uplink.transition.down eth2 br0 0 0\nnet.hynic.linkstate.down eth2\n"
            "net.pg.uplink.transition.up eth2 br0 1 0\nnet.hynic.linkstate.up eth2\n");
  told.ledger.MarkStale();
  model.Retell();
  EXPECT_EQ(told.Take(),
            "net.pg.uplink.transition.down eth1 br0 1 0\nnet.hynic.linkstate.down eth1\n"
            "net.pg.uplink.transition.up eth2 br0 1 0\nnet.hynic.linkstate.up eth2\n");
  LinkFacts gone = Bridge();
  gone.isGone = true;
  At(10'000, gone);
  EXPECT_EQ(model.TakeGoneBridges(), std::vector<std::string>{"br0"});
}

TEST_F(Links, TheLastWordIsSaidOnceAndOnlyWhereTheDaemonMayBeWrong) {
  model.Replace({Nic(1, true, true), Nic(2, true, true, 0, 9), Bridge()}, 0);
  At(100, Nic(1, true, false, 1));
  At(300, Nic(1, true, true, 1));
  Pass(10'000);
  EXPECT_EQ(told.Take(), "net.hynic.linkstate.down eth1\nnet.hynic.linkstate.up eth1\n") << "settles by itself";
  At(10'100, Nic(1, true, false, 2));
  At(10'300, Nic(1, true, true, 2));
  At(10'500, Nic(1, true, false, 3));
  told.Take();
  Pass(11'999);
  EXPECT_EQ(told.Take(), "") << "not inside of the daemon's window";
  Pass(30'000);
  EXPECT_EQ(told.Take(), "net.hynic.linkstate.down eth1 again\n");
  // A port's word waits longer, and is not said more than once a direction in two seconds.
  for (int i = 0; i < 5; ++i) At(40'000 + 100 * i, Nic(2, true, i % 2 != 0, static_cast<uint32_t>(1 + i / 2), 9));
  EXPECT_EQ(told.CountOf("net.pg.uplink"), 2u);
  told.Take();
  Pass(42'800);
  EXPECT_EQ(told.Take(), "");
  Pass(50'000);
  EXPECT_TRUE(told.Take().starts_with(
      "net.pg.uplink.transition.down eth2 br0 0 0 again\nnet.hynic.linkstate.down eth2 again\n"));
  EXPECT_EQ(model.Due(), INT64_MAX) << "nothing is waited for on a host at rest";
}

TEST_F(Links, LossesAreCountedExactlyHoweverManyMessagesAreMissing) {
  model.Replace({Nic(1, true, true, 5)}, 0);
  uint32_t losses = 5;
  // Four minutes of it; some messages say that much happened, some are late.
  for (int i = 1; i <= 2400; ++i) {
    losses += static_cast<uint32_t>(i % 7);
    At(100 * i, Nic(1, true, i % 3 != 0, i % 11 == 0 ? losses - 3 : losses));
  }
  At(240'100, Nic(1, true, false, losses));
  Pass(300'000);
  EXPECT_LT(told.CountOf("linkstate"), 100u + LinkModel::kMostTold) << "the daemon is not flooded";
  uint64_t counted = 0;
  for (const Report &report : told.reports) {
    if (report.id == "ryn.external.warning")
      counted += std::strtoul(report.arguments[2].text.c_str() + 18, nullptr, 10);
  }
  EXPECT_EQ(counted, losses - 5);
  EXPECT_TRUE(told.Take().ends_with("net.hynic.linkstate.down eth1 again\n")) << "the last state is the last word";
}

TEST_F(Links, AThousandLinksAndNamesThatPatternsMake) {
  std::vector<LinkFacts> links;
  for (int32_t i = 1; i <= 1000; ++i) {
    LinkFacts facts = Nic(i, true, true);
    facts.parent = "";
    facts.name = (i % 2 == 0 ? "veth" : "tap") + std::to_string(i);
    links.push_back(facts);
  }
  model.Replace(links, 0);
  EXPECT_EQ(model.Nics(), 500u);
  for (LinkFacts &facts : links) facts.hasCarrier = false;
  model.Replace(links, kMs);
  EXPECT_EQ(told.CountOf("net.hynic.linkstate.down veth"), 500u);
  model.Replace({}, 2 * kMs);
  EXPECT_EQ(model.Nics(), 0u);
  Pass(60'000);
}

}  // namespace
}  // namespace rynlinuxd
