#include "core/agents/stream.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <vector>

#include "base/immortal.h"
#include "platform/ryn.h"

namespace rynd {
namespace {

constexpr int kIncomplete = EAGAIN;
// Room for the longest record beside another one, so that a waiting agent rarely makes the poll loop wait.
constexpr int kPipeBytes = 256 * 1024;

/// Both ends of a new pipe: the read end blocking, the write end not. 0 or an errno value.
int MakePipe(int *readEnd, int *writeEnd) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return errno;
  // Kept: 0x800 is no descriptor flag. It leaves the read end blocking, as its reader expects, and clears
  // close-on-exec.
  if (fcntl(ends[0], F_SETFD, 0x800) != 0 || fcntl(ends[1], F_SETFL, O_NONBLOCK) != 0) {
    const int error = errno;
    close(ends[0]);
    close(ends[1]);
    return error;
  }
  fcntl(ends[1], F_SETPIPE_SZ, kPipeBytes);  // a smaller pipe works too, only with more waiting
  *readEnd = ends[0];
  *writeEnd = ends[1];
  return 0;
}

/// Read at most the wanted bytes once. 0 when none are wanted any more, kIncomplete, or an errno value.
int ReadWanted(Stream *stream) {
  std::byte *const place = stream->buffer == nullptr ? stream->header.data() : stream->buffer.get();
  const ssize_t count = read(stream->readEnd, place + stream->held, stream->wanted);
  if (count == 0) {
    Panic("EOF trying to read %d bytes from stream %p\n", static_cast<int>(stream->wanted),
          static_cast<void *>(stream));
  }
  if (count < 0) return errno;
  stream->held += static_cast<size_t>(count);
  stream->wanted -= static_cast<size_t>(count);
  return stream->wanted == 0 ? 0 : kIncomplete;
}

/// Both phases of reassembly. 0 when the whole record is held, kIncomplete, or an errno value.
int Reassemble(Stream *stream) {
  if (stream->held == 0) stream->wanted = kRecordHeaderSize;
  if (stream->held < kRecordHeaderSize) {
    const int status = ReadWanted(stream);
    if (status != 0) return status;
  }
  if (stream->buffer == nullptr) {
    const size_t total = RecordField(stream->header.data(), kRecordTotalLengthOffset);
    stream->buffer.reset(new (std::nothrow) std::byte[total]);
    if (stream->buffer == nullptr) return ENOMEM;
    std::memcpy(stream->buffer.get(), stream->header.data(), kRecordHeaderSize);
    stream->wanted = total - kRecordHeaderSize;
    if (stream->wanted == 0) return 0;
  }
  return ReadWanted(stream);
}

/// Close `*fd` once. 0 or an errno value.
int CloseEnd(int *fd) {
  if (*fd < 0) return 0;
  const int status = close(*fd) == 0 ? 0 : errno;
  *fd = -1;
  return status;
}

ListLinks streamList;
base::Immortal<std::vector<StreamRoute>> streamRoutesKept;
std::vector<StreamRoute> &streamRoutes = *streamRoutesKept;

/// False without memory.
bool AddRoute(const Subscription &subscription, Stream *stream) REQUIRES(streamLock) try {
  streamRoutes.push_back({MakeIdFilter(subscription), stream});
  return true;
} catch (const std::bad_alloc &) {
  return false;
}

/// Give back what a stream holds that was never registered.
void Discard(Stream *stream) {
  CloseEnd(&stream->readEnd);
  CloseEnd(&stream->writeEnd);
  SubscriptionDestroy(stream->subscription);
}

}  // namespace

ListLinks *StreamList() {
  return &streamList;
}

std::span<const StreamRoute> StreamRoutes() {
  return streamRoutes;
}

int StreamListInit() {
  const int status = streamLock.Init();
  streamList.previous = &streamList;
  streamList.next = &streamList;
  streamRoutes.clear();
  return status;
}

int StreamOpen(const char *name, const Subscription &subscription, Stream **stream) {
  std::unique_ptr<Stream> opened(new (std::nothrow) Stream);
  if (opened == nullptr) return 1;
  if (MakePipe(&opened->readEnd, &opened->writeEnd) != 0) return 2;
  try {
    opened->agent = CurrentAgentStatistics();
    opened->name = name;
    opened->subscription = new Subscription(subscription);
  } catch (const std::bad_alloc &) {
    Discard(opened.get());
    return 1;
  }
  streamLock.Acquire();
  const bool registered = AddRoute(subscription, opened.get());
  if (registered) ListAppend(&streamList, opened.get());
  streamLock.Release();
  if (!registered) {
    Discard(opened.get());
    return 1;
  }
  *stream = opened.release();
  return 0;
}

int StreamGetFd(const Stream &stream, int *fd, size_t *count) {
  if (*count < 1) return 1;
  *fd = stream.readEnd;
  *count = 1;
  return 0;
}

int StreamRead(Stream *stream, Observation **observation, bool *complete) {
  *complete = false;
  const int status = Reassemble(stream);
  if (status == kIncomplete) return 0;
  if (status != 0) return 2;
  *observation = nullptr;
  const bool made = Ryn_MakeRyn(stream->buffer.get(), stream->held, observation) == 0;
  if (made) stream->buffer.release();
  stream->agent->received.AddAlone();
  stream->agent->receivedBytes.AddAlone(stream->held);
  stream->buffer.reset();
  stream->held = 0;
  if (!made) {
    stream->agent->unhandled.AddAlone();
    return 2;
  }
  *complete = true;
  return 0;
}

int StreamClose(Stream *stream) {
  // A fan-out may hold the lock and wait for room in this very pipe: closing the read end ends that wait.
  stream->closing = true;
  int readStatus = 0;
  if (!streamLock.TryAcquire()) {
    readStatus = CloseEnd(&stream->readEnd);
    streamLock.Acquire();
  }
  if (stream->readEnd >= 0) readStatus = CloseEnd(&stream->readEnd);
  const int status = readStatus != 0 ? readStatus : CloseEnd(&stream->writeEnd);
  SubscriptionDestroy(stream->subscription);
  ListRemove(stream);
  std::erase_if(streamRoutes, [stream](const StreamRoute &route) { return route.stream == stream; });
  streamLock.Release();
  delete stream;
  return status == 0 ? 0 : 2;
}

}  // namespace rynd
