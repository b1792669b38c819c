// The one thread that writes the store. Everybody else hands it what is to be written and goes on.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "mgmtd/store/feed.h"

namespace mgmtd {

/// What came over one connection.
struct ReceivedRecord {
  std::vector<std::byte> bytes;
  std::string cut;         ///< "" or why it was cut off before its end
  int64_t receivedUs = 0;  ///< microseconds since the epoch
};

/// How the store does. Counts are of this run.
struct StoreHealth {
  bool works = true;        ///< the last commit succeeded
  std::string problem;      ///< what is wrong with the file, for people; "" when it works
  int64_t sinceUs = 0;      ///< since when, when it does not work
  uint64_t received = 0;    ///< records, all of them
  uint64_t stored = 0;      ///< events that are committed
  uint64_t doubles = 0;     ///< records that were there already
  uint64_t damaged = 0;     ///< records that were kept as far as they can be read
  uint64_t queueFull = 0;   ///< records dropped because the queue to the writer was full
  uint64_t memoryFull = 0;  ///< events that are not in the file because too many waited for it; they were passed on
  uint64_t waiting = 0;     ///< events in memory that are not committed yet
  uint64_t forgotten = 0;   ///< problems closed because too many were open
  uint64_t expired = 0;     ///< events removed because of their age or of the file's size
  int64_t lastCommitUs = 0;
  int64_t fileBytes = 0;  ///< what the file's pages in use take
};

struct WriterOptions {
  std::string path{};                         ///< of the file; its folder is made when it is missing
  int64_t retentionDays = 90;                 ///< events older than this go
  int64_t retentionBytes = int64_t{1} << 30;  ///< above this the oldest go
};

/// Takes records, decodes them, keeps them and what is wrong, and publishes both to the feed. Its thread runs from
/// Start to Stop. All calls but these two: any thread, and none of them waits for the file.
class Writer {
 public:
  /// Records and bytes that wait for the thread; what comes while there are more is dropped and counted.
  static constexpr size_t kMostQueued = 50'000;
  static constexpr size_t kMostQueuedBytes = size_t{64} << 20;
  /// Events that wait in memory for a file that can't be written.
  static constexpr size_t kMostWaiting = 100'000;
  static constexpr size_t kMostWaitingBytes = size_t{128} << 20;

  /// `feed` is borrowed.
  Writer(WriterOptions options, Feed *feed);
  ~Writer();

  /// Open the file and start the thread. "" or why that must not be: the file is of a newer version. A file that can't
  /// be used for any other reason is told in the log and in Health, and tried again.
  std::string Start();
  /// Commit what was added and end the thread; after `limit` what is not committed is given up and told in the log.
  void Stop(std::chrono::milliseconds limit);

  /// False when it was dropped.
  bool Add(ReceivedRecord record);
  /// End the open problems that the event `eventId` opened or repeated, of all its subjects or of `subject` alone, as
  /// done by hand by `user`. How many were ended; nothing when the thread does not answer within 2 s.
  std::optional<size_t> Acknowledge(int64_t eventId, const std::string &subject, const std::string &user);
  /// Note up to where the sink called `sink` has passed everything on; it is in the file with the next commit.
  void SetSinkPosition(const std::string &sink, const Marks &passed);
  /// Where it was; nothing for a sink that was never there, or while the file can't be read.
  std::optional<Marks> SinkPosition(const std::string &sink) const;
  StoreHealth Health() const;

 private:
  class Worker;
  std::unique_ptr<Worker> worker_;
};

}  // namespace mgmtd
