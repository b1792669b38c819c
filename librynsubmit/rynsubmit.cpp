// The library behind rynsubmit.h. It is C++ without a C++ library: nothing here throws, and memory comes from malloc.
// Any thread.
#include "librynsubmit/rynsubmit.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <linux/sockios.h>
#include <poll.h>
#include <pthread.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

/// Other threads may be sending while one connects again: the new socket takes the old one's number in one step
/// (dup3), so that `fd` itself never changes.
struct rynsubmit {
  sockaddr_un address;
  int timeoutMs;
  int fd;
  uint64_t sequence;  ///< the last record's number; atomic
  uint64_t settled;   ///< how many connections the daemon has taken something from; atomic, raised under `settling`
  pthread_mutex_t settling;
};

namespace {

constexpr char kSocket[] = "/var/run/corvane/ryn-user.sock";
constexpr char kIdPrefix[] = "ryn.user.";
constexpr size_t kHeaderSize = 32;
constexpr size_t kArgumentHeaderSize = 8;
/// Room for two of the largest records: the kernel counts its own overhead too.
constexpr int kSendBuffer = 2 * 128 * 1024;
constexpr int kBacklogPauseMs = 10;
constexpr int kPollSliceMs = 50;
/// How long a daemon that has no room may take to close a connection.
constexpr int kRefusalMs = 100;

int64_t MillisecondsNow() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1'000'000;
}

/// The end of a wait. `Left` is in milliseconds: 0 when it has passed, -1 when there is none.
class Deadline {
 public:
  explicit Deadline(int timeoutMs) : endMs_(timeoutMs < 0 ? -1 : MillisecondsNow() + timeoutMs) {}
  int Left() const {
    if (endMs_ < 0) return -1;
    const int64_t left = endMs_ - MillisecondsNow();
    return left > 0 ? static_cast<int>(left) : 0;
  }

 private:
  int64_t endMs_;
};

void Pause(int milliseconds) {
  const timespec pause{milliseconds / 1000, milliseconds % 1000 * 1'000'000L};
  nanosleep(&pause, nullptr);
}

/// A socket that is connected to `address`. 0 or an errno value.
int Connect(const sockaddr_un &address, const Deadline &deadline, int *out) {
  const int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (fd < 0) return errno;
  // Best effort: where the host allows less, sending says so.
  setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &kSendBuffer, sizeof kSendBuffer);
  int error = 0;
  do {
    error = connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0 ? 0 : errno;
    if (error != EAGAIN) continue;
    // The backlog is full, and there is nothing to poll for.
    const int left = deadline.Left();
    if (left == 0) {
      error = ETIMEDOUT;
    } else {
      Pause(left < 0 || left > kBacklogPauseMs ? kBacklogPauseMs : left);
    }
  } while (error == EINTR || error == EAGAIN);
  if (error != 0) {
    close(fd);
    return error;
  }
  *out = fd;
  return 0;
}

/// Send one packet. 0, or an errno value.
int Send(int fd, const void *bytes, size_t size, const Deadline &deadline) {
  while (send(fd, bytes, size, MSG_NOSIGNAL) < 0) {
    const int error = errno;
    if (error == EINTR) continue;
    if (error != EAGAIN && error != ENOBUFS) return error;
    const int left = deadline.Left();
    if (left == 0) return ETIMEDOUT;
    if (error == ENOBUFS) {
      Pause(left < 0 || left > kBacklogPauseMs ? kBacklogPauseMs : left);
      continue;
    }
    // In slices: when another thread connects again, a poll goes on waiting for the socket that was there before.
    pollfd writable{fd, POLLOUT, 0};
    poll(&writable, 1, left < 0 || left > kPollSliceMs ? kPollSliceMs : left);
  }
  return 0;
}

bool IsGone(int error) {
  return error == EPIPE || error == ECONNRESET || error == ENOTCONN || error == ECONNREFUSED;
}

/// Wait until the daemon has read all that was sent on `fd`. 0, also when the deadline passes first; ECONNRESET when
/// the daemon has hung up without.
int WaitTaken(int fd, const Deadline &deadline) {
  for (int sliceMs = 1;; sliceMs = sliceMs < kPollSliceMs ? 2 * sliceMs : kPollSliceMs) {
    int unread = 0;
    if (ioctl(fd, SIOCOUTQ, &unread) != 0) return 0;
    const int left = deadline.Left();
    const bool isLast = unread == 0 || left == 0;
    // Asked last: a connection first hangs up, and then what is unread in it goes.
    pollfd hungUp{fd, 0, 0};
    if (poll(&hungUp, 1, isLast ? 0 : sliceMs) > 0) {
      int error = 0;
      socklen_t size = sizeof error;
      getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &size);
      return error == 0 ? 0 : ECONNRESET;
    }
    if (isLast) return 0;
  }
}

