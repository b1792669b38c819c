#include "models/network/bondMessage.h"

#include <linux/if.h>
#include <linux/if_bonding.h>
#include <linux/if_link.h>
#include <sys/socket.h>

#include <algorithm>

namespace rynlinuxd {
namespace {

using Bytes = std::span<const std::byte>;

void ReadBond(Bytes data, BondFacts *facts) {
  ForEachAttribute(data, [&](int type, Bytes value) {
    uint8_t mode = 0;
    if (type == IFLA_BOND_MODE && Load(value, &mode)) facts->isLacp = mode == BOND_MODE_8023AD;
    if (type != IFLA_BOND_AD_INFO) return;
    ForEachAttribute(value, [&](int kind, Bytes info) {
      if (kind == IFLA_BOND_AD_INFO_AGGREGATOR) Load(info, &facts->aggregator);
      if (kind == IFLA_BOND_AD_INFO_PARTNER_MAC)
        facts->hasPartner = std::any_of(info.begin(), info.end(), [](std::byte byte) { return byte != std::byte{0}; });
    });
  });
}

void ReadPort(Bytes data, BondFacts *facts) {
  ForEachAttribute(data, [&](int type, Bytes value) {
    uint8_t link = 0;
    switch (type) {
      case IFLA_BOND_SLAVE_MII_STATUS:
        if (Load(value, &link)) facts->hasLink = link == BOND_LINK_UP;
        break;
      case IFLA_BOND_SLAVE_PERM_HWADDR:
        facts->address = AsHardwareAddress(value);
        break;
      case IFLA_BOND_SLAVE_AD_AGGREGATOR_ID:
        Load(value, &facts->portAggregator);
        break;
      case IFLA_BOND_SLAVE_AD_ACTOR_OPER_PORT_STATE:
        Load(value, &facts->actorState);
        break;
      default:
        break;
    }
  });
}

/// False unless it is a port of a bond.
bool ReadLinkInfo(Bytes linkInfo, BondFacts *facts) {
  std::string kind, portKind;
  Bytes data, portData;
  ForEachAttribute(linkInfo, [&](int type, Bytes value) {
    if (type == IFLA_INFO_KIND) kind = AsText(value);
    if (type == IFLA_INFO_SLAVE_KIND) portKind = AsText(value);
    if (type == IFLA_INFO_DATA) data = value;
    if (type == IFLA_INFO_SLAVE_DATA) portData = value;
  });
  if (kind == "bond") ReadBond(data, facts);
  if (portKind == "bond") ReadPort(portData, facts);
  return portKind == "bond";
}

bool ParseLink(Bytes bytes, BondFacts *facts) {
  ifinfomsg header;
  if (!Load(bytes, &header) || header.ifi_family == AF_BRIDGE) return false;
  facts->index = header.ifi_index;
  facts->isUp = (header.ifi_flags & IFF_UP) != 0;
  int32_t master = 0;
  bool isPort = false;
  ForEachAttribute(bytes.subspan(Aligned(sizeof header)), [&](int type, Bytes value) {
    if (type == IFLA_IFNAME) facts->name = AsText(value);
    if (type == IFLA_MASTER) Load(value, &master);
    if (type == IFLA_LINKINFO) isPort = ReadLinkInfo(value, facts);
  });
  if (isPort) facts->bond = master;
  return facts->index > 0 && !facts->name.empty();
}

}  // namespace

BondDatagram ParseBondDatagram(Bytes bytes) {
  BondDatagram datagram;
  datagram.end = ForEachMessage(bytes, [&](uint16_t type, Bytes payload) {
    if (type != RTM_NEWLINK && type != RTM_DELLINK) return;
    BondFacts facts;
    facts.isGone = type == RTM_DELLINK;
    if (ParseLink(payload, &facts)) datagram.links.push_back(std::move(facts));
  });
  return datagram;
}

}  // namespace rynlinuxd
