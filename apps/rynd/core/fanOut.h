// From the kernel's contexts to the agents' streams. The poll loop's thread only.
#pragma once

#include <cstddef>

#include "core/agents/stream.h"
#include "platform/ryn.h"

namespace rynd {

/// Allocate the read buffer of 8192 bytes that all contexts share. False without memory.
bool AllocateReadBuffer();

/// Read what waits on a context's descriptor, one record or some, and write each to every stream that wants it. 0, or
/// what the fan-out returned; 27 when the record fits into no buffer; -1 for a length outside of 1 to 131071 bytes; any
/// other positive status is the library's.
int ReadAndDispatch(int fd, RynLibHandle handle) EXCLUDES(streamLock);

/// Write each of the records that stand back to back in `bytes` to every stream that wants it. 0; -1 when a record's
/// lengths or id are not sound, which costs that record, and those behind it when its own length is unusable; or the
/// errno value of a failed write, which ends it. Ends early, with 0, when a stop is requested while an agent lags.
int FanOut(const std::byte *bytes, size_t length) REQUIRES(streamLock);

}  // namespace rynd
