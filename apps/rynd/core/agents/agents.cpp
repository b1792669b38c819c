#include "core/agents/agents.h"

#include <cxxabi.h>
#include <execinfo.h>
#include <pthread.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <exception>

#include "base/immortal.h"
#include "core/basics/cancel.h"
#include "core/basics/clock.h"
#include "core/basics/conditionVariable.h"
#include "core/basics/log.h"
#include "core/basics/statistics.h"
#include "platform/system.h"

namespace rynd {
namespace {

// How long all joins together may wait, and how long each may after that: an agent that is cancelled while it waits
// ends within microseconds.
constexpr int64_t kJoinNs = 1'000'000'000;
constexpr int64_t kLateJoinNs = 15'000'000;

struct AgentSlot {
  AgentFunction function = nullptr;
  pthread_t thread{};
};
std::array<AgentSlot, kMaxAgents> agents;
uint32_t agentCount = 0;

/// What the initial thread waits for.
struct Progress {
  Mutex mutex;  ///< never held around anything but these
  ConditionVariable changed;
  uint32_t starting GUARDED_BY(mutex) = 0;  ///< agents that have yet to register their stream or to end
  /// By slot. Atomic since an agent that is being cancelled sets it, in whatever state that finds it.
  std::array<std::atomic<bool>, kMaxAgents> ended{};
};
Progress &AgentProgress() {
  static base::Immortal<Progress> progress;  // agents may outlive main()
  return *progress;
}
thread_local bool isReady = false;

/// The identity of an agent in log lines.
unsigned AgentIdentity(AgentFunction function) {
  return static_cast<unsigned>(reinterpret_cast<uintptr_t>(function));
}

/// Tell StopAgents that the agent of `slot` has nothing left to do.
void AgentEnded(const AgentSlot *slot) {
  AgentReady();
  Hyk_HoldLog(false);
  CurrentAgentStatistics()->isAlive = false;
  Progress &progress = AgentProgress();
  MutexLock lock(progress.mutex);
  progress.ended[static_cast<size_t>(slot - agents.data())] = true;
  progress.changed.NotifyAll();
}

/// The body of every agent thread.
void *AgentGuard(void *argument) {
  const auto *slot = static_cast<const AgentSlot *>(argument);
  const AgentFunction function = slot->function;
  // Asynchronous, but let in only by the calls of cancel.h.
  pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
  if (pthread_setcanceltype(PTHREAD_CANCEL_ASYNCHRONOUS, nullptr) != 0) {
    Log("Failed to set thread cancel type for agent function(%#x).\n", AgentIdentity(function));
  }
  try {
    function();
  } catch (const abi::__forced_unwind &) {
    AgentEnded(slot);
    throw;
  } catch (const std::exception &exception) {
    Log("Exception (%s) in agent function(%#x).\n", exception.what(), AgentIdentity(function));
  } catch (...) {
    Log("Unknown exception in agent function(%#x).\n", AgentIdentity(function));
  }
  AgentEnded(slot);
  return nullptr;
}

/// Join the agent of `slot` when it ends by `deadlineNs`. 0 or an errno value (ETIMEDOUT).
int JoinBy(size_t slot, int64_t deadlineNs) {
  Progress &progress = AgentProgress();
  {
    MutexLock lock(progress.mutex);
    while (!progress.ended[slot] && MonotonicNs() < deadlineNs) progress.changed.WaitUntil(progress.mutex, deadlineNs);
    if (!progress.ended[slot]) {
      pthread_detach(agents[slot].thread);
      return ETIMEDOUT;
    }
  }
  return pthread_join(agents[slot].thread, nullptr);
}

}  // namespace

bool PrepareToStopAgents() {
  void *frame = nullptr;
  return backtrace(&frame, 1) > 0;  // the one call that loads the same library, and fails where it can't
}

void StartAgent(AgentFunction agentFunction) {
  if (agentCount >= kMaxAgents) {
    Log("Failed to start agent. Already reached max limit of %u agents.\n", static_cast<unsigned>(kMaxAgents));
    return;
  }
  AgentSlot &slot = agents[agentCount];
  slot.function = agentFunction;
  {
    MutexLock lock(AgentProgress().mutex);
    ++AgentProgress().starting;
    AgentProgress().ended[agentCount] = false;
  }
  const int status = pthread_create(&slot.thread, nullptr, AgentGuard, &slot);
  if (status != 0) {
    Log("Failed to create thread %p (id:%d err:%d %s)\n", reinterpret_cast<void *>(agentFunction),
        static_cast<int>(agentCount), status, strerror(status));
    MutexLock lock(AgentProgress().mutex);
    --AgentProgress().starting;
    return;
  }
  ++agentCount;
}

int StartAgents(std::span<const AgentFunction> table) {
  EndCancelling();
  for (const AgentFunction agentFunction : table) StartAgent(agentFunction);
  Progress &progress = AgentProgress();
  MutexLock lock(progress.mutex);
  while (progress.starting > 0) progress.changed.Wait(progress.mutex);
  return 0;
}

void AgentReady() {
  if (isReady) return;
  isReady = true;
  Progress &progress = AgentProgress();
  MutexLock lock(progress.mutex);
  if (--progress.starting == 0) progress.changed.NotifyAll();
}

void StopAgents() {
  const int64_t deadlineNs = MonotonicNs() + kJoinNs;
  BeginCancelling();
  while (agentCount > 0) {
    --agentCount;
    int status = pthread_cancel(agents[agentCount].thread);
    if (status != 0) {
      Log("Failed to cancel thread id:%d, err:%d %s\n", static_cast<int>(agentCount), status, strerror(status));
      continue;
    }
    status = JoinBy(agentCount, std::max(deadlineNs, MonotonicNs() + kLateJoinNs));
    if (status != 0) {
      Log("Failed to join thread id:%d, err:%d %s\n", static_cast<int>(agentCount), status, strerror(status));
    }
  }
}

}  // namespace rynd
