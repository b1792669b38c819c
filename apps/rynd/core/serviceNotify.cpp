#include "core/serviceNotify.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "base/uniqueFd.h"
#include "core/basics/log.h"

namespace rynd {
namespace {

/// Send `state` to the socket called `path`; an abstract one begins with '@'. 0 or an errno value.
int SendState(std::string_view path, const char *state) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) return ENAMETOOLONG;
  std::memcpy(address.sun_path, path.data(), path.size());
  if (path.starts_with('@')) address.sun_path[0] = '\0';
  const base::UniqueFd fd(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  if (!fd) return errno;
  const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size());
  const ssize_t sent = sendto(fd.Get(), state, std::strlen(state), MSG_NOSIGNAL | MSG_DONTWAIT,
                              reinterpret_cast<const sockaddr *>(&address), length);
  return sent < 0 ? errno : 0;
}

}  // namespace

void NotifyService(const char *state) {
  const char *path = getenv("NOTIFY_SOCKET");
  if (path == nullptr || (*path != '/' && *path != '@')) return;
  if (const int status = SendState(path, state); status != 0) {
    Log("Cannot tell the service manager at %s: %s\n", path, strerror(status));
  }
}

}  // namespace rynd
