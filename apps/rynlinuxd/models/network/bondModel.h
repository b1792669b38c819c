// Bonds in mode 802.3ad (LACP), and which of their ports work. One thread; told the time in nanoseconds of the
// monotonic clock.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <map>
#include <string>
#include <vector>

#include "models/network/bondMessage.h"
#include "sink/ledger.h"
#include "sink/report.h"

namespace rynlinuxd {

/// A bond is aggregation group and switch in one. What has changed is told when it has settled.
class BondModel {
 public:
  static constexpr int64_t kSettleNs = 1'000'000'000, kLongestNs = 5'000'000'000;
  static constexpr int64_t kGraceNs = 30'000'000'000;  ///< in which a new port or bond finds its partner

  BondModel(const Ledger *ledger, Reporter *reporter) : ledger_(ledger), reporter_(reporter) {}
  void Change(const BondFacts &facts, int64_t nowNs);
  /// `links` are all that there are; the first of these calls finds things as they are.
  void Replace(const std::vector<BondFacts> &links, int64_t nowNs);
  bool HasBonds() const { return !bonds_.empty(); }
  /// When to call OnDue(); INT64_MAX: not at all.
  int64_t Due() const;
  void OnDue(int64_t nowNs);
  /// Tell every state again.
  void Retell(int64_t nowNs);

 private:
  struct Port {
    BondFacts facts{};
    int64_t graceNs = 0;  ///< when not being in the group counts
  };
  struct Bond {
    BondFacts facts{};
    int64_t graceNs = 0;
    std::map<std::string, std::string> released{};   ///< names of ports that have left, by address
    int64_t firstNs = INT64_MAX, dueNs = INT64_MAX;  ///< the burst of changes, and its end
  };

  static bool IsInGroup(const Bond &bond, const Port &port);
  void Touch(int32_t index, int64_t nowNs);
  void ForgetPort(int32_t index, int64_t nowNs);
  void ForgetBond(int32_t index);
  void TakeBond(const BondFacts &facts, int64_t nowNs);
  void TakePort(const BondFacts &facts, int64_t nowNs);
  void TellFound(int64_t nowNs);
  void TellBond(Bond *bond, int64_t nowNs, bool isBaseline);
  void TellPort(const Bond &bond, Port *port, int64_t nowNs, bool isBaseline);
  void Tell(const char *id, std::initializer_list<std::string> arguments, const std::string &key, const char *state,
            bool isOpen, bool isBaseline);

  const Ledger *const ledger_;
  Reporter *const reporter_;
  std::map<int32_t, Bond> bonds_;  ///< in mode 802.3ad alone
  std::map<int32_t, Port> ports_;  ///< of those
  bool hasLooked_ = false;
};

}  // namespace rynlinuxd
