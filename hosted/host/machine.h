// What the machine itself says of its processors and its identity. Any thread.
#pragma once

#include <cstdint>
#include <string>

namespace hosted {

struct CpuCounts {
  int64_t cores = 0, pcpus = 0;
};

/// The machine's cores and PCPUs (hardware threads), both at least 1; one PCPU a core where it does not tell.
CpuCounts MachineCpuCounts();

/// The vendor that the processors name, such as "GenuineIntel"; empty where they name none.
std::string MachineCpuVendor();

/// The machine's identity as the text of a UUID, the same at every call; made of the host's name where it has none.
std::string MachineUuid();

}  // namespace hosted
