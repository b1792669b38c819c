#include "core/pollLoop.h"

#include <cerrno>

#include "core/basics/log.h"
#include "core/basics/signals.h"
#include "core/basics/statistics.h"
#include "core/fanOut.h"
#include "core/feed/traceSocket.h"

namespace rynd {
namespace {

constexpr short kGone = POLLERR | POLLHUP | POLLNVAL;

/// Say what a stop gives up: it is not delivered by anybody later.
void LogWhatIsLeft() {
  const uint64_t records = RecordsInStreams();
  const uint64_t events = Stats().events.waiting;
  if (records == 0 && events == 0) return;
  Log("Left behind: %lu observations that no agent has read, %lu events that the management agent has not got.\n",
      records, events);
}

}  // namespace

int PollLoop::Run() {
  for (;;) {
    if (StopRequested()) {
      LogWhatIsLeft();
      Log("Exiting due to signal.\n");
      return 0;
    }
    if (PollWithSignals(set_, count_) < 0) {
      if (errno == EINTR) continue;
      return -1;
    }
    if (const int status = ServeSlots(); status != 0) return status;
  }
}

int PollLoop::ServeSlots() {
  for (size_t slot = 0; slot < count_; ++slot) {
    if (set_[slot].revents == 0) continue;  // armed as it is
    if (StopRequested()) return 0;
    if (const int status = ServeSlot(&slot); status != 0) return status;
  }
  return 0;
}

/// Act on one slot's returned events; `*slot` steps back when another connection has moved into it.
int PollLoop::ServeSlot(size_t *slot) {
  const short events = set_[*slot].revents;
  const bool isConnection = *slot >= kFirstConnectionSlot || (*slot == kUserContextSlot && capacity_ == kFixedSlots);
  if ((events & POLLIN) == 0) {
    const bool closed = *slot >= kFirstConnectionSlot && (events & kGone) != 0 && CloseConnection(*slot);
    if (closed) {
      --*slot;
    } else {
      Rearm(*slot);
    }
    return 0;
  }
  if (isConnection) {
    if (ServeConnection(*slot)) --*slot;
    return 0;
  }
  int status = 0;
  if (*slot == kUserContextSlot) {
    AcceptConnection();
  } else if (*slot == kTraceSlot) {
    AcceptTraceClient(set_[*slot].fd);
  } else {
    status = ServeKernelContext(*slot);
  }
  Rearm(*slot);
  return status;
}

/// Read and dispatch one observation. 0, or the positive status of a context that failed.
int PollLoop::ServeKernelContext(size_t slot) {
  const RynLibHandle handle = contexts_[slot].handle;
  int fd = -1;
  RynLib_HandleToFd(handle, &fd);
  const int status = ReadAndDispatch(fd, handle);
  if (status <= 0) return 0;
  if (status != kRynLibTooSmall) return status;
  if (RynLib_Reset(handle) != 0) {
    char name[kRynLibNameSize] = "";
    RynLib_HandleToName(handle, name);  // for whoever looks at this frame in a core file
  }
  return 0;
}

/// Accept one user connection into the next slot; with none left, close it at once.
void PollLoop::AcceptConnection() {
  int fd = -1;
  if (RynLib_UserContextNewCnx(contexts_[kUserContextSlot].handle, &fd) != 0) return;
  if (count_ == capacity_) {
    RynLib_UserContextCloseCnx(fd);
    return;
  }
  set_[count_] = {fd, POLLIN, 0};
  ++count_;
}

/// Read and dispatch one observation. True when the connection was closed.
bool PollLoop::ServeConnection(size_t slot) {
  const int status = ReadAndDispatch(set_[slot].fd, contexts_[kUserContextSlot].handle);
  if (status != 0 && (set_[slot].revents & kGone) != 0 && CloseConnection(slot)) return true;
  Rearm(slot);
  return false;
}

/// Close a connection and move the last live slot into its place. False, with nothing changed, when it can't be closed.
bool PollLoop::CloseConnection(size_t slot) {
  if (RynLib_UserContextCloseCnx(set_[slot].fd) < 0) return false;
  --count_;
  set_[slot] = set_[count_];
  set_[count_] = {-1, POLLIN, 0};
  return true;
}

void PollLoop::Rearm(size_t slot) {
  set_[slot].events = POLLIN;
  set_[slot].revents = 0;
}

}  // namespace rynd
