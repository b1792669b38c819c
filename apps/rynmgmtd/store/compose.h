// What a received record says, as the store keeps it. Stateless: any thread.
#pragma once

#include "mgmtd/problems/problemTable.h"
#include "mgmtd/store/storedEvent.h"
#include "mgmtd/store/writer.h"

namespace mgmtd {

/// A record, decoded as far as it can be. `happening.entry` is null when it says nothing of problems: it is damaged, or
/// its name is unknown. Ids are 0.
struct Composed {
  StoredEvent event;
  Happening happening;
};

Composed Compose(ReceivedRecord record);

/// What an event of the store says of problems; `entry` is null as above.
Happening HappeningOf(const StoredEvent &event);

}  // namespace mgmtd
