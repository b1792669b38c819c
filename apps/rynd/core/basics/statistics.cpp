#include "core/basics/statistics.h"

#include <algorithm>
#include <cstring>
#include <string_view>
#include <utility>

#include "base/immortal.h"
#include "core/basics/mutex.h"

namespace rynd {
namespace {

std::array<AgentStatistics, kMaxAgents> agents;
std::atomic<size_t> registered = 0;
AgentStatistics noAgent;  // of threads that are none

thread_local AgentStatistics *currentAgent = nullptr;

struct Uplinks {
  Mutex mutex;  ///< never held around anything but a copy
  std::vector<WaitingUplink> waiting GUARDED_BY(mutex);
};
Uplinks &AllUplinks() {
  static base::Immortal<Uplinks> uplinks;
  return *uplinks;
}

}  // namespace

const char *DropReasonName(DropReason reason) {
  constexpr std::array<const char *, kDropReasons> kNames = {"rate", "name", "size", "memory"};
  return kNames[static_cast<size_t>(reason)];
}

Statistics &Stats() {
  static base::Immortal<Statistics> statistics;
  return *statistics;
}

AgentStatistics *RegisterAgentStatistics(const char *name) {
  const size_t place = registered.fetch_add(1);
  if (place >= agents.size()) return currentAgent = &noAgent;
  AgentStatistics &agent = agents[place];
  std::string_view shown(name);
  constexpr std::string_view kEnding = "Correlator";
  if (shown.ends_with(kEnding)) shown.remove_suffix(kEnding.size());
  std::memcpy(agent.name, shown.data(), std::min(shown.size(), AgentStatistics::kNameSize - 1));
  agent.isAlive = true;
  agent.isUsed = true;
  return currentAgent = &agent;
}

AgentStatistics *CurrentAgentStatistics() {
  return currentAgent == nullptr ? &noAgent : currentAgent;
}

AgentStatistics *SetCurrentAgentStatistics(AgentStatistics *agent) {
  return std::exchange(currentAgent, agent);
}

std::vector<const AgentStatistics *> AllAgentStatistics() {
  std::vector<const AgentStatistics *> all;
  for (const AgentStatistics &agent : agents) {
    if (agent.isUsed) all.push_back(&agent);
  }
  return all;
}

size_t AgentsAlive() {
  return static_cast<size_t>(
      std::count_if(agents.begin(), agents.end(), [](const AgentStatistics &agent) { return agent.isAlive.load(); }));
}

uint64_t RecordsInStreams() {
  uint64_t count = 0;
  for (const AgentStatistics &agent : agents) {
    const uint64_t received = agent.received.Get();  // first: never more than is given
    count += agent.givenRecords.Get() - received;
  }
  return count;
}

void SetWaitingUplinks(std::vector<WaitingUplink> uplinks) {
  MutexLock lock(AllUplinks().mutex);
  AllUplinks().waiting.swap(uplinks);
}

std::vector<WaitingUplink> WaitingUplinks() {
  MutexLock lock(AllUplinks().mutex);
  return AllUplinks().waiting;
}

}  // namespace rynd
