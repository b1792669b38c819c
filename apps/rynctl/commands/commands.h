// The commands of rynctl. Each parses the words behind its name, runs, and returns its exit status.
#pragma once

#include <span>

#include "rynctl/commandLine.h"
#include "rynctl/console.h"

namespace rynctl {

/// One command, and what the list of all says of it.
struct Command {
  const char *name;
  const char *summary;
  int (*run)(const Words &words, Console &console);
};

/// Send observations to the daemon.
int SubmitCommand(const Words &words, Console &console);
/// Be the management agent: receive events and print them, until a signal.
int ListenCommand(const Words &words, Console &console);
/// Follow what goes into the daemon and comes out of it, until a signal or the daemon's end.
int TraceCommand(const Words &words, Console &console);
/// Explain an event or an observation.
int ExplainCommand(const Words &words, Console &console);
/// List the events that the daemon can post, or the observations that it handles.
int CatalogCommand(const Words &words, Console &console);
/// Show what the daemon has counted.
int StatsCommand(const Words &words, Console &console);
/// Is the daemon working? Returns 0 ok, 1 warn, 2 fail.
int CheckCommand(const Words &words, Console &console);

// These are done by the program rynreplay, which takes the place of this one. They return kUsage when it can't.
/// Run a flight recording again, and compare.
int ReplayCommand(const Words &words, Console &console);
/// Why an event came.
int WhyCommand(const Words &words, Console &console);
/// Why one did not.
int WhyNotCommand(const Words &words, Console &console);

/// What the management agent knows: problems, history, show, ack. None in a build without its store.
std::span<const Command> AgentCommands();

}  // namespace rynctl
