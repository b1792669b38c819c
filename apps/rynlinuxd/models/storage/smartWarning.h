// What smartd says of a disk, from the environment in which it starts a program. Stateless: any thread.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "sink/report.h"

namespace rynlinuxd {

/// What `value` (of a variable's name; "" for none) says, as an observation without a key. Nothing when it is no
/// warning of smartd's. `identify` gives the name of the disk behind a device file, "" for none.
std::optional<Report> ReadSmartWarning(const std::function<std::string(const char *)> &value,
                                       const std::function<std::string(const std::string &)> &identify);

}  // namespace rynlinuxd
