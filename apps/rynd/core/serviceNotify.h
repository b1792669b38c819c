// Telling the service manager how the daemon does, where one asks for it ($NOTIFY_SOCKET). Initial thread.
#pragma once

namespace rynd {

/// Send `state`, such as "READY=1", to the service manager. Without one it does nothing; a failure is logged. Never
/// blocks.
void NotifyService(const char *state);

}  // namespace rynd
