// Making the UNIX-domain sockets that processes on one host meet at.
#pragma once

#include <sys/types.h>

#include <string>

#include "base/uniqueFd.h"

namespace hosted {

/// Bind (and, but for SOCK_DGRAM, listen on) a new socket of `type` at `path` with `mode`. A stale file of an earlier
/// run is replaced, also when two processes try at once; one that a live process serves is EADDRINUSE, a file that is
/// no socket EEXIST, a path above 107 characters ENAMETOOLONG. 0 and the socket (close-on-exec, blocking), or an errno
/// value.
int ServeUnixSocket(const std::string &path, int type, mode_t mode, base::UniqueFd *fd);

/// Connect a new socket of `type` to `path`. 0 and the socket (close-on-exec, blocking), or an errno value.
int ConnectUnixSocket(const std::string &path, int type, base::UniqueFd *fd);

}  // namespace hosted
