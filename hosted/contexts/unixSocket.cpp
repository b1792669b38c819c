// Making the UNIX-domain sockets that processes on one host meet at. Stateless: any thread.
#include "hosted/contexts/unixSocket.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "base/unixAddress.h"
#include "base/unixListener.h"
#include "hosted/contexts/folderLock.h"

namespace hosted {
namespace {

/// 0 when nothing serves the socket file at `address`, EADDRINUSE when a process does, or why that can't be found out.
int ProbeSocket(const base::UnixAddress &address, int type) {
  base::UniqueFd probe(socket(AF_UNIX, type | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!probe) return errno;
  if (connect(probe.Get(), address.Get(), base::UnixAddress::kLength) == 0) return EADDRINUSE;
  switch (errno) {
    case ECONNREFUSED:
    case ENOENT:
      return 0;
    case EAGAIN:      // its backlog is full
    case EPROTOTYPE:  // it is of another type
    case EPERM:       // it talks to one peer only
      return EADDRINUSE;
    default:
      return errno;
  }
}

/// Make way for a socket at `path`; the folder is locked. 0 or an errno value.
int RemoveStale(const std::string &path, const base::UnixAddress &address, int type) {
  struct stat status {};
  if (lstat(path.c_str(), &status) != 0) return errno == ENOENT ? 0 : errno;
  if (!S_ISSOCK(status.st_mode)) return EEXIST;
  if (const int error = ProbeSocket(address, type); error != 0) return error;
  return unlink(path.c_str()) == 0 || errno == ENOENT ? 0 : errno;
}

/// Bind a new socket and make it ready for callers. 0 or an errno value.
int BindSocket(const std::string &path, const base::UnixAddress &address, int type, mode_t mode, base::UniqueFd *fd) {
  base::UniqueFd made(socket(AF_UNIX, type | SOCK_CLOEXEC, 0));
  if (!made) return errno;
  if (const int error = base::BindListener(made.Get(), path, address, mode); error != 0) return error;
  if (type != SOCK_DGRAM && listen(made.Get(), SOMAXCONN) != 0) {
    const int error = errno;
    unlink(path.c_str());
    return error;
  }
  *fd = std::move(made);
  return 0;
}

}  // namespace

int ServeUnixSocket(const std::string &path, int type, mode_t mode, base::UniqueFd *fd) {
  base::UnixAddress address;
  if (const int error = base::MakeUnixAddress(path, &address); error != 0) return error;
  // Where no file stands, binding is one step. It makes a datagram socket live, so that nobody takes it for stale; one
  // that has to listen would be taken for that in between.
  if (type == SOCK_DGRAM) {
    const int error = BindSocket(path, address, type, mode, fd);
    if (error != EADDRINUSE) return error;
  }
  FolderLock lock;
  if (const int error = lock.Take(path); error != 0) return error;
  if (const int error = RemoveStale(path, address, type); error != 0) return error;
  return BindSocket(path, address, type, mode, fd);
}

int ConnectUnixSocket(const std::string &path, int type, base::UniqueFd *fd) {
  base::UnixAddress address;
  if (const int error = base::MakeUnixAddress(path, &address); error != 0) return error;
  base::UniqueFd made(socket(AF_UNIX, type | SOCK_CLOEXEC, 0));
  if (!made) return errno;
  while (connect(made.Get(), address.Get(), base::UnixAddress::kLength) != 0) {
    if (errno != EINTR) return errno;
  }
  *fd = std::move(made);
  return 0;
}

}  // namespace hosted
