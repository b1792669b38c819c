// A datagram socket that log records are sent over. Any thread; everything that changes here is atomic.
#include "hosted/log/logSocket.h"

#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>

#include "platform/system.h"

namespace hosted {
namespace {

/// True for the errors that mean that nobody listens on the other side any more, or not yet.
bool IsDisconnected(int error) {
  return error == ENOTCONN || error == ECONNREFUSED || error == ECONNRESET || error == EPIPE || error == EDESTADDRREQ;
}

}  // namespace

LogSocket::LogSocket(const char *path) {
  char absolute[PATH_MAX];  // the log needs no memory of the heap
  snprintf(absolute, sizeof absolute, "%s%s", Hyk_Root(), path);
  addressError_ = base::MakeUnixAddress(absolute, &address_);
}

/// The socket, made at its first use; -1 while that fails.
int LogSocket::Fd() {
  int fd = fd_.load(std::memory_order_acquire);
  if (fd >= 0) return fd;
  const int made = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (made < 0) return -1;
  const timeval wait{0, kLogWaitMilliseconds * 1000};
  setsockopt(made, SOL_SOCKET, SO_SNDTIMEO, &wait, sizeof wait);
  if (fd_.compare_exchange_strong(fd, made, std::memory_order_acq_rel)) return made;
  close(made);  // another thread was faster
  return fd;
}

/// Connect to whoever listens now. A datagram socket may be connected any number of times.
bool LogSocket::Connect(int fd) const {
  if (addressError_ != 0) return false;
  // Other threads may be sending on the socket, which the kernel puts in order. Not by the C library's connect(): the
  // thread sanitizer takes that for making the descriptor, and each send at that time for a race.
  return syscall(SYS_connect, fd, address_.Get(), base::UnixAddress::kLength) == 0;
}

SendResult LogSocket::Send(const msghdr &record) {
  const int fd = Fd();
  if (fd < 0) return SendResult::kNoListener;
  const bool wait = stall_.MayWait();
  const int flags = MSG_NOSIGNAL | (wait ? 0 : MSG_DONTWAIT);
  ssize_t sent = sendmsg(fd, &record, flags);
  if (sent < 0 && IsDisconnected(errno) && Connect(fd)) sent = sendmsg(fd, &record, flags);
  // A signal ends the wait; without one the record may still pass.
  if (sent < 0 && errno == EINTR) sent = sendmsg(fd, &record, MSG_NOSIGNAL | MSG_DONTWAIT);
  if (sent >= 0) {
    stall_.Note(true, wait);
    return SendResult::kSent;
  }
  // A socket without room says EAGAIN; without memory for the record it is as good as full.
  if (errno == EMSGSIZE) return SendResult::kTooLong;
  if (errno != EAGAIN && errno != ENOBUFS && errno != ENOMEM && errno != EINTR) return SendResult::kNoListener;
  stall_.Note(false, wait);
  return SendResult::kFull;
}

size_t LogSocket::SendTogether(mmsghdr *records, size_t count) {
  const int fd = Fd();
  const int sent = fd < 0 ? 0 : sendmmsg(fd, records, static_cast<unsigned>(count), MSG_NOSIGNAL | MSG_DONTWAIT);
  if (sent <= 0) return 0;
  stall_.Note(true, false);
  return static_cast<size_t>(sent);
}

}  // namespace hosted
