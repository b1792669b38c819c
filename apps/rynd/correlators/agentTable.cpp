#include <array>

#include "correlators/correlators.h"

namespace rynd {

std::span<const AgentFunction> AgentTable() {
  static constexpr auto kAgents = std::to_array<AgentFunction>({
      RyndApdCorrelator,
      RyndHwCorrelator,
      RyndCpuCorrelator,
      RyndMemtierCorrelator,
      RyndPageRetireCorrelator,
      RyndClockCorrelator,
      RyndSchedCorrelator,
      RyndFabraCorrelator,
      RyndHcmCorrelator,
  });
  return kAgents;
}

}  // namespace rynd
