// What the recorder's writers, which are all threads, and its own thread share.
#pragma once

#include <pthread.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <semaphore>
#include <string>

#include "hosted/flight/recorder.h"
#include "hosted/flight/ringFiles.h"

namespace hosted::recorder {

constexpr size_t kStep = size_t{256} << 10;  ///< bytes after which the recorder's thread brings them to the disk
constexpr size_t kAhead = kStep;             ///< bytes that are ready to be written
constexpr uint16_t kMostThreads = 256;       ///< that are told apart
constexpr size_t kNameSize = 64;
constexpr char kLost[] = "its file can't be accessed any more: a disk has failed, or the file was cut";

/// Appending takes a fraction of a microsecond, so whoever finds the lock taken had better look again at once.
class ShortMutex {
 public:
  void lock() { pthread_mutex_lock(&mutex_); }
  void unlock() { pthread_mutex_unlock(&mutex_); }

 private:
  pthread_mutex_t mutex_ = PTHREAD_ADAPTIVE_MUTEX_INITIALIZER_NP;
};

/// Counted by who holds the lock, read by anybody.
class Count {
 public:
  void Add(uint64_t more) { count_.store(Get() + more, std::memory_order_relaxed); }
  uint64_t Get() const { return count_.load(std::memory_order_relaxed); }

 private:
  std::atomic<uint64_t> count_ = 0;
};

struct Recorder {
  // What every entry touches stands together, since it goes to and fro between the processors.
  ShortMutex mutex;  ///< guards what follows, up to the options; nothing nests in it
  bool isOpen = false;
  uint64_t run = 0;                           ///< rises with each start
  uint64_t lostSince = 0;                     ///< entries since the last one
  RingFile current;                           ///< appended to
  size_t wakeAt = 0;                          ///< of it, when the recorder's thread has to look after it
  int64_t nowNs = 0;                          ///< of the monotonic clock, for the entry in hand
  int64_t wallReadNs = 0;                     ///< when the wall clock was read last
  int64_t wallAheadNs = 0;                    ///< of the monotonic clock then
  Count entriesCount, bytesCount, lostCount;  ///< of all runs

  RingFile next;  ///< made by the recorder's thread; none: not ready
  RingFile full;  ///< of which the recorder's thread has to bring the rest to the disk
  uint64_t startWallUs = 0, startMonotonicNs = 0;
  uint16_t threads = 0;                                         ///< numbers that were given
  std::array<std::array<char, kNameSize>, kMostThreads> names;  ///< of the threads, by number

  FlightOptions options;  ///< constant while it is open
  RingFiles files;        ///< of the recorder's thread while that runs
  std::counting_semaphore<> wake{0};
  std::binary_semaphore ended{1};  ///< given while the recorder's thread does not run
  std::atomic<bool> isEnding = false;
  bool hasFailed = false;  ///< of the recorder's thread
};

/// Why pages can't be had, by the errno value.
std::string NoPages(int error);

/// Start the recorder's thread, which brings entries to the disk and looks after pages and files until `isOpen` is
/// false, and then gives `ended`. 0 or an errno value. Initial thread.
int StartKeeper(Recorder *recorder);

}  // namespace hosted::recorder
