// Reading records from kernel contexts. The poll loop's thread only; this is its hot path, so one system call reads a
// record, whatever its length.
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <vector>

#include "hosted/contexts/contexts.h"
#include "hosted/contexts/discardLog.h"
#include "hosted/records/rawRecord.h"

namespace hosted {
namespace {

/// A record that did not fit its reader's buffer and waits, in front of its socket's queue, for a larger one or a
/// reset. Of one above kMaxRecordSize, which never fits, only the length is right.
struct HeldRecord {
  int fd;
  size_t length;
  std::vector<std::byte> bytes;
};

std::vector<HeldRecord> &HeldRecords() {
  static auto &held = *new std::vector<HeldRecord>;
  return held;
}

std::vector<HeldRecord>::iterator FindHeld(int fd) {
  return std::find_if(HeldRecords().begin(), HeldRecords().end(),
                      [fd](const HeldRecord &held) { return held.fd == fd; });
}

/// Receive the next datagram. Its length, of which the first `size` bytes are in `buffer`; or -1 with errno. One call
/// with one buffer is the cheapest way to receive, and the only one that never loses what is too long for its reader.
ssize_t Receive(int fd, std::byte *buffer, size_t size) {
  static std::array<std::byte, kMaxRecordSize> record;
  const ssize_t got = recv(fd, record.data(), record.size(), MSG_DONTWAIT | MSG_TRUNC);
  if (got < 0) return got;
  const size_t length = static_cast<size_t>(got);
  const auto end = record.begin() + static_cast<std::ptrdiff_t>(std::min(length, record.size()));
  if (length > size) {
    HeldRecords().push_back({fd, length, {record.begin(), length <= kMaxRecordSize ? end : record.begin()}});
  } else {
    std::copy(record.begin(), end, buffer);
  }
  return got;
}

/// Take the record that waits in front of the queue, if there is one, into `buffer`. 0, or kRynLibTooSmall.
int TakeHeld(int fd, std::byte *buffer, size_t size, size_t *length) {
  const auto held = FindHeld(fd);
  if (held == HeldRecords().end()) return 0;
  if (held->length > size || held->length > kMaxRecordSize) return kRynLibTooSmall;
  std::copy(held->bytes.begin(), held->bytes.end(), buffer);
  *length = held->length;
  HeldRecords().erase(held);
  return 0;
}

int ReadKernelRecord(int fd, std::byte *buffer, size_t size, size_t *length) {
  Discards discards;
  while (discards.Count() < kMaxDiscards) {
    size_t taken = 0;
    if (!HeldRecords().empty() && TakeHeld(fd, buffer, size, &taken) != 0) return kRynLibTooSmall;
    const ssize_t got = taken > 0 ? static_cast<ssize_t>(taken) : Receive(fd, buffer, size);
    if (got < 0) return errno == EAGAIN || errno == EINTR ? 0 : errno;
    const auto gotLength = static_cast<size_t>(got);
    // Above the longest record it never fits, whatever the buffer: such a record ends in a reset.
    if (gotLength > size) return kRynLibTooSmall;
    if (gotLength > kMaxRecordSize) {
      HeldRecords().push_back({fd, gotLength, {}});
      return kRynLibTooSmall;
    }
    const char *wrong = CheckRecord(buffer, gotLength);
    if (wrong == nullptr) {
      *length = gotLength;
      return 0;
    }
    const RynLibContext *context = FindContext(fd);
    discards.Add(context == nullptr ? "an unknown context" : context->name.data(), wrong);
  }
  return 0;
}

}  // namespace

bool DropHeldRecord(int fd, size_t *bytes) {
  const auto held = FindHeld(fd);
  if (held == HeldRecords().end()) return false;
  *bytes += held->length;
  HeldRecords().erase(held);
  return true;
}

}  // namespace hosted

int RynLib_ReadFromFd(int fd, std::byte *buffer, size_t size, size_t *length) {
  *length = 0;
  return hosted::IsUserConnection(fd) ? hosted::ReadUserRecord(fd, buffer, size, length)
                                      : hosted::ReadKernelRecord(fd, buffer, size, length);
}
