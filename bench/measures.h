// What is measured: the same way for the daemon and for the bare program.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "bench/peers.h"

namespace bench {

/// The sockets that all runs share, and what a program does for one observation, as the daemon did it.
struct Setting {
  LogSocket log;
  EventSocket events;
  size_t eventLength = 0;
  std::vector<size_t> postingLogs;  ///< lengths of the log records of an observation that posts an event
  std::vector<size_t> silentLogs;   ///< of one that is handled and posts none
  long threads = 0;                 ///< of the daemon, in all
};

/// A program under test.
enum class Subject { kDaemon, kBare };

/// Find out by one run of the daemon what it does for one observation.
void Probe(Setting *setting);

/// Nanoseconds from an observation's submission to its event's arrival, `count` times, one after the other. A daemon
/// passes a thousand events a minute: `count` is at most 950.
std::vector<int64_t> MeasureLatency(Subject subject, int count, Setting *setting);
/// Observations per second that are handled and post nothing, over `count` of them.
double MeasureThroughput(Subject subject, int count, Setting *setting);
/// Nanoseconds from a process's start to the record that says that it is ready.
int64_t MeasureStart(Subject subject, Setting *setting);
/// Resident KiB when ready.
long MeasureMemory(Subject subject, Setting *setting);

}  // namespace bench
