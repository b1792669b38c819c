#include "core/agents/runner.h"

#include <cxxabi.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <exception>
#include <new>
#include <string>

#include "core/agents/agentContext.h"
#include "core/basics/cancel.h"
#include "core/basics/cause.h"
#include "core/basics/clock.h"
#include "core/basics/log.h"
#include "core/basics/statistics.h"
#include "platform/flight.h"
#include "platform/ryn.h"
#include "platform/system.h"

namespace rynd {
namespace {

std::string ThreadName(const char *name) {
  return std::string(name) + "Correlator";
}

/// Dispatch one observation through a copy of `table`, so that rows which the look-up inserts are gone after it, and
/// free it, also when its handler ends the agent. `copy` is where, and keeps its memory.
void DispatchAndFree(Handler defaultHandler, const HandlerTable &table, HandlerTable *copy, Observation *observation) {
  struct Owner {
    Observation *observation;
    ~Owner() { Ryn_Free(observation); }
  } owner{observation};
  try {
    *copy = table;
    DispatchObservation(defaultHandler, copy, observation);
  } catch (const std::bad_alloc &) {  // of the table: what a handler throws has been dealt with
    const char *id = nullptr;
    Ryn_GetID(observation, &id);
    Log("Out of memory: observation %s is not handled.\n", id == nullptr ? "(null)" : id);
    CurrentAgentStatistics()->unhandled.AddAlone();
  }
}

/// Call `handler`, ignoring standard exceptions, and count it in `calls`.
void CallHandler(Handler handler, Observation *observation, const char *id, Counter *calls) {
  AgentStatistics *const agent = CurrentAgentStatistics();
  Cause cause{id, 0, nullptr};
  Ryn_GetTimestamp(observation, &cause.observationUs);
  const CauseScope scope(cause);
  const int64_t startNs = UnrecordedNs();
  calls->AddAlone();
  try {
    handler(observation);
  } catch (const std::exception &) {
    agent->exceptions.AddAlone();
  }
  agent->busyNs.AddAlone(static_cast<uint64_t>(UnrecordedNs() - startNs));
}

/// Run `loop` and release the context behind it, also when an exception ends the agent: the poll loop must not wait for
/// a stream that no one reads. A cancelled agent's context is kept, since the process is ending.
template <typename Loop>
void RunThenCleanUp(AgentContext *context, const Loop &loop) {
  try {
    loop();
  } catch (const abi::__forced_unwind &) {
    throw;
  } catch (...) {
    AgentCleanup(&context);
    throw;
  }
  AgentCleanup(&context);
}

/// One pass of the loop with extra descriptors. False when the agent cannot go on.
bool WaitAndServe(AgentContext *context, Handler defaultHandler, const HandlerTable &table, void (*timerCallback)(),
                  HandlerTable *copy, std::vector<pollfd> *set) {
  for (pollfd &entry : *set) entry.revents = 0;
  Hyk_FlushLog();
  if (CancellablePoll(set->data(), set->size()) < 0) {
    if (errno == EINTR) return true;
    Log("Failed to poll - %s\n", strerror(errno));
    return false;
  }
  if (((*set)[0].revents & POLLIN) != 0) {
    Observation *observation = nullptr;
    bool complete = false;
    if (StreamRead(context->stream, &observation, &complete) != 0) {
      Log("Failed to get Ryn\n");
      return false;
    }
    if (complete) DispatchAndFree(defaultHandler, table, copy, observation);
  }
  for (size_t i = 1; i < set->size(); ++i) {
    if (((*set)[i].revents & POLLIN) == 0) continue;
    // Kept: always the first extra descriptor, whichever one is readable; the one user passes exactly one.
    char ticks[10];
    if (read((*set)[1].fd, ticks, sizeof ticks) < 0) Log("Failed to read the timer's pipe - %s\n", strerror(errno));
    Hyk_RecordTimer("woken");
    timerCallback();
    Hyk_RecordTimerDone();
  }
  return true;
}

}  // namespace

void RunCorrelatorFiltered(const char *name, const std::vector<const char *> &prefixes,
                           const std::vector<const char *> &exactIds, Handler defaultHandler, HandlerTable table) {
  AgentContext *context = nullptr;
  if (AgentInit(ThreadName(name).c_str(), prefixes, exactIds, &context) != 0) return;
  RunThenCleanUp(context, [&] {
    Observation *observation = nullptr;
    HandlerTable copy;
    while (AgentWaitObservation(context, &observation) == 0) {
      DispatchAndFree(defaultHandler, table, &copy, observation);
    }
  });
}

void RunCorrelatorWithTimer(const char *name, const char *prefix, Handler defaultHandler, HandlerTable table,
                            void (*timerCallback)(), const int *extraFds, int extraFdCount) {
  AgentContext *context = nullptr;
  if (AgentInit(ThreadName(name).c_str(), {prefix}, {}, &context) != 0) return;
  std::vector<pollfd> set{{context->streamFd, POLLIN, 0}};
  for (int i = 0; i < extraFdCount; ++i) set.push_back({extraFds[i], POLLIN, 0});
  RunThenCleanUp(context, [&] {
    HandlerTable copy;
    while (WaitAndServe(context, defaultHandler, table, timerCallback, &copy, &set)) {
    }
  });
}

void DispatchObservation(Handler defaultHandler, HandlerTable *table, Observation *observation) {
  const char *id = nullptr;
  Ryn_GetID(observation, &id);
  const Handler handler = id == nullptr ? nullptr : (*table)[id];
  if (handler == nullptr) {
    CallHandler(defaultHandler, observation, id, &CurrentAgentStatistics()->unhandled);
    return;
  }
  LogObservation(observation);
  CallHandler((*table)[id], observation, id, &CurrentAgentStatistics()->handled);
}

}  // namespace rynd
