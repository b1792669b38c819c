// Called by smartd when a disk is about to fail: tell the daemon, and end.
#pragma once

#include <string>

namespace rynlinuxd {

/// Submit what the environment says, or print it when `isDry`. 0; or an errno value, and in `error` a text that says
/// what could not be done.
int TellSmartWarning(bool isDry, std::string *error);

}  // namespace rynlinuxd
