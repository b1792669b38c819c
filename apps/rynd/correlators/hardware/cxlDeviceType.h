// The names of CXL device types. Stateless: any thread.
#pragma once

#include <cstdint>

namespace rynd {

/// The name of CXL device type `type`, static text; any type out of the table has the name of an unknown one.
const char *CxlDeviceTypeName(uint32_t type);

}  // namespace rynd
