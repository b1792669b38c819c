#include <array>

#include "correlators/agentTable.h"
#include "correlators/hardware/hardwareCorrelators.h"
#include "correlators/network/networkCorrelators.h"
#include "correlators/storage/storageCorrelators.h"
#include "correlators/user/userCorrelators.h"

namespace rynd {

std::span<const AgentFunction> AgentTable() {
  static constexpr auto kAgents = std::to_array<AgentFunction>({
      RyndNetCorrelator,        RyndScsiCorrelator,      RyndPsaStorCorrelator,   RyndApdCorrelator,
      RyndIscsiCorrelator,      RyndHyfsCorrelator,      RyndUserLevelCorrelator, RyndHwCorrelator,
      RyndCpuCorrelator,        RyndUserWorldCorrelator, RyndSwapCorrelator,      RyndMemtierCorrelator,
      RyndVmCorrelator,         RyndGenericCorrelator,   RyndMigrateCorrelator,   RyndPageRetireCorrelator,
      RyndVelfsCorrelator,      RyndVfatCorrelator,      RyndClockCorrelator,     RyndSchedCorrelator,
      RyndVscsiCorrelator,      RyndFabraCorrelator,     RyndHcmCorrelator,       RyndKvolCorrelator,
      RyndBootDeviceCorrelator,
  });
  return kAgents;
}

}  // namespace rynd
