// Arrays of the md driver, as sysfs shows them. One thread.
#pragma once

#include <map>
#include <string>

#include "sink/report.h"

namespace rynlinuxd {

class RaidModel {
 public:
  /// `blocks` is the folder /sys/block, or a test's.
  RaidModel(std::string blocks, Reporter *reporter) : blocks_(std::move(blocks)), reporter_(reporter) {}
  /// Look at every array.
  void Look();

 private:
  const std::string blocks_;
  Reporter *const reporter_;
};

}  // namespace rynlinuxd
