// One entry's bytes taken apart. Stateless: any thread.
#pragma once

#include <string_view>

#include "flight/entry.h"

namespace flight {

/// Whether the header could be that of an entry of a file; nothing is known of its checksum.
bool IsPlausible(const EntryHeader &header);

/// The payload of an entry that is not kName into `entry->what`; the times and the thread are not touched. False when
/// its parts do not fill it exactly.
bool ParsePayload(Kind kind, Bytes payload, Entry *entry);

}  // namespace flight
