// The library behind rynsubmit.h. It is C++ without a C++ library: nothing here throws, and memory comes from malloc.
// Any thread.
#include "librynsubmit/rynsubmit.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/sockios.h>
#include <poll.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

/// One thread at a time holds `owner` and uses the rest.
struct rynsubmit {
  sockaddr_un address;
  int timeoutMs;
  int fd;        ///< -1 for none
  dev_t device;  ///< with `inode`: the socket that `fd` stands for, unless the program has closed it
  ino_t inode;
  pid_t process;      ///< that connected: another one shares the socket with it, and makes its own
  uint64_t sequence;  ///< the last record's number; atomic
  pid_t owner;        ///< the process one of whose threads uses the connection; 0 for none; atomic
};

namespace {

constexpr char kSocket[] = "/var/run/corvane/ryn-user.sock";
constexpr char kIdPrefix[] = "ryn.user.";
constexpr size_t kHeaderSize = 32;
constexpr size_t kArgumentHeaderSize = 8;
/// Room for two of the largest records: the kernel counts its own overhead too.
constexpr int kSendBuffer = 2 * 128 * 1024;
constexpr int64_t kMicrosecond = 1000, kMillisecond = 1'000'000;  // in nanoseconds
/// The pauses of a wait that nothing can wake: short at first, as the daemon mostly answers at once.
constexpr int64_t kFirstPause = 20 * kMicrosecond, kLastPause = 10 * kMillisecond;
/// The longest pause of a thread that another one may let on at any time.
constexpr int64_t kTurnPause = 200 * kMicrosecond;
/// A daemon that starts gives its socket file the rights of others last.
constexpr int64_t kRightsGrace = 200 * kMillisecond;

int64_t NanosecondsNow() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

/// The end of a wait, and the pauses in it.
class Wait {
 public:
  /// 0 milliseconds have passed at once; negative ones never do.
  explicit Wait(int timeoutMs)
      : start_(NanosecondsNow()), end_(timeoutMs < 0 ? -1 : start_ + int64_t{timeoutMs} * kMillisecond) {}
  bool IsOver() const { return end_ >= 0 && NanosecondsNow() >= end_; }
  int64_t Elapsed() const { return NanosecondsNow() - start_; }
  /// The next pauses are short ones again.
  void Hurry() { pause_ = kFirstPause; }
  /// Sleep for a while, at most until the end, and each time for longer, up to `longest`. Signals may end it early.
  void Pause(int64_t longest = kLastPause) {
    int64_t pause = pause_ < longest ? pause_ : longest;
    pause_ = 2 * pause;
    if (end_ >= 0) {
      const int64_t left = end_ - NanosecondsNow();
      if (left <= 0) return;
      if (pause > left) pause = left;
    }
    const timespec time{0, pause};
    nanosleep(&time, nullptr);
  }

 private:
  int64_t start_;
  int64_t end_;
  int64_t pause_ = kFirstPause;
};

/// Holds a connection's `owner` as long as it lives. A process that was forked while another thread held it takes it
/// over: that thread is not in it.
class Holder {
 public:
  Holder(rynsubmit *connection, Wait *wait) : connection_(connection) {
    const pid_t self = getpid();
    for (;;) {
      pid_t owner = __atomic_load_n(&connection->owner, __ATOMIC_RELAXED);
      if (owner != self &&
          __atomic_compare_exchange_n(&connection->owner, &owner, self, false, __ATOMIC_ACQUIRE, __ATOMIC_RELAXED)) {
        holds_ = true;
        break;
      }
      if (wait->IsOver()) break;
      wait->Pause(kTurnPause);
    }
    wait->Hurry();
  }
  ~Holder() {
    if (holds_) __atomic_store_n(&connection_->owner, 0, __ATOMIC_RELEASE);
  }
  Holder(const Holder &) = delete;
  Holder &operator=(const Holder &) = delete;
  bool Holds() const { return holds_; }

