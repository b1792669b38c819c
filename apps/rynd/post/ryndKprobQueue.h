// Delivery of event records to the management agent: at once, or through a queue that is retried every 60 seconds.
#pragma once

#include <cstddef>

namespace rynd {

/// Register the retry timer and read the host's UUID. Initial thread, once, before any agent starts.
void EventPostInit();

/// The 38 bytes of the host's UUID that go into every record; zeros before EventPostInit. Any thread.
const std::byte *SystemUuidText();

/// Send a record, or queue a copy of it behind those that wait. `record` must have `length` readable bytes behind its
/// own; `name` and `message` are for the log. Any thread.
void Deliver(const std::byte *record, size_t length, const char *name, const char *message);

/// Send what waits, in order, up to the first failure. Timer thread.
void QueueFlush();

}  // namespace rynd
