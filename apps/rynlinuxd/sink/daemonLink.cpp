#include "sink/daemonLink.h"

#include <linux/sockios.h>
#include <sys/inotify.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <cerrno>

#include "base/unixAddress.h"
#include "hosted/paths.h"

namespace rynlinuxd {
namespace {

/// Room for two of the largest records: the kernel counts its own overhead too.
constexpr int kSendBuffer = 2 * 128 * 1024;

/// The socket file that stands there now; "" for none. Each daemon makes one of its own, and sets its rights
/// afterwards, which does not make it another: not the time of its last change, but that of its making.
std::string IdentityOf(const std::string &path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) return "";
  return std::to_string(status.st_dev) + ':' + std::to_string(status.st_ino) + ':' +
         std::to_string(status.st_mtim.tv_sec) + '.' + std::to_string(status.st_mtim.tv_nsec);
}

}  // namespace

int DaemonLink::Connect() {
  const std::string path = hosted::KernelSocketPath(0);
  // Looked at first: a daemon that is replaced meanwhile is noticed by the next look.
  std::string identity = IdentityOf(path);
  if (identity.empty()) return ENOENT;
  base::UnixAddress address;
  if (const int error = base::MakeUnixAddress(path, &address); error != 0) return error;
  base::UniqueFd made(socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  if (!made) return errno;
  // Best effort: where the host allows less, sending says so.
  setsockopt(made.Get(), SOL_SOCKET, SO_SNDBUF, &kSendBuffer, sizeof kSendBuffer);
  if (connect(made.Get(), address.Get(), base::UnixAddress::kLength) != 0) return errno;
  socket_ = std::move(made);
  daemon_ = std::move(identity);
  return 0;
}

int DaemonLink::Send(std::span<const std::byte> record) {
  while (send(socket_.Get(), record.data(), record.size(), MSG_NOSIGNAL | MSG_DONTWAIT) < 0) {
    const int error = errno;
    if (error == EINTR) continue;
    if (error == EAGAIN || error == ENOBUFS || error == ENOMEM) return EAGAIN;
    if (error != EMSGSIZE) socket_.Reset();
    return error;
  }
  return 0;
}

int DaemonLink::Unread() const {
  int unread = 0;
  return socket_ && ioctl(socket_.Get(), SIOCOUTQ, &unread) == 0 ? unread : 0;
}

void DaemonLink::WatchFolder() {
  if (notifier_) return;
  base::UniqueFd made(inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
  const std::string folder = hosted::RootPath(hosted::kContextFolder);
  constexpr uint32_t kEvents = IN_CREATE | IN_DELETE | IN_MOVED_TO | IN_ATTRIB | IN_DELETE_SELF | IN_ONLYDIR;
  if (made && inotify_add_watch(made.Get(), folder.c_str(), kEvents) >= 0) notifier_ = std::move(made);
}

bool DaemonLink::TakeNotice() {
  alignas(inotify_event) char buffer[4096];
  bool hasGone = false;
  for (ssize_t got = 0; (got = read(notifier_.Get(), buffer, sizeof buffer)) > 0;) {
    for (ssize_t at = 0; at < got;) {
      const auto *event = reinterpret_cast<const inotify_event *>(buffer + at);
      if ((event->mask & (IN_DELETE_SELF | IN_IGNORED)) != 0) hasGone = true;
      at += static_cast<ssize_t>(sizeof *event + event->len);
    }
  }
  if (hasGone) notifier_.Reset();
  if (!socket_ || IdentityOf(hosted::KernelSocketPath(0)) == daemon_) return false;
  socket_.Reset();
  return true;
}

}  // namespace rynlinuxd
