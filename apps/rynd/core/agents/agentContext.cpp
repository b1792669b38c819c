#include "core/agents/agentContext.h"

#include <poll.h>

#include <cerrno>
#include <cstring>
#include <new>

#include "core/agents/agents.h"
#include "core/basics/cancel.h"
#include "core/basics/log.h"
#include "core/basics/statistics.h"
#include "platform/system.h"

namespace rynd {
namespace {

constexpr int kOutOfMemory = 1;

/// The steps of AgentInit that may fail. 0, or the code of the step that did.
int BuildContext(const char *name, const std::vector<const char *> &prefixes, const std::vector<const char *> &exactIds,
                 AgentContext **out) {
  auto *context = *out = new (std::nothrow) AgentContext;
  if (context == nullptr) return kOutOfMemory;
  try {
    context->name = std::make_unique<std::string>(name);
  } catch (const std::bad_alloc &) {
    return kOutOfMemory;
  }
  context->subscription = SubscriptionCreate();
  if (context->subscription == nullptr) return kOutOfMemory;
  for (const char *prefix : prefixes) {
    if (const int status = SubscriptionAddPrefix(context->subscription, prefix); status != 0) return status;
  }
  for (const char *id : exactIds) {
    if (const int status = SubscriptionAddId(context->subscription, id); status != 0) return status;
  }
  if (const int status = StreamOpen(name, *context->subscription, &context->stream); status != 0) return status;
  size_t count = 1;
  return StreamGetFd(*context->stream, &context->streamFd, &count);
}

}  // namespace

int AgentInit(const char *name, const std::vector<const char *> &prefixes, const std::vector<const char *> &exactIds,
              AgentContext **context) {
  Hyk_SetThreadName(name);
  RegisterAgentStatistics(name);
  const int status = BuildContext(name, prefixes, exactIds, context);
  if (status != 0) {
    AgentCleanup(context);
    Log("Failed to initialize agent %s (error code: %d) \n", name, status);
    return status;
  }
  Hyk_HoldLog(true);
  AgentReady();
  return 0;
}

void AgentCleanup(AgentContext **context) {
  if (*context == nullptr) return;
  Hyk_FlushLog();  // closing waits for whoever fans out
  SubscriptionDestroy((*context)->subscription);
  if ((*context)->stream != nullptr) StreamClose((*context)->stream);
  delete *context;
  *context = nullptr;
  Log("Done cleaning up agent.\n");
}

int AgentWaitObservation(AgentContext *context, Observation **observation) {
  Hyk_FlushLog();
  for (;;) {
    pollfd set{context->streamFd, POLLIN, 0};
    if (CancellablePoll(&set, 1) < 0) {
      if (errno == EINTR) continue;
      Log("Failed to poll - %s\n", strerror(errno));
      return 2;
    }
    if ((set.revents & POLLIN) == 0) {
      Log("Failed to poll, invalid revents - %hd\n", set.revents);
      return 2;
    }
    bool complete = false;
    if (const int status = StreamRead(context->stream, observation, &complete); status != 0) {
      Log("Failed to get Ryn\n");
      return status;
    }
    if (complete) return 0;
  }
}

}  // namespace rynd
