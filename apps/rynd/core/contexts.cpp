#include "core/contexts.h"

#include "core/basics/log.h"

namespace rynd {

ContextTable MakeContextTable() {
  ContextTable contexts{};
  for (uint32_t id = 0; id < contexts.size(); ++id) contexts[id] = {id, nullptr};
  return contexts;
}

int OpenContexts(ContextTable *contexts, pollfd *set) {
  for (size_t i = 0; i < contexts->size(); ++i) {
    Context &context = (*contexts)[i];
    const int status = i == kUserContextSlot ? RynLib_UserContextOpen(context.id, &context.handle)
                                             : RynLib_AsyncContextOpen(context.id, &context.handle);
    if (status != 0) return status;
    set[i] = {-1, POLLIN, 0};
    RynLib_HandleToFd(context.handle, &set[i].fd);
  }
  return 0;
}

void CloseContexts(const ContextTable &contexts) {
  for (const Context &context : contexts) {
    if (context.handle == nullptr) continue;
    const int status = RynLib_Close(context.handle);
    if (status != 0) Log("Error closing handle %p: %d\n", static_cast<void *>(context.handle), status);
  }
}

}  // namespace rynd
