// The daemon's own log: one printf-style line at a time to the system log, with the calling thread's name. Any thread.
#pragma once

#include <cstdint>

struct Observation;

namespace rynd {

/// Emit one line. There are no levels. The format brings its own line end.
[[gnu::format(printf, 1, 2)]] void Log(const char *format, ...);

/// Report a condition that leaves the daemon in an undefined state, on standard error and in the log, and abort.
[[noreturn, gnu::format(printf, 1, 2)]] void Panic(const char *format, ...);

/// Log "%luus: [%s] %s\n": the time, id and message of `observation`.
void LogObservation(const Observation *observation);
/// The same line from its three parts; the time in microseconds since the epoch.
void LogObservationText(const char *id, const char *message, uint64_t timestampUs);

}  // namespace rynd
