#include "models/hardware/poisonedPages.h"

#include <algorithm>
#include <charconv>

namespace rynlinuxd {

std::optional<uint64_t> ParseCorruptedKib(std::string_view meminfo) {
  constexpr std::string_view kName = "HardwareCorrupted:";
  size_t at = meminfo.find(kName);
  if (at == std::string_view::npos || (at > 0 && meminfo[at - 1] != '\n')) return std::nullopt;
  at = std::min(meminfo.find_first_not_of(' ', at + kName.size()), meminfo.size());
  uint64_t kib = 0;
  const auto [end, error] = std::from_chars(meminfo.data() + at, meminfo.data() + meminfo.size(), kib);
  if (error != std::errc()) return std::nullopt;
  return kib;
}

void PoisonedPages::Take(uint64_t pages, int64_t threshold) {
  if (threshold < 0 || pages <= static_cast<uint64_t>(threshold)) return;
  Report report{"ryn.pageretire.selectedmpnthreshold.host.exceeded",
                "Number of MPNs selected for retirement is %lu",
                {Number(pages)}};
  report.key = "poisoned pages";
  report.state = boot_ + ' ' + std::to_string(pages);
  report.isOpen = true;
  reporter_->Tell(std::move(report));
}

}  // namespace rynlinuxd
