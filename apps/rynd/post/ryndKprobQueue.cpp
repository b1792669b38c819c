#include "post/ryndKprobQueue.h"

#include <cstring>
#include <memory>
#include <new>
#include <utility>

#include "core/basics/cancel.h"
#include "core/basics/clock.h"
#include "core/basics/list.h"
#include "core/basics/log.h"
#include "core/basics/statistics.h"
#include "core/basics/threadAnnotations.h"
#include "core/basics/timerThread.h"
#include "core/feed/traceLines.h"
#include "platform/hsi.h"
#include "platform/system.h"
#include "post/eventRecord.h"
#include "post/mgmtdSocket.h"

namespace rynd {
namespace {

constexpr int64_t kRetryS = 60;

/// The queue lock: held across sends, so whoever waits for it may be cancelled.
class CAPABILITY("mutex") QueueMutex {
 public:
  void Lock() ACQUIRE() NO_THREAD_SAFETY_ANALYSIS {
    if (mutex_.TryLock()) return;
    Hyk_FlushLog();  // whoever holds it may wait for the management agent
    mutex_.Lock();
  }
  void Unlock() RELEASE() NO_THREAD_SAFETY_ANALYSIS { mutex_.Unlock(); }

 private:
  CancellableMutex mutex_;
};

class SCOPED_CAPABILITY QueueLock {
 public:
  explicit QueueLock(QueueMutex &mutex) ACQUIRE(mutex) : mutex_(mutex) { mutex_.Lock(); }
  ~QueueLock() RELEASE() { mutex_.Unlock(); }
  QueueLock(const QueueLock &) = delete;
  QueueLock &operator=(const QueueLock &) = delete;

