#include "post/ryndKprob.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#include "core/basics/clock.h"
#include "core/basics/log.h"
#include "core/basics/statistics.h"
#include "core/feed/traceFeed.h"
#include "core/feed/traceLines.h"
#include "platform/flight.h"
#include "platform/messageFormat.h"
#include "platform/system.h"
#include "post/eventRecord.h"
#include "post/rateLimit.h"
#include "post/ryndKprobQueue.h"

namespace rynd {
namespace {

constexpr char kSource[] = "apps/rynd/ryndKprob";
constexpr size_t kFirstBufferSize = 1171;
constexpr int kMaxAttempts = 5;

struct FreeText {
  void operator()(char *text) const { free(text); }
};
using MessageText = std::unique_ptr<char, FreeText>;

/// Characters in front of the short id, by category.
size_t SkipCount(uint32_t category) {
  switch (category) {
    case kProblem:
      return 20;
    case kAudit:
    case kClear:
      return 18;
    default:
      Panic("NOT_REACHED %s:%d \n", kSource, 656);
  }
}

void PutField(std::byte *record, size_t offset, size_t value) {
  const auto field = static_cast<uint32_t>(value);
  std::memcpy(record + offset, &field, sizeof field);
}

/// A record while it is built: `size` bytes that the record may use, with as many zeroed ones behind them, since a send
/// that goes on after a partial one may reach beyond the record.
struct RecordBuffer {
  std::unique_ptr<std::byte[]> bytes;
  size_t size = 0;
};

/// Grow `buffer` to `size`, keeping its first `kept` bytes. False without memory.
bool Grow(RecordBuffer *buffer, size_t size, size_t kept) {
  std::unique_ptr<std::byte[]> bytes(new (std::nothrow) std::byte[2 * size]());
  if (bytes == nullptr) return false;
  if (kept > 0) std::memcpy(bytes.get(), buffer->bytes.get(), kept);
  buffer->bytes = std::move(bytes);
  buffer->size = size;
  return true;
}

/// Everything in front of the arguments.
void FillFixedPart(std::byte *record, const char *eventNamespace, const char *shortId, size_t nameLength) {
  const size_t front = strlen(eventNamespace);
  std::memcpy(record + kEventNameOffset, eventNamespace, front);
  std::memcpy(record + kEventNameOffset + front, shortId, nameLength - front);
  std::memcpy(record + kEventUuidOffset, SystemUuidText(), kEventUuidSize);
  PutField(record, kEventTotalLengthOffset, nameLength + kEventFixedLength);
  PutField(record, kEventArgumentCountOffset, 0);
  PutField(record, kEventNameLengthOffset, nameLength);
  Hyk_StampEvent(record);
}

/// Count and show that the event `name` is not delivered.
void Dropped(const char *eventNamespace, const char *shortId, DropReason reason) {
  Stats().events.dropped[static_cast<size_t>(reason)].Add();
  CurrentAgentStatistics()->dropped.Add();
  Hyk_RecordDrop(eventNamespace, shortId, DropReasonName(reason));
  if (!Feed().Wants(TraceFormat::kJson)) return;
  char name[kMaxEventNameLength];  // a longer one is cut
  snprintf(name, sizeof name, "%s%s", eventNamespace, shortId);
  TraceDrop(name, DropReasonName(reason));
}

/// Serialise the arguments behind the name, growing the buffer as needed. 0, or why the event is to be dropped, with
/// what has to be said logged: ENOMEM, ENOSPC for arguments that are too long, EINVAL for a format that is none.
[[gnu::format(printf, 3, 0)]] int SerializeArguments(RecordBuffer *buffer, size_t areaOffset, const char *format,
                                                     va_list arguments, size_t *used, uint32_t *count) {
  for (int attempt = 1;; ++attempt) {
    va_list again;
    va_copy(again, arguments);
    const size_t room = buffer->size - areaOffset - (kEventFixedLength - kEventNameOffset);
    const int status = MsgFmt_Serialize(buffer->bytes.get() + areaOffset, room, format, again, used, count);
    va_end(again);
    if (status != ENOSPC || attempt == kMaxAttempts) return status;
    const size_t doubled = buffer->size * 2;
    if (!Grow(buffer, doubled, areaOffset)) {
      Log("Failed to allocate %zu bytes for prob buffer.", doubled);
      return ENOMEM;
    }
  }
}

/// The part of a post format from `offset` on.
[[gnu::format_arg(1)]] const char *MessagePart(const char *format, size_t offset) {
  return format + offset;
}

/// The 64-bit field at `offset` of a record's header: its time at 0, its sequence number at 8.
uint64_t HeaderField(const std::byte *record, size_t offset) {
  uint64_t value = 0;
  std::memcpy(&value, record + offset, sizeof value);
  return value;
}

}  // namespace

void EventPost(uint32_t category, const char *format, ...) {
  const size_t idStart = strnlen(format, SkipCount(category));
  const size_t length = strcspn(format + idStart, ")");
  const size_t messageStart = idStart + length + (format[idStart + length] == ')' ? 1 : 0);
  const std::unique_ptr<char[]> shortId(new (std::nothrow) char[length + 1]());
  if (shortId == nullptr) Panic("MEM_ALLOC %s:%d \n", kSource, 667);
  std::memcpy(shortId.get(), format + idStart, length);
  va_list arguments;
  va_start(arguments, format);
  EventPostCore(EventNamespace(category).data(), shortId.get(), MessagePart(format, messageStart), arguments);
  va_end(arguments);
}

void Rynd_PostProblem(const char *shortId, const char *format, ...) {
  Log("Using discouraged \"Rynd_PostProblem\" interface for kprob: %s", shortId);
  va_list arguments;
  va_start(arguments, format);
  EventPostCore(EventNamespace(kProblem).data(), shortId, format, arguments);
  va_end(arguments);
}

void EventPostCore(const char *eventNamespace, const char *shortId, const char *messageFormat, va_list arguments) {
  const auto drop = [&](DropReason reason) { Dropped(eventNamespace, shortId, reason); };
  Stats().events.posted.Add();
  CurrentAgentStatistics()->posted.Add();
  RecordBuffer buffer;
  if (!Grow(&buffer, kFirstBufferSize, 0)) {
    Log("Failed to allocate %zu bytes for prob buffer.\n", kFirstBufferSize);
    return drop(DropReason::kMemory);
  }
  if (!PassesRateLimit(WallClockS(), eventNamespace, shortId)) return drop(DropReason::kRate);
  const size_t nameLength = strlen(eventNamespace) + strlen(shortId) + 1;
  if (nameLength > kMaxEventNameLength) return drop(DropReason::kName);
  FillFixedPart(buffer.bytes.get(), eventNamespace, shortId, nameLength);

  const size_t areaOffset = kEventNameOffset + nameLength;
  size_t used = 0;
  uint32_t count = 0;
  const int status = SerializeArguments(&buffer, areaOffset, messageFormat, arguments, &used, &count);
  if (status != 0) return drop(status == ENOMEM ? DropReason::kMemory : DropReason::kSize);
  std::byte *const record = buffer.bytes.get();
  std::byte *const area = record + areaOffset;
  const char *name = reinterpret_cast<const char *>(record + kEventNameOffset);
  const MessageText message(MsgFmt_Format(messageFormat, area, count));
  if (message == nullptr) return drop(DropReason::kMemory);
  LogObservationText(name, message.get(), HeaderField(record, 0));
  MsgFmt_PointersToOffsets(area, count);
  const size_t length = nameLength + kEventFixedLength + used;
  PutField(record, kEventTotalLengthOffset, length);
  PutField(record, kEventArgumentCountOffset, count);
  Hyk_RecordEvent(record, length);
  TraceEvent({HeaderField(record, 0), HeaderField(record, kEventSequenceOffset), name, message.get(), area, count});
  Deliver(record, length, name, message.get());
}

}  // namespace rynd
