// The daemon from its first instruction to its last. Initial thread.
#pragma once

#include <span>

#include "core/agents/agents.h"

namespace rynd {

/// Run the daemon with the agents of `table`. Its exit status: 0 after a signal or the usage text.
int Run(int argc, char **argv, std::span<const AgentFunction> table);

}  // namespace rynd