 private:
  QueueMutex &mutex_;
};

/// One event that waits; `record` has as many zeroed bytes behind it as it is long.
struct QueueEntry : ListLinks {
  size_t length = 0;
  uint64_t sinceUs = 0;  ///< when it was put there, microseconds of the wall clock
  std::unique_ptr<std::byte[]> record;
  std::unique_ptr<char[]> message;
  const char *Name() const { return reinterpret_cast<const char *>(record.get() + kEventNameOffset); }
};

QueueMutex queueMutex;  // guards the two below and every send; never taken inside of another lock
ListLinks queue GUARDED_BY(queueMutex);
bool retryPending GUARDED_BY(queueMutex) = false;

int retryTimer = -1;                       // set once, before any agent starts
std::byte systemUuid[kHsiSystemUuidSize];  // likewise

/// Arm the retry. Without the queue lock: it takes the timers' own.
void ArmRetry() EXCLUDES(queueMutex) {
  ArmTimer(retryTimer, 0, kRetryS);
}

/// A copy of `length` bytes at the front of `size` zeroed ones, or null without memory.
template <typename Byte>
std::unique_ptr<Byte[]> Copy(const Byte *bytes, size_t length, size_t size) {
  std::unique_ptr<Byte[]> copy(new (std::nothrow) Byte[size]());
  if (copy != nullptr) std::memcpy(copy.get(), bytes, length);
  return copy;
}

uint64_t Sequence(const std::byte *record) {
  uint64_t sequence = 0;
  std::memcpy(&sequence, record + kEventSequenceOffset, sizeof sequence);
  return sequence;
}

/// Count and show that an event could not be kept.
void DroppedForMemory(const char *name) {
  Stats().events.dropped[static_cast<size_t>(DropReason::kMemory)].Add();
  CurrentAgentStatistics()->dropped.Add();
  TraceDrop(name, DropReasonName(DropReason::kMemory));
}

/// Send one record. 0 or -1. The statistics show since when a send goes on.
int Send(const std::byte *record, size_t length) REQUIRES(queueMutex) {
  EventStatistics &events = Stats().events;
  events.sendingSinceUs = WallClockUs();
  const int status = SendToMgmtd(record, length);
  events.sendingSinceUs = 0;
  if (status != 0) return status;
  events.sent.Add();
  TraceDelivery(Sequence(record), "sent");
  return 0;
}

/// Let the statistics show what waits.
void ShowQueue(uint64_t waiting) REQUIRES(queueMutex) {
  EventStatistics &events = Stats().events;
  events.waiting = waiting;
  events.oldestWaitingUs = ListIsEmpty(queue) ? 0 : static_cast<const QueueEntry *>(queue.next)->sinceUs;
}

/// Append copies of the record and its message to the queue. False, with the reason logged, without memory.
bool AppendEntry(const std::byte *record, size_t length, const char *name, const char *message) REQUIRES(queueMutex) {
  std::unique_ptr<QueueEntry> entry(new (std::nothrow) QueueEntry);
  if (entry == nullptr) {
    Log("Could not allocate memory for data of kprob ([%s] %s) to schedule for later. Will have to drop this kprob.",
        name, message);
    return false;
  }
  entry->length = length;
  entry->sinceUs = WallClockUs();
  entry->record = Copy(record, length, 2 * length);
  if (entry->record == nullptr) {
    Log("Could not allocate memory for buf of kprob ([%s] %s) to schedule for later. Will have to drop this kprob.",
        name, message);
    return false;
  }
  const size_t messageSize = strlen(message) + 1;
  entry->message = Copy(message, messageSize, messageSize);
  if (entry->message == nullptr) {
    Log("Could not allocate memory for kprobMsg of kprob ([%s] %s) to schedule for later. Will have to drop this "
        "kprob.",
        name, message);
    return false;
  }
  ListAppend(&queue, entry.release());
  return true;
}

/// Queue the event. True when the retry has to be armed, which sets the flag.
bool Enqueue(const std::byte *record, size_t length, const char *name, const char *message) REQUIRES(queueMutex) {
  if (AppendEntry(record, length, name, message)) {
    ShowQueue(Stats().events.waiting + 1);
    TraceDelivery(Sequence(record), "queued");
  } else {
    DroppedForMemory(name);
  }
  return !std::exchange(retryPending, true);
}

/// Send the event, or queue it. True when the retry has to be armed.
bool SendOrQueue(const std::byte *record, size_t length, const char *name, const char *message) EXCLUDES(queueMutex) {
  const QueueLock lock(queueMutex);
  if (retryPending) {
    Log("Some events in queue, adding event ([%s] %s) to it", name, message);
  } else if (Send(record, length) == 0) {
    Log("The event ([%s] %s) was sent immediately to mgmtd;", name, message);
    return false;
  } else {
    Log("The event ([%s] %s) could not be sent immediately to mgmtd; queueing for retry.", name, message);
  }
  return Enqueue(record, length, name, message);
}

/// Send what waits, in order. False when something is left.
bool SendQueue() EXCLUDES(queueMutex) {
  const QueueLock lock(queueMutex);
  while (!ListIsEmpty(queue)) {
    auto *entry = static_cast<QueueEntry *>(queue.next);
    Stats().events.retries.Add();
    if (Send(entry->record.get(), entry->length) != 0) {
      Log("Failed to send event ([%s] %s). Stopping send of events until next retry.", entry->Name(),
          entry->message.get());
      return false;
    }
    Log("Successfully sent event ([%s] %s).\n", entry->Name(), entry->message.get());
    ListRemove(entry);
    delete entry;
    ShowQueue(Stats().events.waiting - 1);
  }
  retryPending = false;
  return true;
}

}  // namespace

void EventPostInit() {
  retryTimer = RegisterTimer("queue retry", QueueFlush);
  const HYK_ReturnStatus status = HSI_Get("system/systemUuid", nullptr, systemUuid, sizeof systemUuid);
  if (status != kHykOk) Log("Cannot read system/systemUuid: %s\n", strerror(HYK_ReturnStatusToErrno(status)));
}

const std::byte *SystemUuidText() {
  return systemUuid + kEventUuidOffset;
}

void Deliver(const std::byte *record, size_t length, const char *name, const char *message) {
  if (SendOrQueue(record, length, name, message)) ArmRetry();
}

void QueueFlush() {
  if (!SendQueue()) ArmRetry();
}

}  // namespace rynd
