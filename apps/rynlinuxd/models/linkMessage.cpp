#include "models/linkMessage.h"

#include <linux/if.h>
#include <linux/if_link.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstring>
#include <string_view>

namespace rynlinuxd {
namespace {

/// Of IFLA_PARENT_DEV_NAME, which older headers lack.
constexpr uint16_t kParentDevName = 56;

template <typename T>
bool Load(std::span<const std::byte> bytes, T *value) {
  if (bytes.size() < sizeof *value) return false;
  std::memcpy(value, bytes.data(), sizeof *value);
  return true;
}

size_t Aligned(size_t size) {
  return (size + 3) & ~size_t{3};
}

/// Call `take(type, payload)` for each attribute in `bytes`.
template <typename Take>
void ForEachAttribute(std::span<const std::byte> bytes, const Take &take) {
  rtattr header;
  while (Load(bytes, &header) && header.rta_len >= sizeof header && header.rta_len <= bytes.size()) {
    take(header.rta_type & NLA_TYPE_MASK, bytes.subspan(sizeof header, header.rta_len - sizeof header));
    bytes = bytes.subspan(std::min(Aligned(header.rta_len), bytes.size()));
  }
}

std::string AsText(std::span<const std::byte> bytes) {
  const std::string_view text(reinterpret_cast<const char *>(bytes.data()), bytes.size());
  return std::string(text.substr(0, text.find('\0')));
}

std::string AsAddress(std::span<const std::byte> bytes) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (const std::byte byte : bytes) {
    if (!text.empty()) text += ':';
    text += {kDigits[std::to_integer<size_t>(byte) >> 4], kDigits[std::to_integer<size_t>(byte) & 15]};
  }
  return text;
}

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
        facts->address = AsAddress(value);
        break;
      case IFLA_PERM_ADDRESS:
        permanent = AsAddress(value);
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
  nlmsghdr header;
  while (Load(bytes, &header) && header.nlmsg_len >= sizeof header && header.nlmsg_len <= bytes.size()) {
    const auto payload = bytes.subspan(sizeof header, header.nlmsg_len - sizeof header);
    if ((header.nlmsg_flags & NLM_F_DUMP_INTR) != 0) datagram.isInterrupted = true;
    if (header.nlmsg_type == NLMSG_DONE) {
      datagram.isDone = true;
    } else if (header.nlmsg_type == NLMSG_ERROR) {
      int32_t error = 0;
      Load(payload, &error);
      datagram.error = -error;
    } else if (header.nlmsg_type == RTM_NEWLINK || header.nlmsg_type == RTM_DELLINK) {
      LinkFacts facts;
      facts.isGone = header.nlmsg_type == RTM_DELLINK;
      if (ParseLink(payload, &facts)) datagram.links.push_back(std::move(facts));
    }
    bytes = bytes.subspan(std::min(Aligned(header.nlmsg_len), bytes.size()));
  }
  return datagram;
}

std::vector<std::byte> LinkDumpRequest(uint32_t sequence) {
  struct {
    nlmsghdr header;
    ifinfomsg link;
  } request{};
  request.header.nlmsg_len = sizeof request;
  request.header.nlmsg_type = RTM_GETLINK;
  request.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
  request.header.nlmsg_seq = sequence;
  request.link.ifi_family = AF_UNSPEC;
  std::vector<std::byte> bytes(sizeof request);
  std::memcpy(bytes.data(), &request, sizeof request);
  return bytes;
}

}  // namespace rynlinuxd