/// Send the first packet of a connection, of a new one when this one `isGone`, and see that it is taken: while the
/// daemon serves as many connections as it can, it accepts a further one only to close it, with what is in it. A new
/// one takes the place of the old one once it is served. Under `settling`. 0 or an errno value.
int SendFirst(rynsubmit *connection, bool isGone, const void *bytes, size_t size, const Deadline &deadline) {
  for (bool isRefused = false;; isRefused = isGone, isGone = true) {
    int left = deadline.Left();
    if (isRefused) {
      if (left == 0) return ETIMEDOUT;
      Pause(left < 0 || left > kBacklogPauseMs ? kBacklogPauseMs : left);
      left = deadline.Left();
    }
    int fd = connection->fd;
    if (isGone) {
      if (const int error = Connect(connection->address, deadline, &fd); error != 0) return error;
    }
    int error = Send(fd, bytes, size, deadline);
    // Near the end of the wait a further refusal would come too late to be seen.
    const bool isLate = isRefused && left >= 0 && left < kRefusalMs;
    if (error == 0) error = WaitTaken(fd, isLate ? Deadline(kRefusalMs) : deadline);
    if (error == 0 && (!isGone || dup3(fd, connection->fd, O_CLOEXEC) >= 0)) {
      __atomic_add_fetch(&connection->settled, 1, __ATOMIC_RELEASE);
    }
    if (isGone) close(fd);
    if (!IsGone(error)) return error;
  }
}

/// A thread that holds `settling` waits no longer than its own deadline, which is about ours. 0 or an errno value.
int LockSettling(rynsubmit *connection, const Deadline &deadline) {
  const int left = deadline.Left();
  if (left < 0) return pthread_mutex_lock(&connection->settling);
  // Tried again and again, since thread checkers do not know the lock that is timed by the monotonic clock.
  const Deadline patience(left > INT_MAX - 1000 ? left : left + 1000);
  int error = 0;
  while ((error = pthread_mutex_trylock(&connection->settling)) == EBUSY) {
    if (patience.Left() == 0) return ETIMEDOUT;
    Pause(1);
  }
  return error;
}

/// Send one packet, over a new connection when the daemon has closed this one. 0 or an errno value.
int SendOrReconnect(rynsubmit *connection, const void *bytes, size_t size, const Deadline &deadline) {
  while (true) {
    const uint64_t seen = __atomic_load_n(&connection->settled, __ATOMIC_ACQUIRE);
    if (seen > 0) {
      const int error = Send(connection->fd, bytes, size, deadline);
      if (!IsGone(error)) return error;
    }
    int error = LockSettling(connection, deadline);
    if (error != 0) return error;
    // Unless another thread has seen to it in the meantime.
    const bool isMine = __atomic_load_n(&connection->settled, __ATOMIC_ACQUIRE) == seen;
    if (isMine) error = SendFirst(connection, seen > 0, bytes, size, deadline);
    pthread_mutex_unlock(&connection->settling);
    if (isMine) return error;
  }
}

bool IsGood(const rynsubmit_argument &argument) {
  const unsigned bits = argument.width * 8;
  switch (argument.kind) {
    case RYNSUBMIT_SIGNED:
      if (argument.width == 8) return true;
      if (argument.width != 1 && argument.width != 2 && argument.width != 4) return false;
      return argument.value.i >= -(int64_t{1} << (bits - 1)) && argument.value.i < int64_t{1} << (bits - 1);
    case RYNSUBMIT_UNSIGNED:
      if (argument.width == 8) return true;
      if (argument.width != 1 && argument.width != 2 && argument.width != 4) return false;
      return argument.value.u >> bits == 0;
    case RYNSUBMIT_STRING:
      return argument.width == 0 && argument.value.s != nullptr;
    case RYNSUBMIT_NULL_STRING:
      return argument.width == 0;
  }
  return false;
}

/// The bytes behind an argument's header.
size_t PayloadSize(const rynsubmit_argument &argument) {
  if (argument.kind == RYNSUBMIT_STRING) return strlen(argument.value.s) + 1;
  return argument.kind == RYNSUBMIT_NULL_STRING ? 0 : argument.width;
}

