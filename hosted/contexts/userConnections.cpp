// The connections of host programs that submit observations. The poll loop's thread only.
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <utility>
#include <vector>

#include "hosted/contexts/contexts.h"
#include "hosted/contexts/discardLog.h"
#include "hosted/records/rawRecord.h"

namespace hosted {
namespace {

constexpr std::string_view kUserIdPrefix = "ryn.user.";

/// Descriptors of the open connections; a handful.
std::vector<int> &UserConnections() {
  static auto &connections = *new std::vector<int>;
  return connections;
}

/// The connection whose last read stopped at its limit of bad records, with more behind them; -1 for none.
int unfinishedConnection = -1;

/// What waits first on a connection.
struct Pending {
  enum class What { kNothing, kRecord, kEnd } what = What::kNothing;
  size_t length = 0;
  ucred sender{};
};

/// Look at the first packet and leave it there. 0 or an errno value.
int Peek(int fd, Pending *pending) {
  // Room for credentials and nothing else: descriptors that a sender attaches are never taken in.
  alignas(cmsghdr) std::byte control[CMSG_SPACE(sizeof(ucred))];
  std::byte first{};  // some emulators do nothing without room for data
  iovec room{&first, sizeof first};
  msghdr message{};
  message.msg_iov = &room;
  message.msg_iovlen = 1;
  message.msg_control = control;
  message.msg_controllen = sizeof control;
  const ssize_t got = recvmsg(fd, &message, MSG_PEEK | MSG_TRUNC | MSG_DONTWAIT);
  if (got < 0) return errno == EAGAIN || errno == EINTR ? 0 : errno;
  const cmsghdr *header = CMSG_FIRSTHDR(&message);
  const bool credentials = header != nullptr && header->cmsg_type == SCM_CREDENTIALS;
  // Every packet carries credentials; the end does not.
  pending->what = got > 0 || credentials ? Pending::What::kRecord : Pending::What::kEnd;
  pending->length = static_cast<size_t>(got);
  if (credentials) std::memcpy(&pending->sender, CMSG_DATA(header), sizeof pending->sender);
  return 0;
}

/// What is wrong with a record from a host program, or null.
const char *CheckUserRecord(const std::byte *bytes, size_t length) {
  if (const char *wrong = CheckRecord(bytes, length); wrong != nullptr) return wrong;
  const auto *id = reinterpret_cast<const char *>(bytes + kRecordHeaderSize);
  return std::string_view(id).starts_with(kUserIdPrefix) ? nullptr : "its id does not begin with \"ryn.user.\"";
}

void AddDiscard(const Pending &pending, const char *reason, Discards *discards) {
  char source[64];
  std::snprintf(source, sizeof source, "user (pid %d, uid %u)", pending.sender.pid, pending.sender.uid);
  discards->Add(source, reason);
}

/// End a connection whose peer has sent its last, or that has failed: poll then says that it hung up, also for a peer
/// that has closed its sending half only.
int EndConnection(int fd, int error) {
  shutdown(fd, SHUT_RDWR);
  return error;
}

}  // namespace

bool IsUserConnection(int fd) {
  const std::vector<int> &all = UserConnections();
  return std::find(all.begin(), all.end(), fd) != all.end();
}

int ReadUserRecord(int fd, std::byte *buffer, size_t size, size_t *length) {
  Discards discards;
  while (discards.Count() < kMaxDiscards) {
    Pending pending;
    if (const int error = Peek(fd, &pending); error != 0) return EndConnection(fd, error);
    if (pending.what == Pending::What::kNothing) return 0;
    if (pending.what == Pending::What::kEnd) return EndConnection(fd, 0);
    const bool tooLong = pending.length > kMaxRecordSize;
    if (!tooLong && pending.length > size) return kRynLibTooSmall;
    const ssize_t got = recv(fd, buffer, tooLong ? 0 : size, MSG_DONTWAIT);
    if (got < 0) return errno == EAGAIN || errno == EINTR ? 0 : EndConnection(fd, errno);
    const char *wrong = tooLong ? "longer than 131071 bytes" : CheckUserRecord(buffer, static_cast<size_t>(got));
    if (wrong == nullptr) {
      *length = static_cast<size_t>(got);
      return 0;
    }
    AddDiscard(pending, wrong, &discards);
  }
  unfinishedConnection = fd;
  return 0;
}

void DrainUserConnections(size_t *records, size_t *bytes) {
  for (const int fd : UserConnections()) {
    int pending = 0;
    if (ioctl(fd, FIONREAD, &pending) != 0) continue;
    // By bytes, so that it ends while the program goes on sending.
    for (size_t left = static_cast<size_t>(std::max(pending, 0)); left > 0;) {
      const ssize_t got = recv(fd, nullptr, 0, MSG_DONTWAIT | MSG_TRUNC);
      if (got < 0) break;
      ++*records;
      *bytes += static_cast<size_t>(got);
      left -= std::min(left, static_cast<size_t>(got));
    }
  }
}

}  // namespace hosted

int RynLib_UserContextNewCnx(RynLibHandle handle, int *fd) {
  *fd = -1;
  if (handle == nullptr || handle->acceptor == nullptr) return EINVAL;
  base::UniqueFd accepted(handle->acceptor->Accept(handle->fd.Get()));
  if (!accepted) return errno;
  constexpr int kOn = 1;
  if (setsockopt(accepted.Get(), SOL_SOCKET, SO_PASSCRED, &kOn, sizeof kOn) != 0) return errno;
  hosted::UserConnections().push_back(accepted.Get());
  *fd = accepted.Release();
  return 0;
}

int RynLib_UserContextCloseCnx(int fd) {
  if (!hosted::IsUserConnection(fd)) return -1;
  // Good records may wait behind the bad ones that the last read stopped at: whoever sent them and left is read out.
  if (std::exchange(hosted::unfinishedConnection, -1) == fd) return -1;
  std::erase(hosted::UserConnections(), fd);
  base::UniqueFd closing(fd);
  return 0;
}
