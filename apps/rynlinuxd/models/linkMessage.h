// The kernel's messages about links (rtnetlink), read from bytes. Stateless: any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "models/netlinkBytes.h"

namespace rynlinuxd {

/// What one message says of one link.
struct LinkFacts {
  int32_t index = 0;
  bool isGone = false;
  std::string name{};
  std::string address{};  ///< the permanent MAC where there is one, as "52:54:00:12:34:56"; "" for none
  std::string parent{};   ///< the device behind it, such as a PCI address; "" for none
  bool isUp = false;      ///< administratively
  bool hasCarrier = false;
  uint32_t losses = 0;  ///< of the carrier, since the link was made
  int32_t bridge = 0;   ///< index of the bridge that it is a port of; 0 for none
};

struct LinkDatagram {
  std::vector<LinkFacts> links{};
  DatagramEnd end{};
};

/// Read every message of one datagram. What is cut short ends the reading; messages of bridges about their ports, and
/// of other kinds, are left out.
LinkDatagram ParseLinkDatagram(std::span<const std::byte> bytes);

/// A request for all links.
std::vector<std::byte> LinkDumpRequest(uint32_t sequence);

}  // namespace rynlinuxd
