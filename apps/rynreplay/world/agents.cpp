// Stands in for core/agents/runner.cpp: agents are registered instead of served.
#include "replay/world/agents.h"

#include <poll.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <exception>
#include <memory>
#include <utility>

#include "core/agents/runner.h"
#include "core/basics/cause.h"
#include "core/basics/reason.h"
#include "platform/ryn.h"
#include "replay/world/world.h"

namespace replay {
namespace {

struct FreeObservation {
  void operator()(Observation *observation) const { Ryn_Free(observation); }
};
using ObservationPtr = std::unique_ptr<Observation, FreeObservation>;

ObservationPtr MakeObservation(std::string_view record) {
  std::unique_ptr<std::byte[]> bytes(new std::byte[record.size()]);
  std::memcpy(bytes.get(), record.data(), record.size());
  Observation *observation = nullptr;
  if (Ryn_MakeRyn(bytes.get(), record.size(), &observation) == 0) static_cast<void>(bytes.release());
  return ObservationPtr(observation);
}

}  // namespace

bool Dispatch(const Agent &agent, std::string_view record) {
  const ObservationPtr observation = MakeObservation(record);
  if (observation == nullptr) return false;
  rynd::Cause cause;
  Ryn_GetID(observation.get(), &cause.observationId);
  Ryn_GetTimestamp(observation.get(), &cause.observationUs);
  const rynd::CauseScope scope(cause);
  rynd::SetCurrentAgentStatistics(agent.statistics);
  const auto found = agent.handlers.find(cause.observationId == nullptr ? "" : cause.observationId);
  const bool isHandled = found != agent.handlers.end() && found->second != nullptr;
  (isHandled ? agent.statistics->handled : agent.statistics->unhandled).AddAlone();
  if (!isHandled) rynd::Reason("agent %s has no handler for it", agent.name.c_str());
  try {
    (isHandled ? found->second : agent.defaultHandler)(observation.get());
  } catch (const std::exception &failure) {
    agent.statistics->exceptions.AddAlone();
    rynd::Reason("the handler gave up: %s", failure.what());
  }
  return true;
}

bool IsWoken(const Agent &agent) {
  if (agent.extraFd < 0) return false;
  pollfd set{agent.extraFd, POLLIN, 0};
  return poll(&set, 1, 0) > 0;
}

void Wake(const Agent &agent) {
  if (agent.timerCallback == nullptr) return;
  rynd::SetCurrentAgentStatistics(agent.statistics);
  std::array<char, 10> ticks;
  while (IsWoken(agent) && read(agent.extraFd, ticks.data(), ticks.size()) > 0) continue;
  agent.timerCallback();
}

}  // namespace replay

namespace rynd {

void RunCorrelatorFiltered(const char *name, const std::vector<const char *> &prefixes,
                           const std::vector<const char *> &exactIds, Handler defaultHandler, HandlerTable table) {
  replay::Agent &agent = replay::TheWorld().agents.emplace_back();
  agent.name = name;
  for (const char *prefix : prefixes) SubscriptionAddPrefix(&agent.subscription, prefix);
  for (const char *id : exactIds) SubscriptionAddId(&agent.subscription, id);
  agent.filter = MakeIdFilter(agent.subscription);
  agent.defaultHandler = defaultHandler;
  agent.ids = table.Ids();
  for (const std::string_view id : agent.ids) agent.handlers[id] = table[id];
  agent.statistics = RegisterAgentStatistics(name);
}

void RunCorrelatorWithTimer(const char *name, const char *prefix, Handler defaultHandler, HandlerTable table,
                            void (*timerCallback)(), const int *extraFds, int extraFdCount) {
  RunCorrelatorFiltered(name, {prefix}, {}, defaultHandler, std::move(table));
  replay::Agent &agent = replay::TheWorld().agents.back();
  agent.timerCallback = timerCallback;
  if (extraFdCount > 0) agent.extraFd = extraFds[0];
}

}  // namespace rynd