/// Puts packed little-endian fields behind each other.
class Writer {
 public:
  explicit Writer(unsigned char *at) : at_(at) {}
  void Integer(uint64_t value, size_t width) {
    for (size_t i = 0; i < width; ++i) *at_++ = static_cast<unsigned char>(value >> (8 * i));
  }
  void Bytes(const void *bytes, size_t size) {
    memcpy(at_, bytes, size);
    at_ += size;
  }
  void Argument(const rynsubmit_argument &argument) {
    const size_t size = PayloadSize(argument);
    Integer(argument.kind, 1);
    Integer(argument.width, 1);
    Integer(0, 2);
    Integer(size, 4);
    if (argument.kind == RYNSUBMIT_STRING) {
      Bytes(argument.value.s, size);
    } else if (argument.kind != RYNSUBMIT_NULL_STRING) {
      Integer(argument.kind == RYNSUBMIT_SIGNED ? static_cast<uint64_t>(argument.value.i) : argument.value.u, size);
    }
  }

 private:
  unsigned char *at_;
};

uint64_t MicrosecondsSinceTheEpoch() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  return static_cast<uint64_t>(now.tv_sec) * 1'000'000 + static_cast<uint64_t>(now.tv_nsec) / 1000;
}

/// The size of the record that holds all this. 0, EINVAL or EMSGSIZE.
int SizeOf(const char *id, const char *message, const rynsubmit_argument *arguments, size_t count, size_t *size) {
  if (id == nullptr || strncmp(id, kIdPrefix, sizeof kIdPrefix - 1) != 0) return EINVAL;
  if (arguments == nullptr && count > 0) return EINVAL;
  size_t total = kHeaderSize + strlen(id) + 1 + strlen(message) + 1;
  for (size_t i = 0; i < count; ++i) {
    if (!IsGood(arguments[i])) return EINVAL;
    total += kArgumentHeaderSize + PayloadSize(arguments[i]);
    if (total > RYNSUBMIT_MAX_RECORD) return EMSGSIZE;
  }
  *size = total;
  return total > RYNSUBMIT_MAX_RECORD ? EMSGSIZE : 0;
}

}  // namespace

int rynsubmit_connect(int timeout_ms, rynsubmit **connection) {
  if (connection == nullptr) return EINVAL;
  *connection = nullptr;
  const char *root = secure_getenv("CORVANE_ROOT");
  if (root == nullptr) root = "";
  size_t rootLength = strlen(root);
  while (rootLength > 0 && root[rootLength - 1] == '/') --rootLength;
  rynsubmit made{};
  made.address.sun_family = AF_UNIX;
  if (rootLength + sizeof kSocket > sizeof made.address.sun_path) return ENAMETOOLONG;
  memcpy(made.address.sun_path, root, rootLength);
  memcpy(made.address.sun_path + rootLength, kSocket, sizeof kSocket);
  made.timeoutMs = timeout_ms;
  const int error = Connect(made.address, Deadline(timeout_ms), &made.fd);
  if (error != 0) return error;
  auto *kept = static_cast<rynsubmit *>(malloc(sizeof made));
  if (kept == nullptr) {
    close(made.fd);
    return ENOMEM;
  }
  *kept = made;
  pthread_mutex_init(&kept->settling, nullptr);
  *connection = kept;
  return 0;
}

int rynsubmit_submit(rynsubmit *connection, const char *id, const char *message, const rynsubmit_argument *arguments,
                     size_t count) {
  if (connection == nullptr) return EINVAL;
  if (message == nullptr) message = "";
  size_t size = 0;
  if (const int error = SizeOf(id, message, arguments, count, &size); error != 0) return error;
  auto *bytes = static_cast<unsigned char *>(malloc(size));
  if (bytes == nullptr) return ENOMEM;
  const size_t idSize = strlen(id) + 1, messageSize = strlen(message) + 1;
  Writer record(bytes);
  record.Integer(__atomic_add_fetch(&connection->sequence, 1, __ATOMIC_RELAXED), 8);
  record.Integer(MicrosecondsSinceTheEpoch(), 8);
  record.Integer(size, 4);
  record.Integer(count, 4);
  record.Integer(idSize, 4);
  record.Integer(messageSize, 4);
  record.Bytes(id, idSize);
  record.Bytes(message, messageSize);
  for (size_t i = 0; i < count; ++i) record.Argument(arguments[i]);

  const int error = SendOrReconnect(connection, bytes, size, Deadline(connection->timeoutMs));
  free(bytes);
  return error;
}

void rynsubmit_close(rynsubmit *connection) {
  if (connection == nullptr) return;
  close(connection->fd);
  pthread_mutex_destroy(&connection->settling);
  free(connection);
}
