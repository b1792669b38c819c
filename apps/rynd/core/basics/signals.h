// The three signals that the daemon handles: SIGTERM and SIGINT stop it, SIGPIPE is ignored. They are blocked in every
// thread, and let in only while the initial thread waits, so that a stop that arrives at any instant is seen and no
// system call is torn by one.
#pragma once

#include <poll.h>

namespace rynd {

/// Block the three signals in the calling thread and in those that it starts. Initial thread, first of all.
void BlockSignals();

/// Install the handler. 0; or errno of the first installation that failed with one. Initial thread.
int InstallSignalHandlers();

/// True once SIGTERM or SIGINT has been handled.
bool StopRequested();

/// ppoll() without a timeout, with the three signals let in. -1 with errno (EINTR: look at StopRequested()), or the
/// number of ready descriptors. Descriptors that are always ready keep a signal out for 16 calls at most. Initial
/// thread.
int PollWithSignals(pollfd *set, nfds_t count);

}  // namespace rynd
