// What the daemon itself tells the recorder. Any thread.
#include <cstring>
#include <string>

#include "hosted/flight/recorder.h"
#include "platform/flight.h"

using hosted::recorder::IsOn;
using hosted::recorder::threadState;

void Hyk_RecordClock(HykClock clock, int64_t value) {
  if (threadState.isBusy && IsOn()) hosted::recorder::PutClock(static_cast<flight::ClockKind>(clock), value);
}

void Hyk_RecordTimer(const char *name) {
  if (IsOn()) hosted::recorder::PutTimer(name);
}

void Hyk_RecordTimerDone() {
  hosted::RecordDone();
}

void Hyk_RecordLookup(const char *path, int status, const char *text) {
  hosted::RecordHost(*text == '\0' ? flight::HostKind::kExists : flight::HostKind::kText, path, status, text);
}

void Hyk_RecordEvent(const std::byte *record, size_t length) {
  if (IsOn()) hosted::recorder::PutEvent(record, length);
}

void Hyk_RecordDrop(const char *eventNamespace, const char *shortId, const char *reason) {
  if (IsOn()) hosted::recorder::PutDrop({eventNamespace, shortId}, reason);
}
