// The agents of a replay: what each asks of its runner, which calls its handlers here.
#pragma once

#include <cstddef>
#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "core/agents/handlerTable.h"
#include "core/agents/subscription.h"
#include "core/basics/statistics.h"

namespace replay {

struct Agent {
  std::string name;  ///< as statistics and the trace feed call it: "net"
  rynd::Subscription subscription;
  rynd::IdFilter filter;
  rynd::Handler defaultHandler = nullptr;
  std::vector<std::string_view> ids;
  std::unordered_map<std::string_view, rynd::Handler> handlers;
  void (*timerCallback)() = nullptr;
  int extraFd = -1;
  rynd::AgentStatistics *statistics = nullptr;

  /// Whether the fan-out gives it observations called `id`.
  bool Wants(const char *id) const {
    return filter.MayMatch(rynd::IdKey(id)) && rynd::SubscriptionMatches(id, subscription);
  }
};

/// Hand one raw record to the agent's handler, as the runner does. What the handler throws is ignored. False when no
/// observation can be made of the record.
bool Dispatch(const Agent &agent, std::string_view record);

/// Call the agent's timer callback, having emptied the descriptor that it waits for; nothing without one.
void Wake(const Agent &agent);
/// Whether something waits there.
bool IsWoken(const Agent &agent);

}  // namespace replay
