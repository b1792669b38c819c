// Counts changes of storage paths, to alarm about those that change too often. Told the time; one agent's thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "correlators/rows/boundedMap.h"

namespace rynd {

/// A path alarms once when it reaches kAlarmCount changes between two sweeps, and not again before the next reset. Both
/// are due at the first call of a run. Names between two resets are bounded as BoundedMap says; a path that is
/// forgotten counts from the start.
class ChangeCounter {
 public:
  enum class Change : uint8_t { kState, kAdd, kRemove };
  static constexpr uint32_t kAlarmCount = 10;
  static constexpr int64_t kResetS = 600;
  static constexpr int64_t kSweepS = 60;

  /// Count one change of `path` at `now` (whole seconds, never set back). True when its count is then exactly
  /// kAlarmCount.
  bool Count(std::string_view path, Change change, int64_t now);
  /// The paths that are held.
  size_t Size() const { return counts_.Size(); }

 private:
  void Enter(std::string_view path, Change change);

  BoundedMap<std::string, uint32_t> counts_;
  int64_t resetS_ = 0;
  int64_t sweepS_ = 0;
};

}  // namespace rynd
