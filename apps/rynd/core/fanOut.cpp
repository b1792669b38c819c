#include "core/fanOut.h"

#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <memory>
#include <new>

#include "core/agents/agents.h"
#include "core/basics/rawRecord.h"
#include "core/basics/signals.h"
#include "core/basics/statistics.h"
#include "core/feed/traceFeed.h"
#include "core/feed/traceLines.h"
#include "core/feed/traceSocket.h"

namespace rynd {
namespace {

constexpr size_t kFirstBufferSize = 8192;
constexpr size_t kLastBufferSize = 131072;

struct ReadBuffer {
  std::unique_ptr<std::byte[]> bytes;
  size_t size = 0;
};
ReadBuffer readBuffer;

/// Where the record that is fanned out was read from, for the trace feed.
struct Origin {
  char context[kRynLibNameSize] = "";
  int fd = -1;
  bool isConnection = false;  ///< of a program: `fd` is its connection
};
Origin origin;

/// Replace the read buffer by an empty one of `size` bytes. False without memory; the old one is kept then.
bool ResizeReadBuffer(size_t size) {
  std::unique_ptr<std::byte[]> bytes(new (std::nothrow) std::byte[size]);
  if (bytes == nullptr) return false;
  readBuffer.bytes = std::move(bytes);
  readBuffer.size = size;
  return true;
}

/// Read one record, growing the buffer as long as it is too small. 0 and its length, 27, or the library's status.
int ReadRecord(int fd, size_t *length) {
  for (;;) {
    const int status = RynLib_ReadFromFd(fd, readBuffer.bytes.get(), readBuffer.size, length);
    if (status != kRynLibTooSmall) return status;
    if (readBuffer.size == kLastBufferSize) return kRynLibTooSmall;
    const size_t tripled = readBuffer.size * 3;
    if (!ResizeReadBuffer(tripled < 2 * kLastBufferSize ? tripled / 2 : kLastBufferSize)) return kRynLibTooSmall;
  }
}

/// The length of the record at `bytes`, or 0 when it does not lie within `room` bytes.
size_t SoundLength(const std::byte *bytes, size_t room) {
  if (room < kRecordHeaderSize) return 0;
  const size_t total = RecordField(bytes, kRecordTotalLengthOffset);
  return total >= kRecordHeaderSize && total <= kMaxRecordSize && total <= room ? total : 0;
}

/// True when the id and the message of a record of `total` bytes lie inside of it and the id ends in its NUL.
bool HasSoundTexts(const std::byte *record, size_t total) {
  const size_t room = total - kRecordHeaderSize;
  const size_t idLength = RecordField(record, kRecordIdLengthOffset);
  if (idLength == 0 || idLength > room || record[kRecordHeaderSize + idLength - 1] != std::byte{0}) return false;
  return RecordField(record, kRecordMessageLengthOffset) <= room - idLength;
}

/// Wait until there is room in the pipe `writeEnd`, or a stop is requested. Trace clients are accepted meanwhile: who
/// asks what is wrong with a daemon that waits must get an answer.
void WaitForRoom(int writeEnd) {
  pollfd set[] = {{writeEnd, POLLOUT, 0}, {TraceListener(), POLLIN, 0}};
  if (StopRequested() || PollWithSignals(set, std::size(set)) <= 0 || StopRequested()) return;
  if ((set[1].revents & POLLIN) != 0) AcceptTraceClient(set[1].fd);
}

bool Wants(const StreamRoute &route, const char *id, uint64_t idKey) {
  return route.filter.MayMatch(idKey) && !route.stream->closing && SubscriptionMatches(id, *route.stream->subscription);
}

/// Write a whole record to a stream, waiting for room while its agent lags. 0, or the errno value of a failed write.
/// A stop ends the wait: the stream's reader is cancelled next and never sees what is missing.
int WriteRecord(Stream *stream, const std::byte *record, size_t length) {
  size_t written = 0;
  while (written < length) {
    const ssize_t count = write(stream->writeEnd, record + written, length - written);
    if (count >= 0) {
      written += static_cast<size_t>(count);
      continue;
    }
    if (errno == EPIPE && stream->closing) return 0;  // its agent is on its way out and waits for our lock
    if (errno != EAGAIN) return errno;
    WaitForRoom(stream->writeEnd);
    if (StopRequested()) return 0;
  }
  stream->agent->givenRecords.AddAlone();
  stream->agent->givenBytes.AddAlone(length);
  return 0;
}

/// Put one sound record on the trace feed, with where it came from and which agents are about to be given it.
void Trace(const std::byte *record, size_t length) REQUIRES(streamLock) {
  RecordSource from{origin.context, 0, 0};
  std::array<const char *, kMaxAgents> agents{};
  size_t count = 0;
  if (Feed().Wants(TraceFormat::kJson)) {
    if (origin.isConnection) RynLib_UserConnectionSender(origin.fd, &from.pid, &from.uid);
    const uint64_t key = IdKey(RecordId(record));
    for (const StreamRoute &route : StreamRoutes()) {
      if (count < agents.size() && Wants(route, RecordId(record), key)) agents[count++] = route.stream->agent->name;
    }
  }
  TraceObservation(record, length, from, {agents.data(), count});
}

/// Write one sound record to every stream that wants it. 0 or the errno value of a failed write.
int FanOutRecord(const std::byte *record, size_t length) REQUIRES(streamLock) {
  const char *id = RecordId(record);
  const uint64_t key = IdKey(id);
  bool isMatched = false;
  int status = 0;
  for (const StreamRoute &route : StreamRoutes()) {
    if (!Wants(route, id, key)) continue;
    isMatched = true;
    status = WriteRecord(route.stream, record, length);
    if (status != 0 || StopRequested()) break;
  }
  (isMatched ? Stats().matched : Stats().unmatched).AddAlone();
  return status;
}

}  // namespace

bool AllocateReadBuffer() {
  return ResizeReadBuffer(kFirstBufferSize);
}

int ReadAndDispatch(int fd, RynLibHandle handle) {
  RynLib_HandleToName(handle, origin.context);
  origin.fd = fd;
  size_t length = 0;
  const int status = ReadRecord(fd, &length);
  if (status != 0) return status;
  if (length == 0 || length > kMaxRecordSize) return -1;
  int contextFd = -1;
  if (Feed().Wants(TraceFormat::kJson)) RynLib_HandleToFd(handle, &contextFd);
  origin.isConnection = contextFd >= 0 && contextFd != fd;
  streamLock.Acquire();
  const int result = FanOut(readBuffer.bytes.get(), length);
  streamLock.Release();
  return result;
}

int FanOut(const std::byte *bytes, size_t length) {
  int result = 0;
  while (length > 0) {
    const size_t total = SoundLength(bytes, length);
    if (total == 0) {
      Stats().unsound.AddAlone();
      return -1;
    }
    if (HasSoundTexts(bytes, total)) {
      Trace(bytes, total);
      const int status = FanOutRecord(bytes, total);
      if (status != 0) return status;
    } else {
      Stats().unsound.AddAlone();
      result = -1;
    }
    bytes += total;
    length -= total;
  }
  return result;
}

}  // namespace rynd
