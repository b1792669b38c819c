// What an agent owns while it runs: its subscription, its stream and its name. Each on its own agent's thread.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "core/agents/stream.h"
#include "core/agents/subscription.h"

struct Observation;

namespace rynd {

struct AgentContext {
  Subscription *subscription = nullptr;
  Stream *stream = nullptr;
  std::unique_ptr<std::string> name;
  int streamFd = -1;
  int flag = 1;
};

/// Name the calling thread `name`, subscribe it to `prefixes` (without "ryn.") and `exactIds`, and open its stream. 0
/// and the context, which AgentCleanup frees; or 1 or 2 as the step that failed returned it, logged.
int AgentInit(const char *name, const std::vector<const char *> &prefixes, const std::vector<const char *> &exactIds,
              AgentContext **context);

/// Release a context and set the pointer to null; null does nothing.
void AgentCleanup(AgentContext **context);

/// Wait until the agent's stream holds a whole observation; the caller frees it. 0, or 2 on failure, logged. The agent
/// may be cancelled while it waits.
int AgentWaitObservation(AgentContext *context, Observation **observation);

}  // namespace rynd
