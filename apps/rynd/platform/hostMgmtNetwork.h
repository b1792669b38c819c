// Host management: the host's virtual networks. Declarations only; a platform library provides them. Any thread; an
// object belongs to one at a time.
#pragma once

#include <memory>
#include <string>
#include <utility>

namespace HostMgmt::Network {

/// A named group of ports of a virtual switch.
class PortGroup {
 public:
  explicit PortGroup(std::string virtualSwitch) : virtualSwitch_(std::move(virtualSwitch)) {}
  /// The name of the virtual switch that it belongs to.
  const std::string &GetVirtualSwitchName() const { return virtualSwitch_; }

 private:
  std::string virtualSwitch_;
};

/// A port of a distributed virtual switch.
class DVPort {
 public:
  DVPort(std::string switchName, std::string port) : switch_(std::move(switchName)), port_(std::move(port)) {}
  /// True when the switch has the port now. Throws HostMgmt::Lib::HostMgmtException when that can't be found out.
  bool Exists() const;

 private:
  std::string switch_, port_;
};

// Both throw HostMgmt::Lib::HostMgmtException, which names what is asked for, when it is not there or can't be read.
class NetworkFactory {
 public:
  static std::shared_ptr<PortGroup> GetPortGroupByName(const std::string &name);
  static std::shared_ptr<DVPort> GetDVPort(const std::string &switchName, const std::string &port);
};

}  // namespace HostMgmt::Network
