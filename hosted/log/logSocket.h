// The process's one connection to the system log. Any thread.
#pragma once

#include <cstddef>
#include <cstdint>

namespace hosted {

/// How sending one record ended.
enum class SendResult { kSent, kNoListener, kFull, kTooLong };

/// Send the `size` bytes at `record`, connecting again when the listener has gone. Waits for room for at most 100 ms,
/// and not at all for a second after a wait in vain, lest a listener that stalls holds up every record.
SendResult SendToSystemLog(const char *record, size_t size);

/// Write a line of `size` bytes to standard error, with the same limits on waiting. False when it was given up.
bool WriteToStandardError(const char *line, size_t size);

/// Records that were given up and not yet told of; `TakeDropped` hands the telling to the caller, who gives the count
/// back with `AddDropped` when that fails.
uint64_t TakeDropped();
void AddDropped(uint64_t count);

}  // namespace hosted
