// The agents' threads: starting them behind a guard, and stopping them all. Initial thread, but for AgentReady.
#pragma once

#include <cstddef>
#include <span>

namespace rynd {

/// The life of one agent. It normally never returns.
using AgentFunction = void (*)();

/// Load what the C library ends threads with. It would load it at the first cancellation, and end the process where it
/// has no memory for that. False without memory.
bool PrepareToStopAgents();

/// Start one agent's thread. A failure is only logged.
void StartAgent(AgentFunction agentFunction);

/// Start the agents of `table` in order and wait until each of them has registered its stream or has ended. 0.
int StartAgents(std::span<const AgentFunction> table);

/// Cancel and join every agent, last started first. Takes at most about 1.5 seconds: an agent that does not end by then
/// is logged and left behind.
void StopAgents();

/// Tell StartAgents that the calling agent has registered its stream. Agent's thread.
void AgentReady();

}  // namespace rynd
