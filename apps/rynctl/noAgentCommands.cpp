// For a build without the management agent's store: there is nothing to show of it.
#include "rynctl/commands/commands.h"

namespace rynctl {

std::span<const Command> AgentCommands() {
  return {};
}

}  // namespace rynctl
