// The agents.
#pragma once

#include <span>

#include "core/agents/agents.h"

namespace rynd {

/// The agents in the order in which they start.
std::span<const AgentFunction> AgentTable();

}  // namespace rynd
