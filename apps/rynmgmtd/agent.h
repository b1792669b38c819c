// The agent as a whole: what is made in which order, and taken down in the other.
#pragma once

#include "mgmtd/options.h"

namespace mgmtd {

/// Serve until SIGTERM or SIGINT. The exit status: 0 after a stop; 1 when a socket can't be served; 2 when the store is
/// of a newer version. Initial thread, before there is any other.
int RunAgent(const Options &options);

}  // namespace mgmtd
