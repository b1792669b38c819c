// Telling the service manager how a program does, where one asks for it ($NOTIFY_SOCKET).
#pragma once

#include <sys/socket.h>
#include <sys/un.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "base/uniqueFd.h"

namespace base {

/// The service manager's socket, a path or, with '@' in front, an abstract name; null when there is none.
inline const char *ServiceSocket() {
  const char *path = getenv("NOTIFY_SOCKET");
  return path != nullptr && (*path == '/' || *path == '@') ? path : nullptr;
}

/// Send `state`, such as "READY=1", to the service manager. Without one it does nothing. 0 or an errno value; never
/// blocks.
inline int NotifyService(const char *state) {
  const char *socketPath = ServiceSocket();
  if (socketPath == nullptr) return 0;
  const std::string_view path = socketPath;
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) return ENAMETOOLONG;
  std::memcpy(address.sun_path, path.data(), path.size());
  if (path.starts_with('@')) address.sun_path[0] = '\0';
  const UniqueFd fd(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  if (!fd) return errno;
  const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size());
  const ssize_t sent = sendto(fd.Get(), state, std::strlen(state), MSG_NOSIGNAL | MSG_DONTWAIT,
                              reinterpret_cast<const sockaddr *>(&address), length);
  return sent < 0 ? errno : 0;
}

}  // namespace base
