#include <array>

#include "correlators/correlators.h"

namespace rynd {

std::span<const AgentFunction> AgentTable() {
  static constexpr auto kAgents = std::to_array<AgentFunction>({
      RyndNetCorrelator,
      RyndApdCorrelator,
      RyndUserLevelCorrelator,
      RyndUserWorldCorrelator,
      RyndVmCorrelator,
      RyndGenericCorrelator,
      RyndMigrateCorrelator,
      RyndFabraCorrelator,
  });
  return kAgents;
}

}  // namespace rynd
