// Messages and attributes of netlink, read from bytes that may be anything. Stateless: any thread.
#pragma once

#include <linux/netlink.h>
#include <linux/rtnetlink.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace rynlinuxd {

/// False, `value` untouched, when there are too few bytes.
template <typename T>
bool Load(std::span<const std::byte> bytes, T *value) {
  if (bytes.size() < sizeof *value) return false;
  std::memcpy(value, bytes.data(), sizeof *value);
  return true;
}

inline size_t Aligned(size_t size) {
  return (size + 3) & ~size_t{3};
}

/// Call `take(type, payload)` for each attribute in `bytes`; what is cut short ends it.
template <typename Take>
void ForEachAttribute(std::span<const std::byte> bytes, const Take &take) {
  rtattr header;
  while (Load(bytes, &header) && header.rta_len >= sizeof header && header.rta_len <= bytes.size()) {
    take(header.rta_type & NLA_TYPE_MASK, bytes.subspan(sizeof header, header.rta_len - sizeof header));
    bytes = bytes.subspan(std::min(Aligned(header.rta_len), bytes.size()));
  }
}

/// What a datagram says besides its messages.
struct DatagramEnd {
  bool isDone = false;         ///< the end of a dump
  bool isInterrupted = false;  ///< the dump is not of one moment
  int error = 0;               ///< the kernel's answer to a request, as errno value
};

/// Call `take(type, payload)` for each message of a datagram that is neither the end of a dump nor an answer; what is
/// cut short ends it.
template <typename Take>
DatagramEnd ForEachMessage(std::span<const std::byte> bytes, const Take &take) {
  DatagramEnd end;
  nlmsghdr header;
  while (Load(bytes, &header) && header.nlmsg_len >= sizeof header && header.nlmsg_len <= bytes.size()) {
    const auto payload = bytes.subspan(sizeof header, header.nlmsg_len - sizeof header);
    if ((header.nlmsg_flags & NLM_F_DUMP_INTR) != 0) end.isInterrupted = true;
    if (header.nlmsg_type == NLMSG_DONE) {
      end.isDone = true;
    } else if (header.nlmsg_type == NLMSG_ERROR) {
      int32_t error = 0;
      Load(payload, &error);
      end.error = -error;
    } else {
      take(header.nlmsg_type, payload);
    }
    bytes = bytes.subspan(std::min(Aligned(header.nlmsg_len), bytes.size()));
  }
  return end;
}

/// A request for all of a kind, such as RTM_GETLINK, of an address family.
template <typename Body>
std::vector<std::byte> DumpRequest(uint16_t type, uint32_t sequence, const Body &body) {
  struct {
    nlmsghdr header;
    Body body;
  } request{};
  request.header.nlmsg_len = sizeof request;
  request.header.nlmsg_type = type;
  request.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
  request.header.nlmsg_seq = sequence;
  request.body = body;
  std::vector<std::byte> bytes(sizeof request);
  std::memcpy(bytes.data(), &request, sizeof request);
  return bytes;
}

/// Up to its NUL.
inline std::string AsText(std::span<const std::byte> bytes) {
  const std::string_view text(reinterpret_cast<const char *>(bytes.data()), bytes.size());
  return std::string(text.substr(0, text.find('\0')));
}

/// A hardware address, as "52:54:00:12:34:56".
inline std::string AsHardwareAddress(std::span<const std::byte> bytes) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (const std::byte byte : bytes) {
    if (!text.empty()) text += ':';
    text += {kDigits[std::to_integer<size_t>(byte) >> 4], kDigits[std::to_integer<size_t>(byte) & 15]};
  }
  return text;
}

}  // namespace rynlinuxd
