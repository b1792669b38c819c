// Accepting connections without spinning when the process runs out of descriptors.
#pragma once

#include <fcntl.h>
#include <sys/socket.h>

#include <cerrno>

#include "base/uniqueFd.h"

namespace base {

/// Accepts from listening sockets. With no descriptor left it gives up a spare one, accepts and closes the caller, so
/// that a listening socket never stays readable for good. One thread at a time.
class Acceptor {
 public:
  /// The accepted descriptor (close-on-exec), or -1 with errno; EMFILE and ENFILE mean that the caller was turned away.
  int Accept(int listenFd) {
    const int fd = accept4(listenFd, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd >= 0 || (errno != EMFILE && errno != ENFILE)) return fd;
    const int error = errno;
    spare_.Reset();
    UniqueFd turnedAway(accept4(listenFd, nullptr, nullptr, SOCK_CLOEXEC));
    turnedAway.Reset();
    spare_ = OpenSpare();
    errno = error;
    return -1;
  }

 private:
  static UniqueFd OpenSpare() { return UniqueFd(open("/dev/null", O_RDONLY | O_CLOEXEC)); }
  UniqueFd spare_ = OpenSpare();
};

}  // namespace base
