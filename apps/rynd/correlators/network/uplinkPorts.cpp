#include "correlators/network/uplinkPorts.h"

#include <cxxabi.h>

#include <iterator>
#include <utility>

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

template <typename Remove>
void LossList::RemoveFromEach(const Remove &remove) {
  for (auto place = losses_.begin(); place != losses_.end();) {
    remove(&place->second);
    place = place->second.empty() ? losses_.erase(place) : std::next(place);
  }
}

void LossList::RemovePort(const UplinkPort &port) {
  RemoveFromEach([&](std::set<UplinkPort> *ports) { ports->erase(port); });
}

void LossList::RemoveGone(PortLookup *lookup) {
  RemoveFromEach([&](std::set<UplinkPort> *ports) {
    std::erase_if(*ports, [&](const UplinkPort &port) { return !(*lookup)(port); });
  });
}

size_t LossList::Size() const {
  size_t size = 0;
  for (const auto &[uplink, ports] : losses_) size += ports.size();
  return size;
}

bool PortRecords::Append(Record record) {
  if (records_.size() >= kMost) return false;
  records_.push_back(std::move(record));
  return true;
}

bool PortRecords::Replace(Record record) {
  const auto earlier = latest_.find(record.port);
  if (earlier != latest_.end()) {
    records_.erase(earlier->second);
    latest_.erase(earlier);
  }
  if (!Append(std::move(record))) return false;
  latest_.emplace(records_.back().port, std::prev(records_.end()));
  return true;
}

void WaitingNames::Add(const std::string &name) {
  constexpr size_t kQuotesAndComma = 4;
  names_.push_back(name);
  bytes_ += name.size() + kQuotesAndComma;
  while (bytes_ > kMostBytes && names_.size() > 1) {
    bytes_ -= names_.front().size() + kQuotesAndComma;
    names_.pop_front();
  }
}

}  // namespace rynd
