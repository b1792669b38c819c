// What every listening UNIX-domain socket of this tree is given.
#pragma once

#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "base/unixAddress.h"

namespace base {

/// SOL_SOCKET: whether a socket takes descriptors that a sender attaches; Linux 6.16 on, and inherited by what is
/// accepted. Older headers lack it.
constexpr int kPassRights = 83;

/// Have senders that attach descriptors refused (EPERM). A descriptor that nobody takes is closed by whoever receives
/// the packet, and a close may last as long as its sender likes. False where the kernel can't.
inline bool RefuseDescriptors(int fd) {
  constexpr int kOff = 0;
  return setsockopt(fd, SOL_SOCKET, kPassRights, &kOff, sizeof kOff) == 0;
}

/// Whether the kernel refuses them.
inline bool RefusesDescriptors(int fd) {
  int passed = 1;
  socklen_t size = sizeof passed;
  return getsockopt(fd, SOL_SOCKET, kPassRights, &passed, &size) == 0 && passed == 0;
}

/// Give the socket file `path` exactly `mode`, and its folder's group where the caller may. 0 or an errno value.
inline int GiveModeAndGroup(const std::string &path, mode_t mode) {
  struct stat folder {};
  struct stat file {};
  const size_t slash = path.rfind('/');
  const std::string folderPath = slash == std::string::npos ? "." : path.substr(0, slash + 1);
  if (lstat(path.c_str(), &file) != 0) return errno;
  // Mostly all is as it has to be, and a change is a write to the file system.
  const bool isGiven = stat(folderPath.c_str(), &folder) == 0 && folder.st_gid != file.st_gid &&
                       lchown(path.c_str(), static_cast<uid_t>(-1), folder.st_gid) == 0;
  // The group is refused to whoever is not in it: the file keeps the caller's then.
  errno = 0;
  constexpr mode_t kAll = 07777;
  if (!isGiven && (file.st_mode & kAll) == mode) return 0;
  return chmod(path.c_str(), mode) == 0 ? 0 : errno;
}

/// Bind `fd` to `path` with exactly `mode` whatever the umask, the folder's group where the caller may give it, and
/// attached descriptors refused. 0, or an errno value with no file of its own left behind.
inline int BindListener(int fd, const std::string &path, const UnixAddress &address, mode_t mode) {
  RefuseDescriptors(fd);
  // The file takes its mode from the socket, less the umask: never wider than asked for, and widened afterwards.
  if (fchmod(fd, mode) != 0) return errno;
  if (bind(fd, address.Get(), UnixAddress::kLength) != 0) return errno;
  const int error = GiveModeAndGroup(path, mode);
  if (error != 0) unlink(path.c_str());
  return error;
}

}  // namespace base
