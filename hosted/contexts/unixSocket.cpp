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

/// Bind `fd` and make it ready for callers; the folder is locked. 0 or an errno value.
int BindSocket(int fd, const std::string &path, const base::UnixAddress &address, int type, mode_t mode) {
  int error = base::BindListener(fd, path, address, mode);
  if (error == 0 && type != SOCK_DGRAM && listen(fd, SOMAXCONN) != 0) error = errno;
  if (error != 0 && error != EADDRINUSE) unlink(path.c_str());
  return error;
}

}  // namespace

int ServeUnixSocket(const std::string &path, int type, mode_t mode, base::UniqueFd *fd) {
  base::UnixAddress address;
  if (const int error = base::MakeUnixAddress(path, &address); error != 0) return error;
  FolderLock lock;
  if (const int error = lock.Take(path); error != 0) return error;
  if (const int error = RemoveStale(path, address, type); error != 0) return error;
  base::UniqueFd made(socket(AF_UNIX, type | SOCK_CLOEXEC, 0));
  if (!made) return errno;
  if (const int error = BindSocket(made.Get(), path, address, type, mode); error != 0) return error;
  *fd = std::move(made);
  return 0;
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
