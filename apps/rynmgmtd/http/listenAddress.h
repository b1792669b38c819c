// Where the HTTP server listens: an address and a port, or a UNIX-domain socket. Stateless: any thread.
#pragma once

#include <cstdint>
#include <string>

#include "base/uniqueFd.h"

namespace mgmtd {

/// Read from "127.0.0.1:8470", "[::1]:8470", "localhost:8470" or "/run/rynmgmtd/http.sock".
struct ListenAddress {
  std::string path;  ///< of a UNIX-domain socket; else ""
  std::string host;  ///< a numeric address, without brackets
  uint16_t port = 0;
  bool loopback = false;  ///< reached from this host alone; true for a path

  /// "" or what is wrong with `text`, naming it.
  static std::string Parse(const std::string &text, ListenAddress *out);
};

/// A listening socket (non-blocking, close-on-exec), and the port that it got where 0 was asked for. A socket file has
/// mode 0660; one that nobody serves any more is replaced. "" or what went wrong.
std::string Listen(const ListenAddress &address, base::UniqueFd *fd, uint16_t *port);

/// True when `host`, the value of a Host header, names this host's loopback: what a browser sends that was not led
/// here by a name of somebody else's.
bool NamesLoopback(const std::string &host);

}  // namespace mgmtd
