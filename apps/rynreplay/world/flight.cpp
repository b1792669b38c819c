// Stands in for the flight recorder: what the daemon records of its events is what a replay collects.
#include <cstring>
#include <string>

#include "platform/flight.h"
#include "post/eventRecord.h"
#include "replay/world/world.h"

void Hyk_RecordEvent(const std::byte *record, size_t length) {
  const char *name = reinterpret_cast<const char *>(record + rynd::kEventNameOffset);
  replay::TheWorld().posts.Add({name, "", {record, record + length}, {}});
}

void Hyk_RecordDrop(const char *eventNamespace, const char *shortId, const char *reason) {
  replay::TheWorld().posts.Add({std::string(eventNamespace) + shortId, reason, {}, {}});
}

// A replay is not recorded.
void Hyk_RecordClock(HykClock /*clock*/, int64_t /*value*/) {}
void Hyk_RecordTimer(const char * /*name*/) {}
void Hyk_RecordTimerDone() {}
void Hyk_RecordLookup(const char * /*path*/, int /*status*/, const char * /*text*/) {}
