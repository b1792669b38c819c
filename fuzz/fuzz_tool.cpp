// What the operator's tool reads: JSON lines to submit, lines of both trace feeds, event records. What it takes of a
// line, the daemon takes too.
#include <cstdlib>
#include <string>

#include "hosted/records/rawRecord.h"
#include "rynctl/sending/submitFile.h"
#include "rynctl/showing/eventPrinter.h"
#include "rynctl/showing/traceLine.h"
#include "rynctl/showing/traceRecord.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const std::string text(reinterpret_cast<const char *>(data), size);
  std::string error;
  rynctl::ParseSubmissionLine(text, {}, &error);
  rynctl::ParseTraceLine(text);
  if (const auto record = rynctl::ParseTraceRecord(text); record) {
    if (rynctl::TraceText(*record, {true, true}).find('\n') != std::string::npos) abort();
    if (rynctl::TraceJson(*record).find('\n') != std::string::npos) abort();
  }
  const rynctl::DecodedEvent event = rynctl::DecodeEvent(reinterpret_cast<const std::byte *>(data), size);
  const std::string line = rynctl::EventLine(event, {true, true}), json = rynctl::EventJson(event);
  if (line.find('\n') != std::string::npos || json.find('\n') != std::string::npos) abort();
  return 0;
}
