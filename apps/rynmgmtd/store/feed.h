// What happens now, for everybody who passes it on or shows it: held in memory, so that it goes on when the file fails.
#pragma once

#include <array>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>
#include <vector>

#include "mgmtd/store/reader.h"
#include "mgmtd/store/storedEvent.h"

namespace mgmtd {

/// Up to where somebody has seen everything.
struct Marks {
  int64_t event = 0;   ///< id of an event
  int64_t change = 0;  ///< change of a problem
};

/// What has been counted of events since the program's start.
struct EventCounts {
  std::map<std::string, uint64_t> byName;  ///< of the catalogue's names; others as "unknown"
  int64_t lastEventUs = 0;                 ///< the time of the last one, 0: none
};

/// The newest events and the open problems. The writer publishes what is committed, or, when the file can't be written,
/// what it holds in memory. Any thread; nobody waits for a reader.
class Feed {
 public:
  static constexpr size_t kMostEvents = 4096;  ///< kept in memory; older ones are in the file
  static constexpr size_t kMostBytes = size_t{8} << 20;
  static constexpr size_t kMostEnded = 4096;  ///< ended problems kept in memory

  /// Events with ids above `afterId`, oldest first; those that memory does not hold any more come from `file`. What the
  /// file can't give is left out: the ids show it.
  std::vector<StoredEvent> EventsAfter(int64_t afterId, size_t limit, Reader *file);
  /// Problems that changed after `change`, as they are now, each once, oldest change first.
  std::vector<Problem> ProblemsAfter(int64_t change, size_t limit, Reader *file);
  /// All that are open, the worst first, then the newest.
  std::vector<Problem> OpenProblems() const;
  /// How many are open, by severity (the values of catalog::Severity).
  std::array<size_t, 4> OpenCounts() const;
  EventCounts Counts() const;
  /// The newest of both.
  Marks Newest() const;

  /// Sleep until there is something newer than `seen`, `limit` has passed, or Stop. False after Stop: end.
  bool Wait(const Marks &seen, std::chrono::milliseconds limit);
  /// Wake everybody, for good.
  void Stop();
  bool Stopped() const;

  /// For the writer: all open problems, in the place of what was known.
  void Reset(const Marks &newest, std::vector<Problem> open);
  /// For the writer: events in the order of their ids, and the problems that they changed.
  void Publish(const std::vector<StoredEvent> &events, const std::vector<Problem> &changed);

 private:
  mutable std::mutex mutex_;  ///< guards everything below; nothing is called while it is held
  std::condition_variable changed_;
  std::deque<StoredEvent> events_;  ///< by id
  size_t bytes_ = 0;
  int64_t eventsFrom_ = 0;               ///< ids above this are all in `events_`
  std::map<int64_t, Problem> open_;      ///< by change
  std::map<int64_t, int64_t> changeOf_;  ///< of the open ones, by id
  std::map<int64_t, Problem> ended_;     ///< by change, the last ones
  int64_t changesFrom_ = 0;              ///< changes above this are all in the two
  Marks newest_;
  EventCounts counts_;
  bool stopped_ = false;
};

}  // namespace mgmtd
