// The port groups and distributed ports that use the host's uplinks: where they are and which of them have lost
// something. Network correlator's thread.
#pragma once

#include <cstddef>
#include <map>
#include <set>
#include <string>
#include <tuple>
#include <utility>

namespace rynd {

/// A port group, or a port of a distributed switch.
struct UplinkPort {
  std::string name;
  std::string switchName;  ///< empty for a port group: its switch is looked up by its name
  bool operator==(const UplinkPort &) const = default;
  bool operator<(const UplinkPort &other) const {
    return std::tie(name, switchName) < std::tie(other.name, other.switchName);
  }
};

/// The virtual switch of a port group; "" when it can't be found.
std::string SwitchOfPortGroup(const std::string &portGroup);
/// True when there is such a port group, or a port of its switch. One that can't be looked up does not exist.
bool PortGroupExists(const UplinkPort &portGroup);
bool DVPortExists(const UplinkPort &port);

/// Asks the host about each port once: for the length of one decision.
class PortLookup {
 public:
  using Exists = bool (*)(const UplinkPort &);
  explicit PortLookup(Exists exists) : exists_(exists) {}
  bool operator()(const UplinkPort &port);

 private:
  Exists exists_;
  std::map<UplinkPort, bool> known_;
};

/// A loss list: which port lost something when which uplink went down. A loss that is on the list is not added again,
/// so that it holds no more than there are ports of each uplink, however often the same ones are lost.
class LossList {
 public:
  void Add(const std::string &uplink, const UplinkPort &port) { losses_.emplace(uplink, port); }
  void RemoveUplink(const std::string &uplink);
  /// Remove what is of `uplink`, or of `port`, or of a port that does not exist any more.
  void Purge(const std::string &uplink, const UplinkPort &port, PortLookup *lookup);
  bool Empty() const { return losses_.empty(); }
  size_t Size() const { return losses_.size(); }
  bool Names(const std::string &uplink) const;

 private:
  std::set<std::pair<std::string, UplinkPort>> losses_;
};

}  // namespace rynd
