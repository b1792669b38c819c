// The commands of rynctl that need the daemon's correlators.
#pragma once

#include "rynctl/commandLine.h"
#include "rynctl/console.h"

namespace replay {

/// Run a recording again and compare. Returns a ReplayStatus.
int ReplayCommand(const rynctl::Words &words, rynctl::Console &console);
/// Why an event came.
int WhyCommand(const rynctl::Words &words, rynctl::Console &console);
/// Why one did not.
int WhyNotCommand(const rynctl::Words &words, rynctl::Console &console);

}  // namespace replay
