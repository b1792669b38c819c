// The network correlator's handlers of uplink transitions, and what wakes them when one has settled.
#pragma once

#include "core/agents/handlerTable.h"

namespace rynd {

/// Add the seven handlers to `table`. Agent's thread, as are the handlers.
void AddUplinkHandlers(HandlerTable *table);
/// Register the settling timer, on the first call. False when the daemon holds no further timers. Agent's thread.
bool RegisterUplinkTimer();
/// Make the pipe through which the settling timer wakes the correlator; Panic when there can be none. Its read end,
/// which lives as long as the process. Before any handler runs.
int OpenUplinkWakePipe();
/// Decide what has settled. Agent's thread.
void OnUplinkTimeout();

}  // namespace rynd
