// The commands about the management agent. Each parses the words behind its name, runs, and returns its exit status.
#pragma once

#include "rynctl/commandLine.h"
#include "rynctl/console.h"

namespace rynctl {

/// What is wrong now. Returns 0: nothing, 1: something, 2: the agent is not there.
int ProblemsCommand(const Words &words, Console &console);
/// The events that the agent has kept.
int HistoryCommand(const Words &words, Console &console);
/// One event.
int ShowCommand(const Words &words, Console &console);
/// End an event's problems by hand.
int AckCommand(const Words &words, Console &console);

}  // namespace rynctl
