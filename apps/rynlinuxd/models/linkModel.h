// What is known of the host's links, and what of it is to be told. One thread; told the time in nanoseconds of the
// monotonic clock.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "models/linkMessage.h"
#include "sink/report.h"

namespace rynlinuxd {

/// A link that counts is a physical one. Its changes come in bursts, which end when nothing has changed for longer than
/// the daemon takes to settle: then its state is told once more if the daemon may have it wrong.
class LinkModel {
 public:
  static constexpr int64_t kLinkSettleNs = 1'500'000'000, kPortSettleNs = 2'500'000'000;
  static constexpr int64_t kPortQuietNs = 2'000'000'000;    ///< between two words about a port in one direction
  static constexpr int64_t kGraceNs = 10'000'000'000;       ///< in which a link that is switched on finds its carrier
  static constexpr int64_t kLongBurstNs = 10'000'000'000;   ///< after which a burst that goes on is told of
  static constexpr int64_t kLossesToldNs = 60'000'000'000;  ///< and its losses
  static constexpr int kMostTold = 64;                      ///< transitions of one burst that are told one by one
  static constexpr uint32_t kFlaps = 3;                     ///< losses in one burst that are worth a warning

  /// `patterns` (as for fnmatch) name links that count as physical without a device; `reporter` is borrowed.
  LinkModel(std::vector<std::string> patterns, Reporter *reporter)
      : patterns_(std::move(patterns)), reporter_(reporter) {}

  void Change(const LinkFacts &facts, int64_t nowNs);
  /// `links` are all that there are.
  void Replace(const std::vector<LinkFacts> &links, int64_t nowNs);
  /// When to call OnDue(); INT64_MAX: not at all.
  int64_t Due() const { return dueNs_; }
  void OnDue(int64_t nowNs);
  /// Tell every state again.
  void Retell();
  /// The bridges that have gone since the last call: their files in the host tree are to go.
  std::vector<std::string> TakeGoneBridges();
  size_t Nics() const { return nics_.size(); }

 private:
  struct Nic {
    LinkFacts facts{};
    std::string key{};
    // The burst; none while `changes` is 0.
    int changes = 0;
    bool isOwed = false;  ///< something was not told
    uint32_t losses = 0;
    int64_t burstNs = 0, lastNs = 0, wordNs = 0, lossesNs = 0;
    int64_t graceNs = INT64_MAX;  ///< when a missing carrier counts as lost; INT64_MAX: not at all
    std::array<int64_t, 2> portNs{-kPortQuietNs, -kPortQuietNs};  ///< when its port was last told up, down
  };

  bool IsPhysical(const LinkFacts &facts) const;
  bool Add(const LinkFacts &facts);
  void Forget(int32_t index);
  void Update(Nic *nic, const LinkFacts &facts, int64_t nowNs);
  void CountChange(Nic *nic, uint32_t losses, int64_t nowNs);
  void TellAll(Nic *nic, bool isLastWord, int64_t nowNs);
  void TellLink(const Nic &nic, bool isLastWord, bool isBaseline);
  void TellPort(const Nic &nic, bool isLastWord, bool isBaseline);
  void TellBaseline(const Nic &nic);
  void TellFound(Nic *nic, int64_t nowNs);
  void TellLosses(Nic *nic, int64_t nowNs);
  void Settle(Nic *nic, int64_t nowNs);
  int32_t CarriersOf(int32_t bridge) const;
  int64_t DueOf(const Nic &nic) const;
  void FindDue();

  const std::vector<std::string> patterns_;
  Reporter *const reporter_;
  std::map<int32_t, Nic> nics_;
  std::map<int32_t, std::string> names_;    ///< of all links
  std::map<int32_t, std::string> bridges_;  ///< that were named to the daemon
  std::map<std::string, int32_t> keys_;     ///< whose key it is
  std::vector<std::string> goneBridges_;
  int64_t dueNs_ = INT64_MAX;
};

}  // namespace rynlinuxd
