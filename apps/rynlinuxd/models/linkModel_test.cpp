// Links: messages as bytes, and bursts of changes on a clock of the test's.
#include "models/linkModel.h"

#include <gtest/gtest.h>
#include <linux/if.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <cstring>

#include "models/recorder.h"

namespace rynlinuxd {
namespace {

constexpr int64_t kMs = 1'000'000;

/// A message as the kernel makes it.
struct Message {
  std::vector<std::byte> bytes{};
  void Put(const void *data, size_t size) {
    const auto *at = static_cast<const std::byte *>(data);
    bytes.insert(bytes.end(), at, at + size);
    bytes.resize((bytes.size() + 3) & ~size_t{3});
  }
  void Attribute(uint16_t type, const void *data, size_t size) {
    const rtattr header{static_cast<uint16_t>(sizeof header + size), type};
    Put(&header, sizeof header);
    Put(data, size);
  }
};

std::vector<std::byte> LinkBytes(uint16_t type, uint8_t family, const char *slaveKind) {
  Message message;
  nlmsghdr header{0, type, 0, 0, 0};
  message.Put(&header, sizeof header);
  ifinfomsg link{};
  link.ifi_family = family;
  link.ifi_index = 3;
  link.ifi_flags = IFF_UP | IFF_LOWER_UP;
  message.Put(&link, sizeof link);
  message.Attribute(IFLA_IFNAME, "eth1", 5);
  const uint8_t carrier = 0, mac[] = {0x52, 0x54, 0, 0xab, 1, 2}, permanent[] = {0x52, 0x54, 0, 0xab, 1, 9};
  message.Attribute(IFLA_CARRIER, &carrier, 1);
  message.Attribute(IFLA_PERM_ADDRESS, permanent, 6);
  message.Attribute(IFLA_ADDRESS, mac, 6);
  const uint32_t losses = 77, master = 4;
  message.Attribute(IFLA_CARRIER_DOWN_COUNT, &losses, 4);
  message.Attribute(IFLA_MASTER, &master, 4);
  message.Attribute(56, "0000:00:03.0", 13);
  Message kind;
  kind.Attribute(IFLA_INFO_SLAVE_KIND, slaveKind, std::strlen(slaveKind) + 1);
  message.Attribute(IFLA_LINKINFO | NLA_F_NESTED, kind.bytes.data(), kind.bytes.size());
  header.nlmsg_len = static_cast<uint32_t>(message.bytes.size());
  std::memcpy(message.bytes.data(), &header, sizeof header);
  return message.bytes;
}

TEST(LinkMessage, EveryFactIsReadAndNothingBeyondTheBytes) {
  const auto bytes = LinkBytes(RTM_NEWLINK, AF_UNSPEC, "bridge");
  auto both = bytes;
  const auto gone = LinkBytes(RTM_DELLINK, AF_UNSPEC, "bond");
  both.insert(both.end(), gone.begin(), gone.end());
  const LinkDatagram datagram = ParseLinkDatagram(both);
  ASSERT_EQ(datagram.links.size(), 2u);
  const LinkFacts &facts = datagram.links[0];
  EXPECT_EQ(facts.name + ' ' + facts.address + ' ' + facts.parent, "eth1 52:54:00:ab:01:09 0000:00:03.0");
  EXPECT_TRUE(facts.index == 3 && facts.isUp && !facts.hasCarrier && facts.losses == 77 && facts.bridge == 4);
  EXPECT_TRUE(datagram.links[1].isGone && datagram.links[1].bridge == 0) << "a bond is no bridge";
  // A port that leaves its bridge is no link that goes.
  EXPECT_TRUE(ParseLinkDatagram(LinkBytes(RTM_DELLINK, AF_BRIDGE, "bridge")).links.empty());
  for (size_t size = 0; size < bytes.size(); ++size) {
    const std::vector<std::byte> cut(bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(size));
    EXPECT_TRUE(ParseLinkDatagram(cut).links.empty()) << size;
  }
  for (size_t at = 16; at < bytes.size(); ++at) {
    for (const int value : {0, 1, 0x7f, 0xff}) {
      auto changed = bytes;
      changed[at] = static_cast<std::byte>(value);
      ParseLinkDatagram(changed);  // for the sanitizers
    }
  }
}

LinkFacts Nic(int32_t index, bool up, bool carrier, uint32_t losses = 0, int32_t bridge = 0) {
  LinkFacts facts;
  facts.index = index;
  facts.name = "eth" + std::to_string(index);
  facts.address = "52:54:00:00:00:0" + std::to_string(index);
  facts.parent = "0000:00:03.0";
  facts.isUp = up;
  facts.hasCarrier = carrier;
  facts.losses = losses;
  facts.bridge = bridge;
  return facts;
}

LinkFacts Bridge() {
  LinkFacts facts;
  facts.index = 9;
  facts.name = "br0";
  return facts;
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
