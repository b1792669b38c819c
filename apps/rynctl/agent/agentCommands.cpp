// The table of the commands about the management agent.
#include "rynctl/agent/agentCommands.h"

#include "rynctl/commands/commands.h"

namespace rynctl {
namespace {

constexpr Command kAgentCommands[] = {
    {"problems", "What is wrong now, the worst first", ProblemsCommand},
    {"history", "The events that the management agent has kept", HistoryCommand},
    {"show", "One of them: what it says, means, and what became of it", ShowCommand},
    {"ack", "End a problem by hand", AckCommand},
};

}  // namespace

std::span<const Command> AgentCommands() {
  return kAgentCommands;
}

}  // namespace rynctl
