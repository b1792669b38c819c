// The lines of the trace feed: "MICROSECONDS IN|OUT ID MESSAGE ARGS\n". Any thread; free when nobody listens.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace rynd {

/// Put one raw record with sound lengths (`length` bytes) on the feed as an IN line.
void TraceObservation(const std::byte *record, size_t length);

/// Put an event on the feed as an OUT line: its time in microseconds, name, rendered message, and its serialised
/// arguments with their strings as offsets in `area`.
void TraceEvent(uint64_t timeUs, const char *name, const char *message, const std::byte *area, uint32_t count);

/// The line that tells a client how many lines it has lost: "MICROSECONDS LOST COUNT\n".
std::string TraceLostLine(uint64_t count);

}  // namespace rynd
