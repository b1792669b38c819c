#include "models/linkModel.h"

#include <fnmatch.h>

#include <algorithm>
#include <set>
#include <utility>

#include "hosted/host/hostTree.h"

namespace rynlinuxd {
namespace {

bool HasLink(const LinkFacts &facts) {
  return facts.isUp && facts.hasCarrier;
}

std::string Seconds(int64_t ns) {
  const int64_t tenths = std::max<int64_t>(ns / 100'000'000, 1);
  return std::to_string(tenths / 10) + '.' + std::to_string(tenths % 10) + " s";
}

}  // namespace

bool LinkModel::IsPhysical(const LinkFacts &facts) const {
  if (!facts.parent.empty()) return true;
  return std::any_of(patterns_.begin(), patterns_.end(),
                     [&](const std::string &pattern) { return fnmatch(pattern.c_str(), facts.name.c_str(), 0) == 0; });
}

void LinkModel::Forget(int32_t index) {
  names_.erase(index);
  if (const auto bridge = bridges_.find(index); bridge != bridges_.end()) {
    goneBridges_.push_back(bridge->second);
    bridges_.erase(bridge);
  }
  const auto nic = nics_.find(index);
  if (nic == nics_.end()) return;
  keys_.erase(nic->second.key);
  nics_.erase(nic);
}

/// Take in a physical link that was not known; false when it was.
bool LinkModel::Add(const LinkFacts &facts) {
  const auto [place, isNew] = nics_.try_emplace(facts.index);
  if (!isNew) return false;
  Nic &nic = place->second;
  nic.facts = facts;
  nic.key = facts.address.empty() ? facts.name : facts.address;
  // Functions of one card may share an address.
  if (keys_.contains(nic.key)) nic.key += ' ' + facts.name;
  keys_[nic.key] = facts.index;
  return true;
}

void LinkModel::Change(const LinkFacts &facts, int64_t nowNs) {
  if (facts.isGone) {
    Forget(facts.index);
    return FindDue();
  }
  names_[facts.index] = facts.name;
  if (!IsPhysical(facts)) return;
  if (Add(facts)) {
    TellFound(&nics_[facts.index], nowNs);
  } else {
    Update(&nics_[facts.index], facts, nowNs);
  }
  FindDue();
}

void LinkModel::Replace(const std::vector<LinkFacts> &links, int64_t nowNs) {
  std::set<int32_t> indices;
  for (const LinkFacts &facts : links) indices.insert(facts.index);
  std::vector<int32_t> gone;
  for (const auto &[index, name] : names_) {
    if (!indices.contains(index)) gone.push_back(index);
  }
  for (const int32_t index : gone) Forget(index);
  // All names and all new links before anything is told of one: ports come in front of their bridges, and count each
  // other.
  std::vector<const LinkFacts *> added, known;
  for (const LinkFacts &facts : links) {
    names_[facts.index] = facts.name;
    if (IsPhysical(facts)) (Add(facts) ? added : known).push_back(&facts);
  }
  for (const LinkFacts *facts : known) Update(&nics_[facts->index], *facts, nowNs);
  for (const LinkFacts *facts : added) TellFound(&nics_[facts->index], nowNs);
  FindDue();
}

void LinkModel::Update(Nic *nic, const LinkFacts &facts, int64_t nowNs) {
  const LinkFacts before = std::exchange(nic->facts, facts);
  // A message that waited in the queue while all links were read anew is older than what is known.
  const uint32_t losses = facts.losses > before.losses ? facts.losses - before.losses : 0;
  nic->facts.losses = std::max(facts.losses, before.losses);
  // A port that leaves or joins loses nothing, and what switching a link off does to its carrier is no loss either.
  if (before.bridge != facts.bridge || before.isUp != facts.isUp || before.name != facts.name) {
    nic->graceNs = INT64_MAX;
    if (!facts.isUp) return;
    if (before.isUp && before.hasCarrier != facts.hasCarrier) {
      CountChange(nic, losses, nowNs);
      return TellAll(nic, false, nowNs);
    }
    return before.isUp ? TellBaseline(*nic) : TellFound(nic, nowNs);
  }
  if (!facts.isUp) return;
  if (losses == 0 && before.hasCarrier == facts.hasCarrier) return;
  const bool isGrace = nic->graceNs != INT64_MAX;
  if (facts.hasCarrier) nic->graceNs = INT64_MAX;
  // Still without the carrier that it is looking for.
  if (isGrace && !facts.hasCarrier) return;
  CountChange(nic, losses, nowNs);
  if (isGrace) return TellBaseline(*nic);
  // A loss and a return between two messages end where they began.
  if (before.hasCarrier == facts.hasCarrier) nic->isOwed = true;
  TellAll(nic, false, nowNs);
}

void LinkModel::CountChange(Nic *nic, uint32_t losses, int64_t nowNs) {
  if (nic->changes == 0) {
    nic->burstNs = nic->wordNs = nic->lossesNs = nowNs;
    nic->losses = 0;
  }
  nic->changes = std::min(nic->changes + 1, 1'000'000);
  nic->losses += losses;
  nic->lastNs = nowNs;
}

void LinkModel::TellAll(Nic *nic, bool isLastWord, int64_t nowNs) {
  if (!isLastWord && nic->changes > kMostTold) {
    nic->isOwed = true;
    return;
  }
  if (nic->facts.bridge != 0) {
    int64_t &toldNs = nic->portNs[HasLink(nic->facts) ? 0 : 1];
    if (nowNs - toldNs >= kPortQuietNs || isLastWord) {
      toldNs = nowNs;
      TellPort(*nic, isLastWord, false);
    } else {
      nic->isOwed = true;
    }
  }
  TellLink(*nic, isLastWord, false);
}

/// A link that was not known, or switched off, is given time to find its carrier.
void LinkModel::TellFound(Nic *nic, int64_t nowNs) {
  if (!nic->facts.isUp) return;
  if (nic->facts.hasCarrier) return TellBaseline(*nic);
  nic->graceNs = nowNs + kGraceNs;
}

void LinkModel::TellBaseline(const Nic &nic) {
  if (nic.facts.bridge != 0) TellPort(nic, false, true);
  TellLink(nic, false, true);
}

void LinkModel::TellLink(const Nic &nic, bool isLastWord, bool isBaseline) {
  const bool has = HasLink(nic.facts);
  Report report{has ? "ryn.net.hynic.linkstate.up" : "ryn.net.hynic.linkstate.down",
                has ? "link of %s is up" : "link of %s is down",
                {Text(nic.facts.name)}};
  report.key = "link " + nic.key;
  report.state = has ? "up" : "down";
  report.isOpen = !has;
  report.isBaseline = isBaseline;
  report.isLastWord = isLastWord;
  reporter_->Tell(std::move(report));
}

void LinkModel::TellPort(const Nic &nic, bool isLastWord, bool isBaseline) {
  const auto bridge = names_.find(nic.facts.bridge);
  if (bridge == names_.end()) return;
  const bool has = HasLink(nic.facts);
  const std::string &name = bridge->second;
  Report report{has ? "ryn.net.pg.uplink.transition.up" : "ryn.net.pg.uplink.transition.down",
                "uplink %s of %s: %d carriers left",
                {Text(nic.facts.name), Text(name), Number(CarriersOf(nic.facts.bridge)), Number(int32_t{0})}};
  report.key = "port " + nic.key + ' ' + name;
  report.state = has ? "up" : "down";
  report.isOpen = !has;
  report.isBaseline = isBaseline;
  report.isLastWord = isLastWord;
  // A bridge is port group and switch in one.
  report.files = {{"net/portgroups/" + hosted::HostComponent(name.c_str()), name}};
  bridges_[nic.facts.bridge] = name;
  reporter_->Tell(std::move(report));
}

int32_t LinkModel::CarriersOf(int32_t bridge) const {
  return static_cast<int32_t>(std::count_if(nics_.begin(), nics_.end(), [&](const auto &entry) {
    return entry.second.facts.bridge == bridge && HasLink(entry.second.facts);
  }));
}

void LinkModel::TellLosses(Nic *nic, int64_t nowNs) {
  const bool isOver = nic->changes == 0;
  if (nic->losses < kFlaps && !isOver) return;
  if (nic->losses >= kFlaps) {
    reporter_->Tell(External(Severity::kWarning, "link " + nic->facts.name,
                             "the link was lost " + std::to_string(nic->losses) + " times within " +
                                 Seconds(nic->lastNs - nic->lossesNs) + " and is now " +
                                 (HasLink(nic->facts) ? "up" : "down")));
  }
  nic->losses = 0;
  nic->lossesNs = nowNs;
}

void LinkModel::Settle(Nic *nic, int64_t nowNs) {
  const bool isOver = nowNs >= nic->lastNs + (nic->facts.bridge != 0 ? kPortSettleNs : kLinkSettleNs);
  // Up to two changes settle by themselves in their order.
  if ((nic->isOwed || nic->changes > 2) && nic->facts.isUp) TellAll(nic, true, nowNs);
  nic->isOwed = false;
  nic->wordNs = nowNs;
  if (isOver) nic->changes = 0;
  if (isOver || nowNs - nic->lossesNs >= kLossesToldNs) TellLosses(nic, nowNs);
}

int64_t LinkModel::DueOf(const Nic &nic) const {
  if (nic.changes == 0) return nic.graceNs;
  const int64_t settle = nic.facts.bridge != 0 ? kPortSettleNs : kLinkSettleNs;
  return std::min({nic.lastNs + settle, nic.wordNs + kLongBurstNs, nic.graceNs});
}

void LinkModel::FindDue() {
  dueNs_ = INT64_MAX;
  for (const auto &[index, nic] : nics_) dueNs_ = std::min(dueNs_, DueOf(nic));
}

void LinkModel::OnDue(int64_t nowNs) {
  for (auto &[index, nic] : nics_) {
    if (DueOf(nic) > nowNs) continue;
    if (nic.graceNs <= nowNs) {
      nic.graceNs = INT64_MAX;
      TellBaseline(nic);
    }
    if (nic.changes != 0 && DueOf(nic) <= nowNs) Settle(&nic, nowNs);
  }
  FindDue();
}

void LinkModel::Retell() {
  for (const auto &[index, nic] : nics_) {
    if (nic.facts.isUp && nic.graceNs == INT64_MAX) TellBaseline(nic);
  }
}

std::vector<std::string> LinkModel::TakeGoneBridges() {
  return std::exchange(goneBridges_, {});
}

}  // namespace rynlinuxd
