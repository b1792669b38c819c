#include "correlators/hardware/cxlDeviceType.h"

#include <algorithm>
#include <array>

namespace rynd {
namespace {

constexpr auto kNames = std::to_array<const char *>({
    "CXL 1.1 Device",
    "CXL 2.0 Device",
    "Logical Device",
    "Fabric Manager Owned Logical Device",
    "RCD Upstream Port",
    "RCH Downstream Port",
    "CXL Root Port",
    "CXL Upstream Switch Port",
    "CXL Downstream Switch Port",
    "Invalid or unknown Device Type",
});
static_assert(kNames.size() == 10);

}  // namespace

const char *CxlDeviceTypeName(uint32_t type) {
  return kNames[std::min<size_t>(type, kNames.size() - 1)];
}

}  // namespace rynd
