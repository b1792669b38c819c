// The live feed behind the trace socket: one line a record to every client, each served by a detached thread. Lines
// wait in one queue that all clients share and that is bounded; whoever falls behind loses lines and is told how many.
// Writers never wait for a client. A client may ask, by a line of its own, for JSON lines or for the statistics; one
// more thread listens to them all.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "base/uniqueFd.h"
#include "core/basics/conditionVariable.h"

namespace rynd {

/// What a client gets of each record: a line of text, as long as it asks for nothing else, or a JSON object.
enum class TraceFormat : size_t { kText, kJson };
constexpr size_t kTraceFormats = 2;

/// One record in each format that somebody wants, line ends included; empty where nobody does, or where that format
/// has no line for it.
using TraceLine = std::array<std::string, kTraceFormats>;

/// The queue and its clients. Every operation may be called from any thread; the feed must outlive its clients.
class TraceFeed {
 public:
  static constexpr size_t kMaxClients = 512;
  static constexpr size_t kMaxQueuedBytes = size_t{1} << 20;

  /// True when somebody wants lines of `format`; without a lock, so that a feed without clients costs nothing.
  bool Wants(TraceFormat format) const {
    return clientCounts_[static_cast<size_t>(format)].load(std::memory_order_relaxed) != 0;
  }
  bool HasClients() const { return Wants(TraceFormat::kText) || Wants(TraceFormat::kJson); }

  /// Queue one record for the clients of the formats that it has a line for. Throws std::bad_alloc, with nothing
  /// queued.
  void Publish(TraceLine line) EXCLUDES(mutex_);

  /// Serve the connected socket `client` on a thread of its own until it goes. 0; EUSERS when there are kMaxClients;
  /// ENOMEM; or the errno value of a thread's creation. The client is closed when it is not served.
  int AddClient(base::UniqueFd client) EXCLUDES(mutex_);

 private:
  struct Client;
  struct Entry;
  struct Batch;
  struct Start;

  int Register(Client *client) EXCLUDES(mutex_);
  void Serve(Client *client);
  Batch Take(Client *client) EXCLUDES(mutex_);
  void WakeNext() REQUIRES(mutex_);
  void Forget(Client *client) EXCLUDES(mutex_);
  int StartListening() REQUIRES(mutex_);
  void Listen();
  void HearClient(int fd, uint32_t events) EXCLUDES(mutex_);
  void Obey(Client *client, std::string_view line) REQUIRES(mutex_);
  void SetFormat(Client *client, TraceFormat format) REQUIRES(mutex_);
  static void *ServeThread(void *argument);
  static void *ListenThread(void *argument);

  Mutex mutex_;  ///< never held while a client is written to; taken inside of the stream lock
  std::deque<std::shared_ptr<const Entry>> lines_ GUARDED_BY(mutex_);
  uint64_t firstLine_ GUARDED_BY(mutex_) = 0;  ///< sequence number of lines_.front()
  size_t queuedBytes_ GUARDED_BY(mutex_) = 0;
  /// Lines of each format that were ever queued.
  std::array<uint64_t, kTraceFormats> published_ GUARDED_BY(mutex_){};
  std::map<int, Client *> clients_ GUARDED_BY(mutex_);  ///< by descriptor; owned by their threads
  std::deque<Client *> sleepers_ GUARDED_BY(mutex_);    ///< those that wait, the longest first
  base::UniqueFd listening_ GUARDED_BY(mutex_);         ///< the epoll set of the thread that listens
  std::array<std::atomic<size_t>, kTraceFormats> clientCounts_{};
};

/// The daemon's feed. Never destroyed: its clients' threads may outlive main().
TraceFeed &Feed();

}  // namespace rynd
