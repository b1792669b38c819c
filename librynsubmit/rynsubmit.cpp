// The library behind rynsubmit.h. It is C++ without a C++ library: nothing here throws, and memory comes from malloc.
// Any thread.
#include "librynsubmit/rynsubmit.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <stdlib.h>
#include <string.h>
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
  uint64_t sequence;     ///< the last record's number; atomic
  uint64_t connections;  ///< how often it has connected; atomic, raised under `reconnecting`
  pthread_mutex_t reconnecting;
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

/// Connect anew, unless another thread has done so since there were `seen` connections.
int Reconnect(rynsubmit *connection, uint64_t seen, const Deadline &deadline) {
  timespec end{};
  clock_gettime(CLOCK_MONOTONIC, &end);
  const int left = deadline.Left();
  end.tv_sec += left / 1000 + 1;
  const int locked = left < 0 ? pthread_mutex_lock(&connection->reconnecting)
                              : pthread_mutex_clocklock(&connection->reconnecting, CLOCK_MONOTONIC, &end);
  if (locked != 0) return locked;
  int error = 0;
  if (__atomic_load_n(&connection->connections, __ATOMIC_ACQUIRE) == seen) {
    int fd = -1;
    error = Connect(connection->address, deadline, &fd);
    if (error == 0) {
      if (dup3(fd, connection->fd, O_CLOEXEC) < 0) error = errno;
      close(fd);
      if (error == 0) __atomic_add_fetch(&connection->connections, 1, __ATOMIC_RELEASE);
    }
  }
  pthread_mutex_unlock(&connection->reconnecting);
  return error;
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
  if (id == nullptr || strncmp(id, kIdPrefix, sizeof kIdPrefix - 1) != 0 || id[sizeof kIdPrefix - 1] == '\0') {
    return EINVAL;
  }
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
  *connection = nullptr;
  const char *root = secure_getenv("CORVANE_ROOT");
  if (root == nullptr) root = "";
  rynsubmit made{};
  made.address.sun_family = AF_UNIX;
  if (strlen(root) + sizeof kSocket > sizeof made.address.sun_path) return ENAMETOOLONG;
  strcpy(made.address.sun_path, root);
  strcat(made.address.sun_path, kSocket);
  made.timeoutMs = timeout_ms;
  const int error = Connect(made.address, Deadline(timeout_ms), &made.fd);
  if (error != 0) return error;
  auto *kept = static_cast<rynsubmit *>(malloc(sizeof made));
  if (kept == nullptr) {
    close(made.fd);
    return ENOMEM;
  }
  *kept = made;
  pthread_mutex_init(&kept->reconnecting, nullptr);
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

  const Deadline deadline(connection->timeoutMs);
  const uint64_t seen = __atomic_load_n(&connection->connections, __ATOMIC_ACQUIRE);
  int error = Send(connection->fd, bytes, size, deadline);
  if (IsGone(error)) {
    error = Reconnect(connection, seen, deadline);
    if (error == 0) error = Send(connection->fd, bytes, size, deadline);
  }
  free(bytes);
  return error;
}

void rynsubmit_close(rynsubmit *connection) {
  if (connection == nullptr) return;
  close(connection->fd);
  pthread_mutex_destroy(&connection->reconnecting);
  free(connection);
}
