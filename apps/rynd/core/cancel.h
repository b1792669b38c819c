// The calls in which an agent may be cancelled, and no others. An agent's cancel type is asynchronous and its cancel
// state disabled; each call here enables it for its own duration. None of them may have anything to destroy: a thread
// that is cancelled at an instruction outside of the exception tables would end the process.
#pragma once

#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>

namespace rynd {

/// poll() without a timeout. -1 with errno, or the number of ready descriptors.
int CancellablePoll(pollfd *set, nfds_t count);
/// connect(). 0, or -1 with errno.
int CancellableConnect(int fd, const sockaddr *address, socklen_t length);
/// send(). The number of bytes sent, or -1 with errno.
ssize_t CancellableSend(int fd, const void *bytes, size_t length, int flags);
/// pthread_mutex_lock(). 0 or an errno value. Meant for a lock that is held across the calls above: whoever waits for
/// it behind a hung send must be as easy to stop as the sender.
int CancellableLock(pthread_mutex_t *mutex);

}  // namespace rynd