 private:
  rynsubmit *connection_;
  bool holds_ = false;
};

bool IsAbsent(int error) {
  return error == ENOENT || error == ECONNREFUSED || error == EAGAIN;
}

bool IsGone(int error) {
  return error == EPIPE || error == ECONNRESET || error == ENOTCONN || error == ECONNREFUSED;
}

/// Whether the connection's number still stands for its socket.
bool IsOurs(const rynsubmit &connection) {
  struct stat status {};
  return connection.fd >= 0 && fstat(connection.fd, &status) == 0 && status.st_dev == connection.device &&
         status.st_ino == connection.inode;
}

/// Close the socket, if the program has not done so.
void Disconnect(rynsubmit *connection) {
  if (IsOurs(*connection)) close(connection->fd);
  connection->fd = -1;
}

/// Connect once. 0 or an errno value; EAGAIN for a full backlog.
int TryConnect(rynsubmit *connection) {
  const int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (fd < 0) return errno;
  // Best effort: where the host allows less, sending says so.
  setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &kSendBuffer, sizeof kSendBuffer);
  int error = 0;
  do {
    error = connect(fd, reinterpret_cast<const sockaddr *>(&connection->address), sizeof connection->address) == 0
                ? 0
                : errno;
  } while (error == EINTR);
  struct stat status {};
  if (error == 0 && fstat(fd, &status) != 0) error = errno;
  if (error != 0) {
    close(fd);
    return error;
  }
  connection->fd = fd;
  connection->device = status.st_dev;
  connection->inode = status.st_ino;
  connection->process = getpid();
  return 0;
}

/// Connect, waiting for a daemon that is not there yet, or has no room for a further caller. 0 or an errno value.
int Connect(rynsubmit *connection, Wait *wait) {
  for (;;) {
    const int error = TryConnect(connection);
    const bool comes = IsAbsent(error) || (error == EACCES && wait->Elapsed() < kRightsGrace);
    if (!comes || wait->IsOver()) return error == EAGAIN ? ETIMEDOUT : error;
    wait->Pause();
  }
}

/// Send one packet. 0, or an errno value.
int Send(int fd, const void *bytes, size_t size, Wait *wait) {
  while (send(fd, bytes, size, MSG_NOSIGNAL) < 0) {
    const int error = errno;
    if (error == EINTR) continue;
    if (error != EAGAIN && error != ENOBUFS) return error;
    if (wait->IsOver()) return ETIMEDOUT;
    wait->Pause();
  }
  return 0;
}

/// Wait until the daemon has read all that was sent on `fd`. 0; ECONNRESET when the daemon has hung up without;
/// ETIMEDOUT when it has done neither.
int WaitTaken(int fd, Wait *wait) {
  for (wait->Hurry();; wait->Pause()) {
    int unread = 0;
    if (ioctl(fd, SIOCOUTQ, &unread) != 0) return errno;
    const bool isOver = wait->IsOver();
    // Asked behind the other: a connection first hangs up, and then what is unread in it goes.
    pollfd hungUp{fd, 0, 0};
    if (poll(&hungUp, 1, 0) > 0) {
      int error = 0;
      socklen_t size = sizeof error;
      getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &size);
      return error == 0 ? 0 : ECONNRESET;
    }
    if (unread == 0) return 0;
    if (isOver) return ETIMEDOUT;
  }
}

/// Send one packet and see that the daemon takes it; while it is away, or has no room for us and closes the connection
/// with what is in it, over and over. 0 or an errno value.
int Deliver(rynsubmit *connection, const void *bytes, size_t size) {
  Wait wait(connection->timeoutMs);
  const Holder holder(connection, &wait);
  if (!holder.Holds()) return ETIMEDOUT;
  // A process that was forked leaves its parent's connection alone.
  if (connection->process != getpid()) Disconnect(connection);
  for (bool isNew = false;; wait.Pause()) {
    if (!IsOurs(*connection)) {
      if (const int error = Connect(connection, &wait); error != 0) return error;
      isNew = true;
    }
    int error = Send(connection->fd, bytes, size, &wait);
    // Who does not wait is content with the kernel's word.
    if (error == 0 && connection->timeoutMs != 0) error = WaitTaken(connection->fd, &wait);
    if (!IsGone(error)) return error;
    Disconnect(connection);
    if (isNew && wait.IsOver()) return ETIMEDOUT;
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
  auto *kept = static_cast<rynsubmit *>(malloc(sizeof made));
  if (kept == nullptr) return ENOMEM;
  Wait wait(timeout_ms);
  const int error = Connect(&made, &wait);
  if (error != 0) {
    free(kept);
    return error;
  }
  *kept = made;
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

  const int error = Deliver(connection, bytes, size);
  free(bytes);
  return error;
}

void rynsubmit_close(rynsubmit *connection) {
  if (connection == nullptr) return;
  Disconnect(connection);
  free(connection);
}
