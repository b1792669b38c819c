// The connections of host programs that submit observations. The poll loop's thread only; allocates nothing.
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <string_view>
#include <utility>

#include "base/unixListener.h"
#include "hosted/contexts/contextCounters.h"
#include "hosted/contexts/contexts.h"
#include "hosted/contexts/descriptorCloser.h"
#include "hosted/contexts/discardLog.h"
#include "hosted/contexts/refusalLog.h"
#include "hosted/flight/recorder.h"
#include "hosted/records/rawRecord.h"

namespace hosted {
namespace {

constexpr std::string_view kUserIdPrefix = "ryn.user.";
constexpr size_t kMaxDescriptors = 253;  // that a packet carries at most

/// One open connection.
struct Connection {
  int fd = -1;
  Sender sender;       ///< of the last record, before the first of the connection
  bool read = false;   ///< was ever looked at
  bool ended = false;  ///< nothing more is read
};

/// The open connections in front, `connectionCount` of them: far more than the poll loop serves.
std::array<Connection, 64> connections;
size_t connectionCount = 0;

Connection *Find(int fd) {
  const auto end = connections.begin() + static_cast<std::ptrdiff_t>(connectionCount);
  const auto at = std::find_if(connections.begin(), end, [fd](const Connection &one) { return one.fd == fd; });
  return at == end ? nullptr : &*at;
}

/// The connection whose last read stopped at its limit of bad records, with more behind them; -1 for none.
int unfinishedConnection = -1;

/// Descriptors that came with a packet. They are closed elsewhere when it goes, which must be behind the packet itself:
/// as long as they are open here, no close by the kernel is the last one.
class Attached {
 public:
  Attached() = default;
  ~Attached() {
    for (size_t i = 0; i < count_; ++i) CloseElsewhere(fds_[i]);
  }
  Attached(const Attached &) = delete;
  Attached &operator=(const Attached &) = delete;

  /// Take over those of one control message.
  void Take(const cmsghdr *header) {
    const size_t more = std::min((header->cmsg_len - CMSG_LEN(0)) / sizeof(int), kMaxDescriptors - count_);
    std::memcpy(fds_ + count_, CMSG_DATA(header), more * sizeof(int));
    count_ += more;
  }

