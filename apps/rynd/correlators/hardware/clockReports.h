// How often a clock observation is passed on: once per interval and id, but a regained synchronisation at once after a
// loss. Without a clock of its own; one thread.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>

namespace rynd {

class ClockReports {
 public:
  /// The families of clock observations; each has a table of its own.
  enum class Family : uint8_t { kCorrection, kDelta, kParameter };

  /// In seconds; 0 or less lets everything pass. Counts for every later observation of all families.
  void SetInterval(int32_t seconds) { intervalS_ = seconds; }
  int32_t Interval() const { return intervalS_; }

  /// True when `id` may be passed on at `now` (whole seconds, never set back): the first time, and an interval or more
  /// after it was last passed.
  bool IsDue(Family family, std::string_view id, int64_t now);
  /// `id` has been passed on at `now`.
  void Passed(Family family, std::string_view id, int64_t now);

 private:
  /// When each id was last passed on; 0: never. Holds the ids that have a handler, so it is bounded by their number.
  using LastPassed = std::map<std::string, int64_t, std::less<>>;
  static int64_t &TimeOf(LastPassed &table, std::string_view id);

  int32_t intervalS_ = 3600;
  std::array<LastPassed, 3> tables_;
};

}  // namespace rynd
