// The connection to the management agent: one for each event record.
#pragma once

#include <cstddef>

namespace rynd {

/// Connect to the management agent, send one record of `length` bytes and close. 0, or -1 with the reason logged. The
/// record must have `length` readable bytes behind it. Waits for an agent that is slow, as long as it takes; an agent
/// thread may be cancelled meanwhile.
int SendToMgmtd(const std::byte *record, size_t length);

}  // namespace rynd
