// Reading the store's file: also while the agent writes it, and when there is no agent.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "mgmtd/store/storedEvent.h"

namespace mgmtd {

class Database;

/// A read-only connection. For the thread that made it. Every call throws StoreError when the file can't be read; the
/// next call tries anew, so that a Reader outlives a file that was moved aside. Nothing is locked between two calls.
class Reader {
 public:
  /// `path` of the file; opened at the first use.
  explicit Reader(std::string path);
  ~Reader();
  Reader(Reader &&) noexcept;
  Reader &operator=(Reader &&) noexcept;

  /// Events in the order of their ids, or the other way round; without their raw bytes unless `withRaw`.
  std::vector<StoredEvent> Events(const EventFilter &filter, bool withRaw = false);
  /// The event `id`, with its raw bytes.
  std::optional<StoredEvent> Event(int64_t id);
  /// Open ones first, the worst first, then the newest; then the ended ones, the last ended first.
  std::vector<Problem> Problems(const ProblemFilter &filter);
  /// Those that the event `id` opened, repeated or ended.
  std::vector<Problem> ProblemsOf(const StoredEvent &event);
  /// Those whose change is above `change`, as they are now, in the order of their changes.
  std::vector<Problem> ProblemsChangedAfter(int64_t change, size_t limit);
  /// Stretches of `bucketUs` from `sinceUs` on that begin before `untilUs`; those without events too. 10,000 at most.
  std::vector<TimelineBucket> Timeline(int64_t sinceUs, int64_t untilUs, int64_t bucketUs);
  /// 0 when there is none.
  int64_t LastEventId();

 private:
  template <typename Query>
  auto Run(Query query);
  void Open();

  std::string path_;
  std::unique_ptr<Database> database_;
};

}  // namespace mgmtd
