// Addresses of UNIX-domain sockets.
#pragma once

#include <sys/socket.h>
#include <sys/un.h>

#include <cerrno>
#include <cstring>
#include <string_view>

namespace base {

/// The longest socket path, in characters; one more is kept for the NUL.
constexpr size_t kMaxSocketPath = 107;

/// The address of a socket file and the length that goes with it: always the whole structure's, 110 bytes.
struct UnixAddress {
  sockaddr_un address{};
  static constexpr socklen_t kLength = sizeof(sockaddr_un);
  const sockaddr *Get() const { return reinterpret_cast<const sockaddr *>(&address); }
};

/// Fill `out` with `path`. 0, or ENAMETOOLONG when the path has more than 107 characters.
inline int MakeUnixAddress(std::string_view path, UnixAddress *out) {
  if (path.size() > kMaxSocketPath) return ENAMETOOLONG;
  out->address = {};
  out->address.sun_family = AF_UNIX;
  std::memcpy(out->address.sun_path, path.data(), path.size());
  return 0;
}

}  // namespace base
