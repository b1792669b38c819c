// The virtual networks of the host tree: net/portgroups/NAME holds a switch, net/dvports/SWITCH/PORT is there or not.
// Any thread.
#include "platform/hostMgmtNetwork.h"

#include <cerrno>
#include <cstring>

#include "hosted/host/hostTree.h"
#include "platform/hostMgmt.h"

namespace HostMgmt::Network {
namespace {

[[noreturn]] void Fail(const std::string &what, int error) {
  throw Lib::HostMgmtException("cannot find " + what + ": " + std::strerror(error));
}

std::string DVPortName(const std::string &switchName, const std::string &port) {
  return "the port " + port + " of the switch " + switchName;
}

}  // namespace

std::shared_ptr<PortGroup> NetworkFactory::GetPortGroupByName(const std::string &name) {
  std::string virtualSwitch;
  const int error = hosted::ReadHostText("net/portgroups/" + hosted::HostComponent(name.c_str()), &virtualSwitch);
  if (error != 0) Fail("the port group " + name, error);
  return std::make_shared<PortGroup>(virtualSwitch);
}

std::shared_ptr<DVPort> NetworkFactory::GetDVPort(const std::string &switchName, const std::string &port) {
  auto found = std::make_shared<DVPort>(switchName, port);
  if (!found->Exists()) Fail(DVPortName(switchName, port), ENOENT);
  return found;
}

bool DVPort::Exists() const {
  const std::string folder = "net/dvports/" + hosted::HostComponent(switch_.c_str());
  // What the file holds is nobody's business.
  const int error = hosted::HostPathExists(folder + "/" + hosted::HostComponent(port_.c_str()));
  if (error == ENOENT || error == ENAMETOOLONG) return false;
  if (error != 0) Fail(DVPortName(switch_, port_), error);
  return true;
}

}  // namespace HostMgmt::Network
