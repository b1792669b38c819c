// The rights of this process. Its one thread.
#pragma once

namespace rynlinuxd {

/// Give up every capability for good; root keeps that of reaching the daemon's socket and files. 0 or an errno value.
int DropCapabilities();

}  // namespace rynlinuxd
