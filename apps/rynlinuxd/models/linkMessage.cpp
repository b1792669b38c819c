#include "models/linkMessage.h"

#include <linux/if.h>
#include <linux/if_link.h>
#include <sys/socket.h>

#include "models/netlinkBytes.h"

namespace rynlinuxd {
namespace {

/// Of IFLA_PARENT_DEV_NAME, which older headers lack.
constexpr uint16_t kParentDevName = 56;

bool IsBridgePort(std::span<const std::byte> linkInfo) {
  bool isPort = false;
  ForEachAttribute(linkInfo, [&](int type, std::span<const std::byte> value) {
    if (type == IFLA_INFO_SLAVE_KIND) isPort = AsText(value) == "bridge";
  });
  return isPort;
}

/// One link's message. False when it is none, or a bridge's word about its port.
bool ParseLink(std::span<const std::byte> bytes, LinkFacts *facts) {
  ifinfomsg header;
  if (!Load(bytes, &header) || header.ifi_family == AF_BRIDGE) return false;
  facts->index = header.ifi_index;
  facts->isUp = (header.ifi_flags & IFF_UP) != 0;
  facts->hasCarrier = (header.ifi_flags & IFF_LOWER_UP) != 0;
  std::string permanent;
  int32_t master = 0;
  bool isPort = false;
  ForEachAttribute(bytes.subspan(Aligned(sizeof header)), [&](int type, std::span<const std::byte> value) {
    switch (type) {
      case IFLA_IFNAME:
        facts->name = AsText(value);
        break;
      case IFLA_ADDRESS:
        facts->address = AsHardwareAddress(value);
        break;
      case IFLA_PERM_ADDRESS:
        permanent = AsHardwareAddress(value);
        break;
      case kParentDevName:
        facts->parent = AsText(value);
        break;
      case IFLA_CARRIER:
        if (!value.empty()) facts->hasCarrier = value[0] != std::byte{0};
        break;
      case IFLA_CARRIER_DOWN_COUNT:
        Load(value, &facts->losses);
        break;
      case IFLA_MASTER:
        Load(value, &master);
        break;
      case IFLA_LINKINFO:
        isPort = IsBridgePort(value);
        break;
      default:
        break;
    }
  });
  if (!permanent.empty()) facts->address = permanent;
  if (isPort) facts->bridge = master;
  return facts->index > 0 && !facts->name.empty();
}

}  // namespace

LinkDatagram ParseLinkDatagram(std::span<const std::byte> bytes) {
  LinkDatagram datagram;
  datagram.end = ForEachMessage(bytes, [&](uint16_t type, std::span<const std::byte> payload) {
    if (type != RTM_NEWLINK && type != RTM_DELLINK) return;
    LinkFacts facts;
    facts.isGone = type == RTM_DELLINK;
    if (ParseLink(payload, &facts)) datagram.links.push_back(std::move(facts));
  });
  return datagram;
}

std::vector<std::byte> LinkDumpRequest(uint32_t sequence) {
  ifinfomsg all{};
  all.ifi_family = AF_UNSPEC;
  return DumpRequest(RTM_GETLINK, sequence, all);
}

}  // namespace rynlinuxd
