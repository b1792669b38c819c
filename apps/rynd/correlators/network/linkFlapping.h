// Takes a NIC out of service whose link goes down more often than the host's option allows. Network correlator's
// thread; told the time, in whole seconds that are never set back.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <span>
#include <string>

#include "correlators/rows/eventMessage.h"

namespace rynd {

class LinkFlapDetector {
 public:
  static constexpr int64_t kWindowS = 60;

  /// Count one loss of the link of `uplink`. More than Net/LinkFlappingThreshold of them in the window take the NIC
  /// down, post that and begin anew; 0 turns that off. Throws HostMgmt::Lib::HostMgmtException when the option can't be
  /// read or the NIC not be taken down.
  void CheckLinkFlapping(const std::string &uplink, int64_t nowS);
  /// The losses that are held of `uplink`.
  size_t CountOf(const std::string &uplink) const;

 private:
  /// The losses of one second: a link that flaps a thousand times a second takes no more room than one that does once.
  struct Losses {
    int64_t atS;
    size_t count;
  };
  std::map<std::string, std::deque<Losses>> linkFlapHistory_;
};

/// What it can post.
std::span<const EventMessage> LinkFlappingMessages();

}  // namespace rynd
