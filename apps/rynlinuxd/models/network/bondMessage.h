// The kernel's messages about bonds and their ports (rtnetlink), read from bytes. Stateless: any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "models/netlinkBytes.h"

namespace rynlinuxd {

/// What one message says of one link, as far as bonds are concerned.
struct BondFacts {
  int32_t index = 0;
  bool isGone = false;
  std::string name{};
  bool isUp = false;  ///< administratively
  // A bond.
  bool isLacp = false;      ///< it is a bond, and in mode 802.3ad
  uint16_t aggregator = 0;  ///< the one that it sends through
  bool hasPartner = false;  ///< who answered it there
  // A port of a bond.
  int32_t bond = 0;             ///< index of its bond; 0 for none
  std::string address{};        ///< its permanent MAC
  bool hasLink = false;         ///< as the bond sees it
  uint16_t portAggregator = 0;  ///< the one that it belongs to
  uint8_t actorState = 0;       ///< of 802.3ad

  friend bool operator==(const BondFacts &, const BondFacts &) = default;
};

struct BondDatagram {
  std::vector<BondFacts> links{};
  DatagramEnd end{};
};

/// Read every message of one datagram; those of bridges about their ports are left out.
BondDatagram ParseBondDatagram(std::span<const std::byte> bytes);

}  // namespace rynlinuxd
