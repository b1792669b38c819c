// The live feed behind the trace socket: one text line a record to every client, each served by a detached thread.
// Lines wait in one queue that all clients share and that is bounded; whoever falls behind loses lines and is told how
// many. Writers never wait for a client.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <set>
#include <string>

#include "base/uniqueFd.h"
#include "core/conditionVariable.h"

namespace rynd {

/// The queue and its clients. Every operation may be called from any thread; the feed must outlive its clients.
class TraceFeed {
 public:
  static constexpr size_t kMaxClients = 512;
  static constexpr size_t kMaxQueuedBytes = size_t{1} << 20;

  /// True when somebody listens; without a lock, so that a feed without clients costs nothing.
  bool HasClients() const { return clientCount_.load(std::memory_order_relaxed) != 0; }

  /// Queue one line, its line end included, for every client.
  void Publish(std::string line) EXCLUDES(mutex_);

  /// Serve the connected socket `client` on a thread of its own until it goes. 0; EAGAIN when there are kMaxClients; or
  /// the errno value of the thread's creation. The client is closed when it is not served.
  int AddClient(base::UniqueFd client) EXCLUDES(mutex_);

 private:
  struct Client;
  struct Batch;

  void Serve(int fd, uint64_t next) EXCLUDES(mutex_);
  Batch Take(int fd, uint64_t *next) EXCLUDES(mutex_);
  void Forget(int fd) EXCLUDES(mutex_);
  void WakeVanished() REQUIRES(mutex_);
  static void *ServeThread(void *argument);

  Mutex mutex_;  ///< never held while a client is written to; taken inside of the stream lock
  ConditionVariable changed_;
  std::deque<std::shared_ptr<const std::string>> lines_ GUARDED_BY(mutex_);
  uint64_t firstLine_ GUARDED_BY(mutex_) = 0;  ///< sequence number of lines_.front()
  size_t queuedBytes_ GUARDED_BY(mutex_) = 0;
  std::set<int> clients_ GUARDED_BY(mutex_);   ///< descriptors that are served
  std::set<int> vanished_ GUARDED_BY(mutex_);  ///< those of them whose client is known to have gone
  std::atomic<size_t> clientCount_ = 0;
};

/// The daemon's feed. Never destroyed: its clients' threads may outlive main().
TraceFeed &Feed();

}  // namespace rynd
