// The calls in which an agent may be cancelled, and no others. An agent's cancel type is asynchronous and its cancel
// state disabled; each call here enables it for its own duration. None of them may have anything to destroy: a thread
// that is cancelled at an instruction outside of the exception tables would end the process.
//
// A cancellation is a signal, and one that is sent during such a call may arrive just behind it, where the library no
// longer looks at the state. So whoever cancels says so first, with BeginCancelling(), and an agent that comes out of
// a call after that does not go on: it waits, still inside of the call, to be cancelled.
#pragma once

#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>

#include <atomic>
#include <cstdint>

namespace rynd {

/// From now on no agent comes out of the calls below any more. Before the first pthread_cancel().
void BeginCancelling();
/// Agents come out of the calls below again. Before agents are started.
void EndCancelling();

/// poll() without a timeout. -1 with errno, or the number of ready descriptors.
int CancellablePoll(pollfd *set, nfds_t count);
/// connect(). 0, or -1 with errno.
int CancellableConnect(int fd, const sockaddr *address, socklen_t length);
/// send(). The number of bytes sent, or -1 with errno.
ssize_t CancellableSend(int fd, const void *bytes, size_t length, int flags);

/// A lock that is held across the calls above: whoever waits for it behind a hung send is as easy to stop as the
/// sender, and has not got it when that happens.
class CancellableMutex {
 public:
  void Lock();
  /// False when it is held.
  bool TryLock();
  void Unlock();

 private:
  static constexpr uint32_t kFree = 0, kHeld = 1, kAwaited = 2;
  std::atomic<uint32_t> state_ = kFree;  ///< what waiters sleep on
};

}  // namespace rynd
