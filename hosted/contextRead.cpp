// Reading records from kernel contexts. The poll loop's thread only; this is its hot path.
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <cerrno>

#include "hosted/contexts.h"
#include "hosted/discardLog.h"
#include "hosted/rawRecord.h"

namespace hosted {
namespace {

/// The length of the first datagram in `*length`, and whether there is one. 0 or an errno value.
int PeekLength(int fd, size_t *length, bool *present) {
  int pending = 0;
  if (ioctl(fd, FIONREAD, &pending) != 0) return errno;
  *length = static_cast<size_t>(pending);
  *present = pending > 0;
  if (pending > 0) return 0;
  // Nothing there, or an empty datagram, or one that came just now and may be of any length: a plain read would cut it.
  const ssize_t got = recv(fd, nullptr, 0, MSG_PEEK | MSG_TRUNC | MSG_DONTWAIT);
  if (got < 0) return errno == EAGAIN || errno == EINTR ? 0 : errno;
  *length = static_cast<size_t>(got);
  *present = true;
  return 0;
}

int ReadKernelRecord(int fd, std::byte *buffer, size_t size, size_t *length) {
  Discards discards;
  while (discards.Count() < kMaxDiscards) {
    size_t pending = 0;
    bool present = false;
    if (const int error = PeekLength(fd, &pending, &present); error != 0) return error;
    if (!present) break;
    // Above the longest record it never fits, whatever the buffer: such a record ends in a reset.
    if (pending > size || pending > kMaxRecordSize) return kRynLibTooSmall;
    const ssize_t got = recv(fd, buffer, size, MSG_DONTWAIT | MSG_TRUNC);
    if (got < 0) return errno == EAGAIN || errno == EINTR ? 0 : errno;
    const char *wrong = CheckRecord(buffer, static_cast<size_t>(got));
    if (wrong == nullptr) {
      *length = static_cast<size_t>(got);
      return 0;
    }
    const RynLibContext *context = FindContext(fd);
    discards.Add(context == nullptr ? "an unknown context" : context->name.data(), wrong);
  }
  return 0;
}

}  // namespace
}  // namespace hosted

int RynLib_ReadFromFd(int fd, std::byte *buffer, size_t size, size_t *length) {
  *length = 0;
  return hosted::IsUserConnection(fd) ? hosted::ReadUserRecord(fd, buffer, size, length)
                                      : hosted::ReadKernelRecord(fd, buffer, size, length);
}
