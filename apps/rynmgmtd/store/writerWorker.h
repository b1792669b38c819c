// What the writer's thread does: records become events, events change problems, both are committed and published.
#pragma once

#include <deque>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "mgmtd/problems/problemTable.h"
#include "mgmtd/store/eventFile.h"
#include "mgmtd/store/writer.h"
#include "mgmtd/store/writerQueue.h"

namespace mgmtd {

class Writer::Worker {
 public:
  Worker(WriterOptions options, Feed *feed) : options_(std::move(options)), feed_(feed), file_(options_.path) {}

  /// As Writer::Start, without the thread.
  std::string Open();
  /// The thread: until the queue is stopped and all is committed, or it must be over.
  void Run();

  WriterQueue &Queue() { return queue_; }
  void SetSinkPosition(const std::string &sink, const Marks &passed);
  std::optional<Marks> SinkPosition(const std::string &sink) const;
  StoreHealth Health() const;

  std::thread thread;  ///< runs Run

 private:
  using Clock = std::chrono::steady_clock;
  using Identity = std::tuple<uint64_t, int64_t, std::string>;

  void TakeIn(ReceivedRecord record);
  bool IsDouble(const StoredEvent &event);
  void Note(std::vector<Problem> changed);
  void Hold(StoredEvent event);
  void HandOut();
  bool NothingToWrite() const;
  bool TryToCommit();
  void TryToOpen();
  void Adopt(StoreState state);
  void CommitSome();
  void Fail(const StoreError &error, bool damage);
  void Works(size_t written);
  void KeepHouse();
  void GiveUp();

  const WriterOptions options_;
  Feed *const feed_;
  WriterQueue queue_;

  // The thread's own, and Open's before it.
  EventFile file_;
  ProblemTable problems_;
  bool adopted_ = false;  ///< what the file held has been taken over
  int64_t lastEventId_ = 0;
  std::deque<StoredEvent> waiting_;  ///< not committed yet, by id
  size_t waitingBytes_ = 0;
  std::set<Identity> waitingWhole_;             ///< the whole ones among them
  std::map<int64_t, Problem> changedProblems_;  ///< not committed yet, by id
  std::vector<StoredEvent> newEvents_;          ///< not published yet
  std::vector<Problem> newChanges_;
  Clock::time_point nextTry_{};
  Clock::time_point nextHouse_{};
  Clock::time_point lastSaid_{};

  mutable std::mutex mutex_;  ///< guards what follows; nothing is called while it is held
  StoreHealth health_;
  std::map<std::string, Marks> sinks_;
  bool sinksChanged_ = false;
};

}  // namespace mgmtd
