// The port groups and distributed ports that use the host's uplinks: where they are and which of them have lost
// something. Network correlator's thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <list>
#include <map>
#include <set>
#include <string>
#include <tuple>

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
  void Add(const std::string &uplink, const UplinkPort &port) { losses_[uplink].insert(port); }
  void RemoveUplink(const std::string &uplink) { losses_.erase(uplink); }
  void RemovePort(const UplinkPort &port);
  /// Remove the ports that do not exist any more.
  void RemoveGone(PortLookup *lookup);
  bool Empty() const { return losses_.empty(); }
  size_t Size() const;
  bool Names(const std::string &uplink) const { return losses_.contains(uplink); }

 private:
  template <typename Remove>
  void RemoveFromEach(const Remove &remove);

  std::map<std::string, std::set<UplinkPort>> losses_;  ///< no set is empty
};

/// The transitions of one uplink's ports that wait for one decision, in order of arrival.
class PortRecords {
 public:
  /// A host's largest batch is one transition of every port that an uplink serves, which are thousands.
  static constexpr size_t kMost = 65'536;
  /// What was reported of one port: how many of its uplinks are active after the transition.
  struct Record {
    UplinkPort port;
    int32_t remaining;
  };

  PortRecords() = default;
  PortRecords(PortRecords &&) = default;  // not to be copied: latest_ points into records_
  PortRecords &operator=(PortRecords &&) = default;

  /// Append `record`. False, and nothing is changed, when kMost are held.
  bool Append(Record record);
  /// Append `record` in place of the earlier one of its port. Not for records that Append() has entered.
  bool Replace(Record record);
  const UplinkPort &FirstPort() const { return records_.front().port; }
  auto begin() const { return records_.begin(); }
  auto end() const { return records_.end(); }
  size_t Size() const { return records_.size(); }

 private:
  std::list<Record> records_;
  std::map<UplinkPort, std::list<Record>::iterator> latest_;  ///< of each port that was given to Replace()
};

/// Names that wait to be listed by one event, every one in order. When they get longer than an event can carry, the
/// first are forgotten.
class WaitingNames {
 public:
  /// As JoinQuotedList() writes them. A record holds at most 18,736 bytes, a switch and an uplink among them.
  static constexpr size_t kMostBytes = 18'000;

  void Add(const std::string &name);
  void Clear() { *this = {}; }
  const std::deque<std::string> &Names() const { return names_; }

 private:
  std::deque<std::string> names_;
  size_t bytes_ = 0;
};

}  // namespace rynd
