// Stands in for the runner: agents that are called leave here what they ask of it. For one source of a program.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "core/agents/runner.h"

namespace rynd {

struct RecordedAgent {
  std::string name;
  std::vector<std::string> prefixes, exactIds;
  Handler defaultHandler = nullptr;
  HandlerTable table;
  void (*timerCallback)() = nullptr;
  int extraFd = -1;
};
std::vector<RecordedAgent> recordedAgents;

void RunCorrelatorFiltered(const char *name, const std::vector<const char *> &prefixes,
                           const std::vector<const char *> &exactIds, Handler defaultHandler, HandlerTable table) {
  recordedAgents.push_back(
      {name, {prefixes.begin(), prefixes.end()}, {exactIds.begin(), exactIds.end()}, defaultHandler, std::move(table)});
}
void RunCorrelatorWithTimer(const char *name, const char *prefix, Handler defaultHandler, HandlerTable table,
                            void (*timerCallback)(), const int *extraFds, int /*extraFdCount*/) {
  RunCorrelator(name, prefix, defaultHandler, std::move(table));
  recordedAgents.back().timerCallback = timerCallback;
  recordedAgents.back().extraFd = extraFds[0];
}

}  // namespace rynd
