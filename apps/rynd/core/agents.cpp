#include "core/agents.h"

#include <cxxabi.h>
#include <pthread.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <exception>

#include "core/conditionVariable.h"
#include "core/log.h"

namespace rynd {
namespace {

// How long all joins together may wait, and how long each may after that: a thread that has been cancelled while it
// waits ends within microseconds.
constexpr int64_t kJoinNs = 1'000'000'000;
constexpr int64_t kLateJoinNs = 15'000'000;

struct AgentSlot {
  AgentFunction function = nullptr;
  pthread_t thread{};
};
std::array<AgentSlot, kMaxAgents> agents;
uint32_t agentCount = 0;

/// The agents that have yet to register their stream or to end.
struct Readiness {
  Mutex mutex;  ///< never held around anything but these counts
  ConditionVariable changed;
  uint32_t pending GUARDED_BY(mutex) = 0;
};
Readiness &StartingAgents() {
  static Readiness *const readiness = new Readiness;  // never destroyed: agents may outlive main()
  return *readiness;
}
thread_local bool isReady = false;

/// The identity of an agent in log lines.
unsigned AgentIdentity(AgentFunction function) {
  return static_cast<unsigned>(reinterpret_cast<uintptr_t>(function));
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
    throw;
  } catch (const std::exception &exception) {
    Log("Exception (%s) in agent function(%#x).\n", exception.what(), AgentIdentity(function));
  } catch (...) {
    Log("Unknown exception in agent function(%#x).\n", AgentIdentity(function));
  }
  AgentReady();
  return nullptr;
}

int64_t MonotonicNs() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * int64_t{1'000'000'000} + now.tv_nsec;
}

/// Join `thread` by `deadlineNs` of the monotonic clock. 0 or an errno value (ETIMEDOUT).
int JoinBy(pthread_t thread, int64_t deadlineNs) {
  const timespec deadline{deadlineNs / 1'000'000'000, deadlineNs % 1'000'000'000};
  return pthread_clockjoin_np(thread, nullptr, CLOCK_MONOTONIC, &deadline);
}

}  // namespace

void StartAgent(AgentFunction agentFunction) {
  if (agentCount >= kMaxAgents) {
    Log("Failed to start agent. Already reached max limit of %u agents.\n", static_cast<unsigned>(kMaxAgents));
    return;
  }
  AgentSlot &slot = agents[agentCount];
  slot.function = agentFunction;
  {
    MutexLock lock(StartingAgents().mutex);
    ++StartingAgents().pending;
  }
  const int status = pthread_create(&slot.thread, nullptr, AgentGuard, &slot);
  if (status != 0) {
    Log("Failed to create thread %p (id:%d err:%d %s)\n", reinterpret_cast<void *>(agentFunction),
        static_cast<int>(agentCount), status, strerror(status));
    MutexLock lock(StartingAgents().mutex);
    --StartingAgents().pending;
    return;
  }
  ++agentCount;
}

int StartAgents(std::span<const AgentFunction> table) {
  for (const AgentFunction agentFunction : table) StartAgent(agentFunction);
  Readiness &starting = StartingAgents();
  MutexLock lock(starting.mutex);
  while (starting.pending > 0) starting.changed.Wait(starting.mutex);
  return 0;
}

void AgentReady() {
  if (isReady) return;
  isReady = true;
  Readiness &starting = StartingAgents();
  MutexLock lock(starting.mutex);
  if (starting.pending > 0 && --starting.pending == 0) starting.changed.NotifyAll();
}

void StopAgents() {
  const int64_t deadlineNs = MonotonicNs() + kJoinNs;
  while (agentCount > 0) {
    --agentCount;
    const pthread_t thread = agents[agentCount].thread;
    int status = pthread_cancel(thread);
    if (status != 0) {
      Log("Failed to cancel thread id:%d, err:%d %s\n", static_cast<int>(agentCount), status, strerror(status));
      continue;
    }
    const int64_t lateNs = MonotonicNs() + kLateJoinNs;
    status = JoinBy(thread, lateNs > deadlineNs ? lateNs : deadlineNs);
    if (status != 0) {
      Log("Failed to join thread id:%d, err:%d %s\n", static_cast<int>(agentCount), status, strerror(status));
    }
  }
}

}  // namespace rynd
