// Something that events and problems are passed on to: a thread of its own, which goes on where it was.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

#include "mgmtd/sinks/sinkStatus.h"
#include "mgmtd/store/reader.h"
#include "mgmtd/store/writer.h"

namespace mgmtd {

/// How an attempt ended.
enum class Outcome {
  kPassed,
  kRefused,  ///< it will never be taken; go on without it
  kRetry,    ///< not now: the same again later
  kStopped,  ///< a stop came before it was clear
};

/// What all sinks share. Start and Stop are one thread's, Status any thread's, the rest the sink's own.
class Sink {
 public:
  /// `name` is what its position is kept under. `feed` and `writer` are borrowed.
  Sink(std::string name, const std::string &storePath, Feed *feed, Writer *writer);
  virtual ~Sink() = default;
  Sink(const Sink &) = delete;
  Sink &operator=(const Sink &) = delete;

  void Start();
  /// Ask for the end; Join waits for it, at most for what is being passed on now.
  virtual void Stop();
  void Join();
  SinkStatus Status() const;

 protected:
  virtual void Run() = 0;
  /// How much there is between the two.
  virtual int64_t Lag(const Marks &at, const Marks &newest) const = 0;

  bool Stopped() const;
  /// Sleep; false when a stop came.
  bool Pause(std::chrono::milliseconds time);
  /// Sleep until there is something newer than the position, or for `limit`; false when a stop came.
  bool AwaitNews(std::chrono::milliseconds limit);
  /// Note that everything up to `marks` was passed on.
  void SetPosition(const Marks &marks);
  Marks Position() const;
  /// Count an attempt and tell the log when things change. The pause until the next one after kRetry.
  std::chrono::milliseconds Note(Outcome outcome, const std::string &error, uint64_t count = 1);

  Feed *const feed_;
  Reader reader_;

 private:
  void FindPosition();

  const std::string name_;
  Writer *const writer_;
  mutable std::mutex mutex_;  ///< guards everything below; nothing is called while it is held
  std::condition_variable stopping_;
  bool stopped_ = false;
  Marks position_;
  SinkStatus status_;
  std::chrono::milliseconds pause_{0};
  std::thread thread_;
};

/// A sink that takes events one by one, in order.
class EventSink : public Sink {
 public:
  using Sink::Sink;

 protected:
  void Run() override;
  int64_t Lag(const Marks &at, const Marks &newest) const override { return newest.event - at.event; }
  /// Pass `event` on; `error` says why not, for people.
  virtual Outcome Pass(const StoredEvent &event, std::string *error) = 0;
};

}  // namespace mgmtd
