// Stands in for core/feed/: nobody follows a replay's trace.
#include "base/immortal.h"
#include "core/feed/traceFeed.h"
#include "core/feed/traceLines.h"

namespace rynd {

TraceFeed &Feed() {
  static base::Immortal<TraceFeed> feed;
  return *feed;
}

void TraceEvent(const TracedEvent & /*event*/) {}
void TraceDelivery(uint64_t /*sequence*/, const char * /*result*/) {}
void TraceDrop(const char * /*name*/, const char * /*reason*/) {}

}  // namespace rynd
