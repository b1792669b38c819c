// The one thread that owns the HTTP server's connections. It never waits for one of them, nor for a file: a request
// goes on only when its head is there as a whole, an answer is sent as fast as it is taken, and who sends or takes
// nothing is closed.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "base/acceptor.h"
#include "base/uniqueFd.h"
#include "mgmtd/http/connection.h"

namespace mgmtd {

/// What a request is answered with, all of its bytes; `stream`: the connection stays, and is told what comes after
/// that.
struct Answer {
  std::string bytes;
  std::optional<Marks> stream;
};

/// What comes after `from`, up to `to`, as text for those who stand at `from`.
struct StreamPart {
  Marks from, to;
  std::string text;
};

/// Bounds of a loop.
struct LoopLimits {
  size_t connections = 512;                     ///< above these, who has stalled for longest is closed
  size_t streams = 64;                          ///< above these, a stream is refused with 503
  size_t headBytes = 16 * 1024;                 ///< of a request
  size_t bufferedBytes = size_t{64} << 20;      ///< of answers that nobody has taken yet
  std::chrono::milliseconds head{5000};         ///< for a whole request, from the connection on
  std::chrono::milliseconds stall{10'000};      ///< without taking a byte of an answer
  std::chrono::milliseconds heartbeat{15'000};  ///< between two signs of life on a stream
};

/// Run is one thread's; Finish, Publish, Wake and Stop are any thread's.
class ConnectionLoop {
 public:
  /// Whom the loop asks, in its own thread; both return at once, false when too much waits already.
  struct Calls {
    std::function<bool(uint64_t connection, std::string head)> request;  ///< answered by Finish
    std::function<bool(const Marks &from)> more;                         ///< answered by Publish
  };

  ConnectionLoop(base::UniqueFd listener, Calls calls, LoopLimits limits);
  /// Serve until Stop, then close every connection.
  void Run();
  void Stop();
  void Finish(uint64_t connection, Answer answer);
  void Publish(StreamPart part);
  /// Everything up to `newest` can be asked for.
  void Wake(const Marks &newest);

  size_t Connections() const { return open_; }
  size_t Streams() const { return streaming_; }

 private:
  using Clock = Connection::Clock;
  using Entry = std::map<uint64_t, Connection>::iterator;

  void Watch(int fd, uint64_t id, uint32_t events, bool add);
  void AcceptAll();
  void TakeMail();
  void Serve(Entry entry, uint32_t events);
  void Read(Entry entry);
  void Write(Entry entry);
  void GiveAnswer(Entry entry, Answer answer);
  void Refuse(Entry entry, const char *status);
  void AskForMore();
  void GivePart(const StreamPart &part);
  void Tick();
  void Close(Entry entry);
  void CloseStalled();

  const Calls calls_;
  const LoopLimits limits_;
  base::UniqueFd listener_, epoll_, wake_;
  base::Acceptor acceptor_;
  std::map<uint64_t, Connection> connections_;
  uint64_t lastId_;
  std::set<Marks, MarksLess> asked_;  ///< where an answer is awaited from, and
  std::set<Marks, MarksLess> atEnd_;  ///< those of them where there was none
  Marks newest_;
  size_t buffered_ = 0;
  Clock::time_point ticked_{};
  std::atomic<size_t> open_ = 0, streaming_ = 0;

  std::mutex mailMutex_;  ///< guards what other threads hand over, below; never held while something is called
  std::vector<std::pair<uint64_t, Answer>> answers_;
  std::vector<StreamPart> parts_;
  std::optional<Marks> news_;
  bool stopped_ = false;
};

}  // namespace mgmtd