 private:
  int fds_[kMaxDescriptors];  // not initialised: hardly ever used
  size_t count_ = 0;
};

/// What waits first on a connection.
struct Pending {
  enum class What { kNothing, kRecord, kEnd } what = What::kNothing;
  size_t length = 0;
  Sender sender;
  bool incomplete = false;  ///< carries descriptors that there was no room for
};

/// Look at the first packet and leave it there. 0 or an errno value.
int Peek(int fd, Pending *pending, Attached *attached) {
  alignas(cmsghdr) std::byte control[CMSG_SPACE(sizeof(ucred)) + CMSG_SPACE(kMaxDescriptors * sizeof(int))];
  std::byte first{};  // some emulators do nothing without room for data
  iovec room{&first, sizeof first};
  msghdr message{};
  message.msg_iov = &room;
  message.msg_iovlen = 1;
  message.msg_control = control;
  message.msg_controllen = sizeof control;
  const ssize_t got = recvmsg(fd, &message, MSG_PEEK | MSG_TRUNC | MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
  if (got < 0) return errno == EAGAIN || errno == EINTR ? 0 : errno;
  bool credentials = false;
  for (cmsghdr *header = CMSG_FIRSTHDR(&message); header != nullptr; header = CMSG_NXTHDR(&message, header)) {
    if (header->cmsg_type == SCM_CREDENTIALS) {
      ucred sender{};
      std::memcpy(&sender, CMSG_DATA(header), sizeof sender);
      pending->sender = {sender.pid, sender.uid};
      credentials = true;
    } else if (header->cmsg_type == SCM_RIGHTS) {
      attached->Take(header);
    }
  }
  // Every packet carries credentials; the end does not.
  pending->what = got > 0 || credentials ? Pending::What::kRecord : Pending::What::kEnd;
  pending->length = static_cast<size_t>(got);
  pending->incomplete = (message.msg_flags & MSG_CTRUNC) != 0;
  return 0;
}

/// What is wrong with a record from a host program, or null.
const char *CheckUserRecord(const std::byte *bytes, size_t length) {
  if (const char *wrong = CheckRecord(bytes, length); wrong != nullptr) return wrong;
  const auto *id = reinterpret_cast<const char *>(bytes + kRecordHeaderSize);
  return std::string_view(id).starts_with(kUserIdPrefix) ? nullptr : "its id does not begin with \"ryn.user.\"";
}

/// End a connection whose peer has sent its last, or that has failed: poll then says that it hung up, also for a peer
/// that has closed its sending half only.
int EndConnection(Connection *connection, int error) {
  connection->ended = true;
  shutdown(connection->fd, SHUT_RDWR);
  return error;
}

/// End a connection whose first packet can't be taken off its queue without closing what it carries.
int EndHostile(Connection *connection, const Pending &pending) {
  DiscardRecord(kRynUserContext, "it carries more descriptors than there is room for; the connection is closed",
                pending.sender);
  return EndConnection(connection, 0);
}

/// Close a connection, and with it what its unread packets carry.
void Close(int fd) {
  if (base::RefusesDescriptors(fd)) {
    close(fd);
  } else {
    CloseElsewhere(fd);
  }
}

/// Look at the first packet of `connection` and note its sender. 0 or an errno value.
int Look(Connection *connection, Pending *pending, Attached *attached) {
  connection->read = true;
  const int error = Peek(connection->fd, pending, attached);
  if (error == 0 && pending->what == Pending::What::kRecord) connection->sender = pending->sender;
  return error;
}

}  // namespace

bool IsUserConnection(int fd) {
  return Find(fd) != nullptr;
}

int ReadUserRecord(int fd, std::byte *buffer, size_t size, size_t *length) {
  Connection &connection = *Find(fd);
  for (int discarded = 0; discarded < kMaxDiscards; ++discarded) {
    if (connection.ended) return 0;
    Pending pending;
    Attached attached;
    if (const int error = Look(&connection, &pending, &attached); error != 0) return EndConnection(&connection, error);
    if (pending.what == Pending::What::kNothing) return 0;
    if (pending.what == Pending::What::kEnd) return EndConnection(&connection, 0);
    if (pending.incomplete) return EndHostile(&connection, pending);
    const bool tooLong = pending.length > kMaxRecordSize;
    if (!tooLong && pending.length > size) return kRynLibTooSmall;
    const ssize_t got = recv(fd, buffer, tooLong ? 0 : size, MSG_DONTWAIT);
    if (got < 0) return errno == EAGAIN || errno == EINTR ? 0 : EndConnection(&connection, errno);
    const char *wrong = tooLong ? "longer than 131071 bytes" : CheckUserRecord(buffer, static_cast<size_t>(got));
    if (wrong == nullptr) {
      *length = static_cast<size_t>(got);
      CountRecord(kRynUserContext, *length);
      RecordObservation(kRynUserContext, buffer, *length, pending.sender.pid, pending.sender.uid);
      return 0;
    }
    DiscardRecord(kRynUserContext, wrong, pending.sender);
  }
  unfinishedConnection = fd;
  return 0;
}

void DrainUserConnections(size_t *records, size_t *bytes) {
  for (size_t i = 0; i < connectionCount; ++i) {
    Connection &connection = connections[i];
    int waiting = 0;
    if (ioctl(connection.fd, FIONREAD, &waiting) != 0) continue;
    // By bytes, so that it ends while the program goes on sending.
    for (size_t left = static_cast<size_t>(std::max(waiting, 0)); left > 0 && !connection.ended;) {
      Pending pending;
      Attached attached;
      if (Look(&connection, &pending, &attached) != 0 || pending.what != Pending::What::kRecord) break;
      if (pending.incomplete) {
        EndHostile(&connection, pending);
        break;
      }
      const ssize_t got = recv(connection.fd, nullptr, 0, MSG_DONTWAIT | MSG_TRUNC);
      if (got < 0) break;
      ++*records;
      *bytes += static_cast<size_t>(got);
      left -= std::min(left, static_cast<size_t>(got));
    }
  }
}

}  // namespace hosted

int RynLib_UserContextNewCnx(RynLibHandle handle, int *fd) {
  using hosted::connectionCount, hosted::connections;
  *fd = -1;
  if (handle == nullptr || handle->acceptor == nullptr) return EINVAL;
  const int accepted = handle->acceptor->Accept(handle->fd.Get());
  if (accepted < 0) {
    const int error = errno;
    if (error == EMFILE || error == ENFILE) {
      hosted::CountConnections(connectionCount, false, true);
      hosted::TellRefused(nullptr, std::strerror(error));
    }
    return error;
  }
  ucred peer{};
  socklen_t size = sizeof peer;
  getsockopt(accepted, SOL_SOCKET, SO_PEERCRED, &peer, &size);
  constexpr int kOn = 1;
  int error = connectionCount == connections.size() ? EMFILE : 0;
  if (error == 0 && setsockopt(accepted, SOL_SOCKET, SO_PASSCRED, &kOn, sizeof kOn) != 0) error = errno;
  if (error != 0) {
    hosted::Close(accepted);
    return error;
  }
  connections[connectionCount++] = {accepted, {peer.pid, peer.uid}, false, false};
  hosted::CountConnections(connectionCount, true, false);
  *fd = accepted;
  return 0;
}

int RynLib_UserContextCloseCnx(int fd) {
  hosted::Connection *connection = hosted::Find(fd);
  if (connection == nullptr) return -1;
  // Good records may wait behind the bad ones that the last read stopped at: whoever sent them and left is read out.
  if (std::exchange(hosted::unfinishedConnection, -1) == fd) return -1;
  const hosted::Connection closed = *connection;
  *connection = hosted::connections[--hosted::connectionCount];
  hosted::CountConnections(hosted::connectionCount, false, !closed.read);
  if (!closed.read) hosted::TellRefused(&closed.sender, "as many as can be served are open");
  hosted::Close(fd);
  return 0;
}

int RynLib_UserConnectionSender(int fd, int32_t *pid, uint32_t *uid) {
  const hosted::Connection *connection = hosted::Find(fd);
  if (connection == nullptr) return ENOENT;
  *pid = connection->sender.pid;
  *uid = connection->sender.uid;
  return 0;
}
