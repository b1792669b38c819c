// Pages of memory that the kernel has taken out of use. One thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "sink/report.h"

namespace rynlinuxd {

/// The kilobytes that /proc/meminfo calls corrupted. Nothing when its text does not say.
std::optional<uint64_t> ParseCorruptedKib(std::string_view meminfo);

class PoisonedPages {
 public:
  /// `boot` is this boot's id: pages are in use again after the next one.
  PoisonedPages(std::string boot, Reporter *reporter) : boot_(std::move(boot)), reporter_(reporter) {}
  /// There are `pages`; above `threshold` each number is told.
  void Take(uint64_t pages, int64_t threshold);

 private:
  const std::string boot_;
  Reporter *const reporter_;
};

}  // namespace rynlinuxd
