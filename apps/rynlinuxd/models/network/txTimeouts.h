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
  using Counts = std::map<std::string, uint64_t>;  ///< by queue
  bool IsPhysical(const std::string &name, bool *isKnown) const;
  bool ReadCounts(const std::string &name, Counts *counts) const;

  const std::string links_;
  const std::vector<std::string> patterns_;
  Reporter *const reporter_;
  /// By the kernel's number of the card, which keeps it under whatever name. A queue that is not there keeps its count:
  /// so does the kernel.
  std::map<std::string, Counts> cards_;
  bool hasLooked_ = false;
};

}  // namespace rynlinuxd
