// What the contexts count for the daemon's statistics. The poll loop's thread writes; any thread reads, by
// platform/statistics.h.
#pragma once

#include <cstddef>
#include <cstdint>

namespace hosted {

/// A good record of `bytes` bytes of context `id` (0 to 29) was handed out.
void CountRecord(uint32_t id, size_t bytes);
/// A bad record of context `id` was discarded; `reason` is static text. The index that its reason is counted under.
size_t CountDiscard(uint32_t id, const char *reason);
/// Context `id` was reset.
void CountReset(uint32_t id, size_t records, size_t bytes);
/// `now` user connections are open; one more was accepted or refused.
void CountConnections(size_t now, bool accepted, bool refused);

}  // namespace hosted
