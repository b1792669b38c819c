#include <array>

#include "correlators/correlators.h"

namespace rynd {

std::span<const AgentFunction> AgentTable() {
  static constexpr auto kAgents = std::to_array<AgentFunction>({
      RyndNetCorrelator,
      RyndScsiCorrelator,
      RyndPsaStorCorrelator,
      RyndApdCorrelator,
      RyndIscsiCorrelator,
      RyndHyfsCorrelator,
      RyndUserLevelCorrelator,
      RyndUserWorldCorrelator,
      RyndSwapCorrelator,
      RyndVmCorrelator,
      RyndGenericCorrelator,
      RyndMigrateCorrelator,
      RyndVelfsCorrelator,
      RyndVfatCorrelator,
      RyndVscsiCorrelator,
      RyndFabraCorrelator,
      RyndKvolCorrelator,
      RyndBootDeviceCorrelator,
  });
  return kAgents;
}

}  // namespace rynd
