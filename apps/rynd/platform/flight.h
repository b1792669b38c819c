// The flight recorder: what the daemon tells the platform besides what it asks of it, so that a recording holds all
// that decided. Declarations only; a platform library provides them. Every operation but the first two may be called
// from any thread, never blocks on a disk, and does nothing while nothing is recorded.
#pragma once

#include <cstddef>
#include <cstdint>

/// Start recording when the host's settings say so; what prevents it is logged. Initial thread, before any other.
void Hyk_FlightStart(const char *version);
/// End the recording; `status` is what the daemon returns. Initial thread.
void Hyk_FlightStop(int status);

/// Which clock was read.
enum class HykClock : uint32_t { kWallS = 1, kMonotonicNs, kWindowS };
/// The calling thread has read a clock. Recorded only while it handles an observation or runs a timer's callback.
void Hyk_RecordClock(HykClock clock, int64_t value);
/// The calling thread begins with the callback of the timer called `name`, and has ended it.
void Hyk_RecordTimer(const char *name);
void Hyk_RecordTimerDone();
/// The calling thread has looked up `path` of the host's file system: 0 or an errno value, and the text that it found.
void Hyk_RecordLookup(const char *path, int status, const char *text);
/// The calling thread has posted an event: its whole, stamped record.
void Hyk_RecordEvent(const std::byte *record, size_t length);
/// The calling thread has given up the event called `eventNamespace` + `shortId`.
void Hyk_RecordDrop(const char *eventNamespace, const char *shortId, const char *reason);
