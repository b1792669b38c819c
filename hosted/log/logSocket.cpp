// The process's one connection to the system log. Any thread; everything here is atomic or made once, and nothing is
// ever destroyed, as threads may log while the process exits.
#include "hosted/log/logSocket.h"

#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>

#include "base/unixAddress.h"
#include "hosted/paths.h"

namespace hosted {
namespace {

constexpr int kWaitMilliseconds = 100;
constexpr int64_t kStallNanoseconds = 1'000'000'000;

std::atomic<int> logFd{-1};
std::atomic<uint64_t> dropped{0};
/// The monotonic clock when a wait was last in vain; 0 when records pass.
std::atomic<int64_t> stalledSince{0};

/// Nanoseconds of a clock that is never set.
int64_t MonotonicNow() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

/// Whether this record may wait for room.
bool MayWait() {
  const int64_t since = stalledSince.load(std::memory_order_relaxed);
  return since == 0 || MonotonicNow() - since >= kStallNanoseconds;
}

/// Note whether a record passed; `waited` is whether it was allowed to wait.
void NoteProgress(bool passed, bool waited) {
  if (passed) {
    if (stalledSince.load(std::memory_order_relaxed) != 0) stalledSince.store(0, std::memory_order_relaxed);
  } else if (waited) {
    stalledSince.store(MonotonicNow(), std::memory_order_relaxed);
  }
}

/// The socket, made at its first use; -1 while that fails.
int LogFd() {
  int fd = logFd.load(std::memory_order_acquire);
  if (fd >= 0) return fd;
  const int made = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (made < 0) return -1;
  const timeval wait{0, kWaitMilliseconds * 1000};
  setsockopt(made, SOL_SOCKET, SO_SNDTIMEO, &wait, sizeof wait);
  if (logFd.compare_exchange_strong(fd, made, std::memory_order_acq_rel)) return made;
  close(made);  // another thread was faster
  return fd;
}

/// Where the log listens, worked out once; `*error` is not 0 when the root is too long for it.
const base::UnixAddress &LogAddress(int *error) {
  struct Target {
    base::UnixAddress address;
    int error;
  };
  static const Target target = [] {
    Target made{};
    made.error = base::MakeUnixAddress(RootPath(kLogSocket), &made.address);
    return made;
  }();
  *error = target.error;
  return target.address;
}

/// Connect to whoever listens now. A datagram socket may be connected any number of times.
bool Connect(int fd) {
  int error = 0;
  const base::UnixAddress &address = LogAddress(&error);
  if (error != 0) return false;
  // Other threads may be sending on the socket, which the kernel puts in order. Not by the C library's connect(): the
  // thread sanitizer takes that for making the descriptor, and each send at that time for a race.
  return syscall(SYS_connect, fd, address.Get(), base::UnixAddress::kLength) == 0;
}

/// True for the errors that mean that nobody listens on the other side any more, or not yet.
bool IsDisconnected(int error) {
  return error == ENOTCONN || error == ECONNREFUSED || error == ECONNRESET || error == EPIPE || error == EDESTADDRREQ;
}

}  // namespace

SendResult SendToSystemLog(const char *record, size_t size) {
  const int fd = LogFd();
  if (fd < 0) return SendResult::kNoListener;
  const bool wait = MayWait();
  const int flags = MSG_NOSIGNAL | (wait ? 0 : MSG_DONTWAIT);
  ssize_t sent = send(fd, record, size, flags);
  if (sent < 0 && IsDisconnected(errno) && Connect(fd)) sent = send(fd, record, size, flags);
  // A signal ends the wait; without one the record may still pass.
  if (sent < 0 && errno == EINTR) sent = send(fd, record, size, MSG_NOSIGNAL | MSG_DONTWAIT);
  if (sent >= 0) {
    NoteProgress(true, wait);
    return SendResult::kSent;
  }
  // A socket without room says EAGAIN; without memory for the record it is as good as full.
  if (errno == EMSGSIZE) return SendResult::kTooLong;
  if (errno != EAGAIN && errno != ENOBUFS && errno != ENOMEM && errno != EINTR) return SendResult::kNoListener;
  NoteProgress(false, wait);
  return SendResult::kFull;
}

bool WriteToStandardError(const char *line, size_t size) {
  const bool wait = MayWait();
  while (size > 0) {
    pollfd ready{STDERR_FILENO, POLLOUT, 0};
    if (poll(&ready, 1, wait ? kWaitMilliseconds : 0) != 1) {
      NoteProgress(false, wait);
      return false;
    }
    // A pipe that is ready takes this much at once and without blocking.
    const ssize_t written = write(STDERR_FILENO, line, std::min(size, size_t{PIPE_BUF}));
    if (written <= 0) return false;
    line += written;
    size -= static_cast<size_t>(written);
  }
  NoteProgress(true, wait);
  return true;
}

uint64_t TakeDropped() {
  if (dropped.load(std::memory_order_relaxed) == 0) return 0;
  return dropped.exchange(0, std::memory_order_relaxed);
}

void AddDropped(uint64_t count) {
  dropped.fetch_add(count, std::memory_order_relaxed);
}

}  // namespace hosted
