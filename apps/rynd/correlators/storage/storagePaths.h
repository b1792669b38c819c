// What is known about the paths of one storage stack: those that were reported down, and how often each has changed.
// Two stacks have an object each. Told the time; one agent's thread. Texts may be null, as an observation's may.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "correlators/rows/boundedMap.h"
#include "correlators/rows/eventMessage.h"
#include "correlators/storage/changeCounter.h"

namespace rynd {

/// Redundancy statuses of a device that events are tied to.
enum RedundancyCode : int32_t {
  kNothingToSay = 0,
  kLastPathDown = 1,      ///< down: connectivity is lost
  kOnePathLeft = 2,       ///< down: redundancy is lost; up: connectivity is restored
  kSeveralPathsLeft = 3,  ///< down: redundancy is degraded; up: redundancy is restored
};

class StoragePaths {
 public:
  /// `source` (borrowed for good) and `line` are named when a path comes back with a status that can't be.
  StoragePaths(const char *source, int line) : source_(source), line_(line) {}

  /// `path` to `device` went down at `now` (whole seconds, never set back): count it, and report it when it was in use.
  void PathDown(const char *path, const char *previousState, const char *device, int64_t now);
  /// `path` is up again: count it, and report it when its loss was reported. A status other than 0 to 3 is fatal.
  void PathRestored(const char *path, const char *previousState, int64_t now);
  /// Count one change of `path`, and report it when there are too many.
  void CountChange(const char *path, ChangeCounter::Change change, int64_t now);
  /// The entries that the table of reported losses holds.
  size_t ReportedDown() const { return reportedDown_.Size(); }

 private:
  void PostRestored(const char *path, const char *device);

  const char *source_;
  int line_;
  /// By path and device: whether a loss was reported and its end not yet. Bounded as BoundedMap says: the path of a
  /// known device may have any name. A loss that is forgotten is not reported to have ended.
  BoundedMap<std::string, bool> reportedDown_;
  ChangeCounter changes_;
};

/// Counts the PowerOn Resets of paths, to report those with too many. Told the time; one agent's thread.
class PowerOnResets {
 public:
  /// Count one of `path`. The first only makes it known.
  void Count(const char *path, int64_t now);

 private:
  ChangeCounter counter_;
};

}  // namespace rynd
