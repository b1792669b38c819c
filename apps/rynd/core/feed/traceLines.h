// What goes on the trace feed: "MICROSECONDS IN|OUT ID MESSAGE ARGS\n", and in JSON more than that. Any thread; free
// when nobody listens.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "core/feed/traceFeed.h"

namespace rynd {

/// Where a record came from.
struct RecordSource {
  const char *context = "";  ///< such as "kernel-00", or "user"
  int32_t pid = 0;           ///< of the program at the other end of a user connection; 0: none
  uint32_t uid = 0;          ///< likewise, with a pid alone
};

/// An event as it goes out: the time of its stamp in microseconds, its sequence number, its name and rendered message,
/// and `count` serialised arguments with their strings as offsets in `area`.
struct TracedEvent {
  uint64_t timeUs;
  uint64_t sequence;
  const char *name;
  const char *message;
  const std::byte *area;
  uint32_t count;
};

/// Put one raw record with sound lengths (`length` bytes) on the feed, and which agents are about to be given it.
void TraceObservation(const std::byte *record, size_t length, const RecordSource &source,
                      std::span<const char *const> agents);
/// Put an event on the feed, with the cause that the calling thread acts upon.
void TraceEvent(const TracedEvent &event);
/// Say that the event `sequence` was "sent" or "queued". JSON clients only.
void TraceDelivery(uint64_t sequence, const char *result);
/// Say that the calling thread's event `name` was dropped, and why. JSON clients only.
void TraceDrop(const char *name, const char *reason);

/// The line that tells a client how many lines it has lost: "MICROSECONDS LOST COUNT\n", or an object.
std::string TraceLostLine(uint64_t count, TraceFormat format);

}  // namespace rynd
