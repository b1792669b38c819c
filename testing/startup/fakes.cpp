#include "startup/fakes.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "core/agents/streamLock.h"
#include "core/basics/signals.h"
#include "platform/hsi.h"
#include "platform/ryn.h"

namespace startup_test {
World world;
}  // namespace startup_test

using startup_test::world;

struct RynLibContext {
  uint32_t id;
  int fd;
};

struct HSI_ParamList {
  std::string text;
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

int HSI_CheckSig(char *kernelDate, size_t size, const char **ownDate) {
  strncpy(kernelDate, "Jan  1 2030 00:00:00", size);
  *ownDate = "Feb  2 2031 01:01:01";
  return world.signatureStatus;
}
HSI_ParamList *HSI_ParamListCreate() {
  if (world.noLists) return nullptr;
  ++world.lists;
  return new HSI_ParamList;
}
HYK_ReturnStatus HSI_ParamListAddString(HSI_ParamList *list, const char *text) {
  list->text += std::string(text) + " ";
  return 0;
}
HYK_ReturnStatus HSI_ParamListAddInt(HSI_ParamList *list, int64_t value) {
  list->text += std::to_string(value) + " ";
  return 0;
}
void HSI_ParamListDestroy(HSI_ParamList *list) {
  if (list != nullptr) --world.lists;
  delete list;
}
HYK_ReturnStatus HSI_Get(const char *, const HSI_ParamList *, void *, size_t) {
  return 0;
}
HYK_ReturnStatus HSI_Set(const char *path, const HSI_ParamList *instance, const HSI_ParamList *values) {
  world.written.push_back(std::string(path) + ": " + instance->text + "= " + values->text);
  return world.setStatus;
}
int HYK_ReturnStatusToErrno(HYK_ReturnStatus status) {
  return status == kHykNoMemory ? ENOMEM : static_cast<int>(status & 0xff);
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
