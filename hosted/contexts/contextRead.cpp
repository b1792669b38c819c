// Reading records from kernel contexts. The poll loop's thread only; this is its hot path, so one system call reads a
// record, whatever its length, and what waits behind it comes along.
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <memory>
#include <new>
#include <utility>

#include "base/immortal.h"
#include "hosted/contexts/contextCounters.h"
#include "hosted/contexts/contexts.h"
#include "hosted/contexts/discardLog.h"
#include "hosted/flight/recorder.h"
#include "hosted/records/rawRecord.h"

namespace hosted {
namespace {

constexpr int kMostTogether = 16;  ///< records of one read

/// A record that did not fit its reader's buffer and waits, in front of its socket's queue, for a larger one or a
/// reset. Of one above kMaxRecordSize, which never fits, only the length is right.
struct HeldRecord {
  size_t length = 0;  ///< 0 for none
  std::unique_ptr<std::byte[]> bytes;
};

/// By context.
std::array<HeldRecord, kRynAsyncContexts> &HeldRecords() {
  static base::Immortal<std::array<HeldRecord, kRynAsyncContexts>> records;
  return *records;
}
size_t held = 0;

/// Keep a record of context `id` for a larger buffer. kRynLibTooSmall, or 0 when there is no memory for it: it is lost.
int Hold(uint32_t id, const std::byte *record, size_t length) {
  const size_t size = length <= kMaxRecordSize ? length : 0;
  std::unique_ptr<std::byte[]> bytes(new (std::nothrow) std::byte[size]);
  if (bytes == nullptr) {
    DiscardRecord(id, "no memory to keep it until there is room", {});
    return 0;
  }
  std::copy_n(record, size, bytes.get());
  HeldRecords()[id] = {length, std::move(bytes)};
  ++held;
  return kRynLibTooSmall;
}

/// Receive the next datagram of context `id`. 0 with its length, or -1 for none; kRynLibTooSmall, or 0 and -1, when it
/// is longer than its buffer; or an errno value. One call with one buffer is the cheapest way to receive, and the only
/// one that never loses what is too long for its reader.
int Receive(uint32_t id, int fd, std::byte *buffer, size_t size, ssize_t *length) {
  static std::array<std::byte, kMaxRecordSize> record;
  *length = -1;
  const ssize_t got = recv(fd, record.data(), record.size(), MSG_DONTWAIT | MSG_TRUNC);
  if (got < 0) return errno == EAGAIN || errno == EINTR ? 0 : errno;
  const auto whole = static_cast<size_t>(got);
  // Above the longest record it never fits, whatever the buffer: such a record ends in a reset.
  if (whole > size || whole > kMaxRecordSize) return Hold(id, record.data(), whole);
  std::copy_n(record.begin(), whole, buffer);
  *length = got;
  return 0;
}

/// Take the record that waits in front of the queue into `buffer`. 0, or kRynLibTooSmall.
int TakeHeld(HeldRecord *waiting, std::byte *buffer, size_t size, ssize_t *length) {
  if (waiting->length > size || waiting->length > kMaxRecordSize) return kRynLibTooSmall;
  std::copy_n(waiting->bytes.get(), waiting->length, buffer);
  *length = static_cast<ssize_t>(waiting->length);
  *waiting = {};
  --held;
  return 0;
}

/// True when another record waits on the socket and has at most `room` bytes. An empty one counts as none: it is looked
/// at by a read that begins with it.
bool NextFits(int fd, size_t room) {
  int size = 0;  // of the first datagram alone
  return ioctl(fd, FIONREAD, &size) == 0 && size > 0 && static_cast<size_t>(size) <= room;
}

/// Fill `buffer` with whole records, back to back: the first one that waits and those behind it that fit. What does not
/// stays on the socket, whose descriptor tells of it.
int ReadKernelRecords(uint32_t id, int fd, std::byte *buffer, size_t size, size_t *length) {
  const size_t room = std::min(size, kMaxRecordSize);
  int records = 0;
  for (int discarded = 0; records < kMostTogether && discarded < kMaxDiscards;) {
    if (records > 0 && !NextFits(fd, room - *length)) break;
    std::byte *const place = buffer + *length;
    ssize_t got = -1;
    const bool waits = held > 0 && HeldRecords()[id].length > 0;
    const int status = waits ? TakeHeld(&HeldRecords()[id], place, size - *length, &got)
                             : Receive(id, fd, place, size - *length, &got);
    if (status != 0 || got < 0) return records == 0 ? status : 0;
    const auto gotLength = static_cast<size_t>(got);
    if (const char *wrong = CheckRecord(place, gotLength); wrong != nullptr) {
      DiscardRecord(id, wrong, {});
      ++discarded;
      continue;
    }
    CountRecord(id, gotLength);
    RecordObservation(id, place, gotLength);
    *length += gotLength;
    ++records;
  }
  return 0;
}

}  // namespace

bool DropHeldRecord(uint32_t id, size_t *bytes) {
  if (id >= kRynAsyncContexts || HeldRecords()[id].length == 0) return false;
  *bytes += HeldRecords()[id].length;
  HeldRecords()[id] = {};
  --held;
  return true;
}

}  // namespace hosted

int RynLib_ReadFromFd(int fd, std::byte *buffer, size_t size, size_t *length) {
  *length = 0;
  hosted::TellDueDiscards();
  if (hosted::IsUserConnection(fd)) return hosted::ReadUserRecord(fd, buffer, size, length);
  const uint32_t id = hosted::FindContext(fd);
  return id < kRynAsyncContexts ? hosted::ReadKernelRecords(id, fd, buffer, size, length) : EBADF;
}
