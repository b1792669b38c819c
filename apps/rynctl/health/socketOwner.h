// Who is at the other end of a socket file.
#pragma once

#include <chrono>
#include <string>

namespace rynctl {

/// The process that serves a UNIX socket.
struct SocketOwner {
  bool isServed = false;  ///< some process listens
  std::string name;       ///< "mgmtd (process 123)", or "a process" to whoever may not know
};

/// Look for the process that listens at `path`, without connecting to it.
SocketOwner FindSocketOwner(const std::string &path);

/// Read the stream `fd` until `text` has come, for at most `limit`. False when it has not.
bool WaitForText(int fd, const std::string &text, std::chrono::milliseconds limit);

}  // namespace rynctl
