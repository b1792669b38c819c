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

/// What a run of observations that post showed.
struct Latency {
  std::vector<int64_t> samples;  ///< nanoseconds from an observation's submission to its event's arrival
  double cpuUs = 0;              ///< processor time of one, microseconds
};
/// `count` observations, one after the other, each `pauseUs` after all of the one before is over. A daemon passes a
/// thousand events a minute: `count` is at most 950.
Latency MeasureLatency(Subject subject, int count, int pauseUs, Setting *setting);

/// What many observations at once showed.
struct Rate {
  double perSecond = 0;
  double cpuUs = 0;  ///< processor time of one, microseconds
};
/// `count` observations that are handled and post nothing.
Rate MeasureMatched(Subject subject, int count, Setting *setting);
/// `count` observations that no agent wants.
Rate MeasureUnmatched(Subject subject, int count, Setting *setting);
/// Microseconds from the first of `count` (at most 950) observations, submitted as fast as they are taken, to the last
/// event.
double MeasureBurst(Subject subject, int count, Setting *setting);

/// A start and what it holds then.
struct Footprint {
  int64_t readyNs = 0;       ///< from the process's start to the record that says that it is ready
  int64_t firstEventNs = 0;  ///< to the event of an observation that is submitted then
  long residentKib = 0;
  long proportionalKib = 0;
};
Footprint MeasureStart(Subject subject, Setting *setting);
/// Context switches of all threads of a daemon that has nothing to do, in a second.
double MeasureIdle(Setting *setting);

/// Microseconds that the daemon's network agent takes for what `uplinks` lost uplinks of `ports` distributed ports each
/// bring about when they return.
double MeasureRestore(int uplinks, int ports, Setting *setting);
/// Tables that MeasureNames knows: paths' changes, pages' errors, ports' losses.
constexpr size_t kNamedTables = 3;
/// Microseconds of the daemon's processor time for a record, one of `count` after as many as enter `names` names into
/// the table.
double MeasureNames(size_t table, int names, int count, Setting *setting);
/// How often the daemon allocates for an observation that no agent wants, for one that is handled, and for an event.
std::vector<double> MeasureAllocations(Setting *setting);
/// Latencies, in nanoseconds, of `count` events with `clients` clients at the trace socket that read all they get.
std::vector<int64_t> MeasureTraced(int clients, int count, Setting *setting);

}  // namespace bench
