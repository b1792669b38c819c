// What waits for the writer's thread. Any thread puts in; one takes.
#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <future>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "mgmtd/store/writer.h"

namespace mgmtd {

/// A wish to end problems by hand, and where the answer goes.
struct AckRequest {
  int64_t eventId = 0;
  std::string subject, user;
  std::promise<size_t> ended;
};

/// What is to be done in one round.
struct WriterWork {
  std::vector<ReceivedRecord> records;
  std::vector<AckRequest> acks;
  bool stopping = false;  ///< and nothing waits any more
};

class WriterQueue {
 public:
  using Clock = std::chrono::steady_clock;
  static constexpr size_t kMostRecords = 500;              ///< of one round
  static constexpr std::chrono::milliseconds kGather{10};  ///< what the first of them waits for others
  static constexpr std::chrono::milliseconds kTick{1000};  ///< a round comes at least so often

  /// False when too many wait.
  bool Put(ReceivedRecord record);
  std::future<size_t> Put(AckRequest request);
  void Stop(Clock::time_point by);
  /// Wait for work, `tick` at most.
  WriterWork Take(std::chrono::milliseconds tick);
  /// When a stop must be over, if one is wanted.
  std::optional<Clock::time_point> StopBy() const;
  uint64_t Dropped() const;
  uint64_t Received() const;

 private:
  mutable std::mutex mutex_;  ///< guards all below
  std::condition_variable wake_;
  std::deque<ReceivedRecord> records_;
  size_t bytes_ = 0;
  std::vector<AckRequest> acks_;
  std::optional<Clock::time_point> stopBy_;
  uint64_t received_ = 0, dropped_ = 0;
};

}  // namespace mgmtd
