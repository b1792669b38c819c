#include "correlators/hardware/clockReports.h"

#include <algorithm>

namespace rynd {
namespace {

constexpr std::string_view kSynchronized = "ryn.clock.correction.adjtime.sync";
constexpr auto kLosses = std::to_array<std::string_view>({
    "ryn.clock.correction.changed",
    "ryn.clock.correction.step.unsync",
    "ryn.clock.correction.adjtime.unsync",
    "ryn.clock.correction.adjtime.lostsync",
});

}  // namespace

int64_t &ClockReports::TimeOf(LastPassed &table, std::string_view id) {
  const auto place = table.find(id);
  return place != table.end() ? place->second : table.emplace(id, 0).first->second;
}

bool ClockReports::IsDue(Family family, std::string_view id, int64_t now) {
  return now - TimeOf(tables_[static_cast<size_t>(family)], id) >= intervalS_;
}

void ClockReports::Passed(Family family, std::string_view id, int64_t now) {
  LastPassed &table = tables_[static_cast<size_t>(family)];
  if (std::ranges::find(kLosses, id) != kLosses.end()) TimeOf(table, kSynchronized) = 0;
  TimeOf(table, id) = now;
}

}  // namespace rynd
