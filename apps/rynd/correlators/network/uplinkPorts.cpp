#include "correlators/network/uplinkPorts.h"

#include <cxxabi.h>

#include "platform/hostMgmtNetwork.h"

namespace rynd {
namespace {

using HostMgmt::Network::NetworkFactory;

/// What `lookUp` gives, or an empty value when it throws, whatever that is: nothing that host management throws may end
/// the agent.
template <typename LookUp>
auto LookUpOrNothing(const LookUp &lookUp) -> decltype(lookUp()) try {
  return lookUp();
} catch (const abi::__forced_unwind &) {
  throw;
} catch (...) {
  return {};
}

}  // namespace

std::string SwitchOfPortGroup(const std::string &portGroup) {
  return LookUpOrNothing([&] {
    const auto found = NetworkFactory::GetPortGroupByName(portGroup);
    return found == nullptr ? std::string() : found->GetVirtualSwitchName();
  });
}

bool PortGroupExists(const UplinkPort &portGroup) {
  return LookUpOrNothing([&] { return NetworkFactory::GetPortGroupByName(portGroup.name) != nullptr; });
}

bool DVPortExists(const UplinkPort &port) {
  return LookUpOrNothing([&] {
    const auto found = NetworkFactory::GetDVPort(port.switchName, port.name);
    return found != nullptr && found->Exists();
  });
}

bool PortLookup::operator()(const UplinkPort &port) {
  const auto [place, isNew] = known_.try_emplace(port, false);
  if (isNew) place->second = exists_(port);
  return place->second;
}

void LossList::RemoveUplink(const std::string &uplink) {
  std::erase_if(losses_, [&](const auto &loss) { return loss.first == uplink; });
}

void LossList::Purge(const std::string &uplink, const UplinkPort &port, PortLookup *lookup) {
  std::erase_if(losses_, [&](const auto &loss) {
    return loss.first == uplink || loss.second == port || !(*lookup)(loss.second);
  });
}

bool LossList::Names(const std::string &uplink) const {
  const auto place = losses_.lower_bound({uplink, {}});
  return place != losses_.end() && place->first == uplink;
}

}  // namespace rynd
