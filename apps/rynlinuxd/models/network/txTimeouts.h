// Network cards whose driver was found to send nothing any more, as sysfs counts it. One thread.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "sink/report.h"

namespace rynlinuxd {

class TxTimeouts {
 public:
  /// `links` is the folder /sys/class/net, or a test's; `patterns` (as for fnmatch) name links that count as physical
  /// though no device is behind them; `reporter` is borrowed.
  TxTimeouts(std::string links, std::vector<std::string> patterns, Reporter *reporter)
      : links_(std::move(links)), patterns_(std::move(patterns)), reporter_(reporter) {}
  /// Look at every card. What the first look finds is past; of a card that comes later everything is new.
  void Look();

 private:
  struct Card {
    std::string index{};  ///< another one is another card of the same name
    uint64_t timeouts = 0;
  };
  bool IsPhysical(const std::string &name) const;
  uint64_t CountOf(const std::string &name) const;

  const std::string links_;
  const std::vector<std::string> patterns_;
  Reporter *const reporter_;
  std::map<std::string, Card> cards_;
  bool hasLooked_ = false;
};

}  // namespace rynlinuxd
