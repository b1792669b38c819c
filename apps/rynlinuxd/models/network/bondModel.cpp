#include "models/network/bondModel.h"

#include <algorithm>
#include <set>
#include <utility>

namespace rynlinuxd {
namespace {

// Of a port's state: in step with its partner and passing both ways; answered by nobody, or no longer.
constexpr uint8_t kWorking = 0x08 | 0x10 | 0x20, kAlone = 0x40 | 0x80;

// Of what the ledger knows.
constexpr char kBondKey[] = "lacp of ", kLinkKey[] = "lacp link ", kPortKey[] = "lacp port ", kLagKey[] = "lag ";

}  // namespace

bool BondModel::IsInGroup(const Bond &bond, const Port &port) {
  const BondFacts &facts = port.facts;
  return facts.hasLink && bond.facts.hasPartner && facts.portAggregator == bond.facts.aggregator &&
         (facts.actorState & kWorking) == kWorking && (facts.actorState & kAlone) == 0;
}

void BondModel::Touch(int32_t index, int64_t nowNs) {
  const auto found = bonds_.find(index);
  if (found == bonds_.end()) return;
  Bond &bond = found->second;
  if (bond.firstNs == INT64_MAX) bond.firstNs = nowNs;
  bond.dueNs = std::min(nowNs + kSettleNs, bond.firstNs + kLongestNs);
}

void BondModel::Tell(const char *id, std::initializer_list<std::string> arguments, const std::string &key,
                     const char *state, bool isOpen, bool isBaseline) {
  Report report{id, arguments.size() == 1 ? "%s" : "%s of %s", {}};
  for (const std::string &argument : arguments) report.arguments.push_back(Text(argument));
  report.key = key;
  report.state = state;
  report.isOpen = isOpen;
  report.isBaseline = isBaseline;
  reporter_->Tell(std::move(report));
}

void BondModel::TakeBond(const BondFacts &facts, int64_t nowNs) {
  const auto [place, isNew] = bonds_.try_emplace(facts.index);
  Bond &bond = place->second;
  if (!isNew && bond.facts == facts) return;
  if (isNew || (facts.isUp && !bond.facts.isUp)) {
    bond.graceNs = nowNs + kGraceNs;
    for (auto &[index, port] : ports_) {
      if (port.facts.bond == facts.index) port.graceNs = bond.graceNs;
    }
  }
  bond.facts = facts;
  if (isNew) Tell("ryn.net.lacp.enable", {facts.name}, kBondKey + facts.name, "on", false, !hasLooked_);
  Touch(facts.index, nowNs);
}

void BondModel::ForgetBond(int32_t index) {
  const auto place = bonds_.find(index);
  if (place == bonds_.end()) return;
  const std::string name = place->second.facts.name;
  bonds_.erase(place);
  std::erase_if(ports_, [&](const auto &port) { return port.second.facts.bond == index; });
  Tell("ryn.net.lacp.disable", {name}, kBondKey + name, "", false, false);
}

void BondModel::TakePort(const BondFacts &facts, int64_t nowNs) {
  const auto known = ports_.find(facts.index);
  if (known != ports_.end() && known->second.facts.bond != facts.bond) ForgetPort(facts.index, nowNs);
  const auto bond = bonds_.find(facts.bond);
  if (bond == bonds_.end()) return;
  const auto [place, isNew] = ports_.try_emplace(facts.index);
  Port &port = place->second;
  if (!isNew && port.facts == facts) return;
  if (isNew || (facts.isUp && !port.facts.isUp)) port.graceNs = nowNs + kGraceNs;
  port.facts = facts;
  bond->second.released.erase(facts.address);
  Touch(facts.bond, nowNs);
}

/// It has left its bond; whether the bond is on its way out too will be seen.
void BondModel::ForgetPort(int32_t index, int64_t nowNs) {
  const auto place = ports_.find(index);
  if (place == ports_.end()) return;
  const BondFacts facts = place->second.facts;
  ports_.erase(place);
  if (const auto bond = bonds_.find(facts.bond); bond != bonds_.end()) {
    bond->second.released[facts.address] = facts.name;
    Touch(facts.bond, nowNs);
  }
}

void BondModel::Change(const BondFacts &facts, int64_t nowNs) {
  if (facts.isGone) {
    ForgetPort(facts.index, nowNs);
    return ForgetBond(facts.index);
  }
  if (facts.isLacp) {
    TakeBond(facts, nowNs);
  } else {
    ForgetBond(facts.index);
  }
  if (facts.bond != 0) {
    TakePort(facts, nowNs);
  } else {
    ForgetPort(facts.index, nowNs);
  }
}

void BondModel::Replace(const std::vector<BondFacts> &links, int64_t nowNs) {
  std::set<int32_t> missing;
  for (const auto &[index, bond] : bonds_) missing.insert(index);
  for (const auto &[index, port] : ports_) missing.insert(index);
  for (const BondFacts &facts : links) missing.erase(facts.index);
  BondFacts gone;
  gone.isGone = true;
  for (const int32_t index : missing) {
    gone.index = index;
    Change(gone, nowNs);
  }
  // Bonds first: their ports may stand in front of them.
  for (const bool isBond : {true, false}) {
    for (const BondFacts &facts : links) {
      if (facts.isLacp == isBond) Change(facts, nowNs);
    }
  }
  if (!hasLooked_) TellFound(nowNs);
}

/// As things are; the ledger knows what of it is news.
void BondModel::TellFound(int64_t nowNs) {
  hasLooked_ = true;
  for (auto &[index, bond] : bonds_) TellBond(&bond, nowNs, true);
  std::set<std::string> gone;
  for (const auto &[name, told] : ledger_->Below(kBondKey)) gone.insert(name);
  for (const auto &[index, bond] : bonds_) gone.erase(bond.facts.name);
  for (const std::string &name : gone) Tell("ryn.net.lacp.disable", {name}, kBondKey + name, "", false, false);
}

void BondModel::TellPort(const Bond &bond, Port *port, int64_t nowNs, bool isBaseline) {
  const BondFacts &facts = port->facts;
  // Switched off, it loses nothing.
  if (!facts.isUp) return;
  const std::string &name = bond.facts.name;
  const std::string object = facts.address + ' ' + name;
  const bool isInGroup = IsInGroup(bond, *port);
  if (isInGroup || isBaseline) port->graceNs = nowNs;
  const bool isGrace = nowNs < port->graceNs;
  if (facts.hasLink) {
    Tell("ryn.net.lacp.uplink.connected", {facts.name, name}, kLinkKey + object, "on", false, isBaseline);
  } else if (!isGrace) {
    Tell("ryn.net.lacp.uplink.disconnected", {facts.name, name}, kLinkKey + object, "off", true, isBaseline);
  }
  if (isInGroup) {
    Tell("ryn.net.lacp.uplink.transition.up", {facts.name, name}, kPortKey + object, "", false, isBaseline);
  } else if (!isGrace) {
    Tell("ryn.net.lacp.uplink.transition.down", {facts.name, name}, kPortKey + object, "down", true, isBaseline);
  }
}

void BondModel::TellBond(Bond *bond, int64_t nowNs, bool isBaseline) {
  bond->firstNs = bond->dueNs = INT64_MAX;
  const std::string &name = bond->facts.name;
  for (const auto &[address, port] : std::exchange(bond->released, {})) {
    const std::string key = std::string(kLinkKey).append(address).append(" ").append(name);
    Tell("ryn.net.lacp.uplink.disconnected", {port, name}, key, "off", false, isBaseline);
  }
  if (!bond->facts.isUp) return;
  bool works = false;
  for (auto &[index, port] : ports_) {
    if (port.facts.bond != bond->facts.index) continue;
    TellPort(*bond, &port, nowNs, isBaseline);
    works = works || IsInGroup(*bond, port);
    // Looked at again when it has had its time.
    if (port.graceNs > nowNs) bond->dueNs = std::min(bond->dueNs, port.graceNs);
  }
  if (works || isBaseline) bond->graceNs = nowNs;
  if (bond->graceNs > nowNs) bond->dueNs = std::min(bond->dueNs, bond->graceNs);
  if (works) {
    Tell("ryn.net.lacp.lag.transition.up", {name, name}, kLagKey + name, "", false, isBaseline);
  } else if (nowNs >= bond->graceNs) {
    Tell("ryn.net.lacp.lag.transition.down", {name, name}, kLagKey + name, "down", true, isBaseline);
  }
}

int64_t BondModel::Due() const {
  int64_t due = INT64_MAX;
  for (const auto &[index, bond] : bonds_) due = std::min(due, bond.dueNs);
  return due;
}

void BondModel::OnDue(int64_t nowNs) {
  for (auto &[index, bond] : bonds_) {
    if (bond.dueNs <= nowNs) TellBond(&bond, nowNs, false);
  }
}

void BondModel::Retell(int64_t nowNs) {
  for (auto &[index, bond] : bonds_) {
    if (bond.firstNs == INT64_MAX) TellBond(&bond, nowNs, false);
  }
}

}  // namespace rynlinuxd
