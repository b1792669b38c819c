#include "startup/fakes.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "core/agents/streamLock.h"
#include "core/basics/signals.h"
#include "platform/ryn.h"

namespace startup_test {
World world;
}  // namespace startup_test

using startup_test::world;

struct RynLibContext {
  uint32_t id;
  int fd;
};

int RynLib_AsyncContextOpen(uint32_t id, RynLibHandle *handle) {
  if (id == world.failingContext) return 93;
  *handle = new RynLibContext{id, eventfd(0, EFD_CLOEXEC)};
  world.opened.push_back(id);
  return 0;
}
int RynLib_UserContextOpen(uint32_t id, RynLibHandle *handle) {
  return RynLib_AsyncContextOpen(id, handle);
}
int RynLib_UserContextNewCnx(RynLibHandle, int *) {
  return ECONNABORTED;
}
int RynLib_UserConnectionSender(int, int32_t *, uint32_t *) {
  return 0;
}
int RynLib_UserContextCloseCnx(int) {
  return 0;
}
int RynLib_HandleToFd(RynLibHandle handle, int *fd) {
  *fd = handle->fd;
  return 0;
}
int RynLib_HandleToName(RynLibHandle, char *) {
  return 0;
}
int RynLib_ReadFromFd(int, std::byte *, size_t size, size_t *length) {
  ++world.reads;
  world.buffer = std::max(world.buffer, size);
  *length = 0;
  return world.readStatus;
}
int RynLib_Reset(RynLibHandle) {
  ++world.resets;
  return world.resetStatus;
}
int RynLib_Close(RynLibHandle handle) {
  world.closed.push_back(handle->id);
  close(handle->fd);
  const int status = handle->id == world.failingClose ? 5 : 0;
  delete handle;
  return status;
}

namespace rynd {

void BlockSignals() {}
int InstallSignalHandlers() {
  return world.signalStatus;
}
bool StopRequested() {
  return world.stopped;
}
int PollWithSignals(pollfd *set, nfds_t count) {
  return world.onPoll(set, count);
}

StreamLock streamLock;
int StreamLock::Init() {
  return world.lockStatus;
}
void StreamLock::Acquire() NO_THREAD_SAFETY_ANALYSIS {
  pthread_mutex_lock(&mutex_);
}
bool StreamLock::TryAcquire() NO_THREAD_SAFETY_ANALYSIS {
  return pthread_mutex_trylock(&mutex_) == 0;
}
void StreamLock::Release() NO_THREAD_SAFETY_ANALYSIS {
  pthread_mutex_unlock(&mutex_);
}

}  // namespace rynd
