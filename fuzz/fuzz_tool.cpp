// What the operator's tool reads: JSON lines to submit, lines of both trace feeds, event records, rendered
// also with a format of the input's own. What it takes of a line, the daemon takes too.
#include <algorithm>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <string>

#include "fuzz/seedRecord.h"
#include "hosted/records/eventArguments.h"
#include "rynctl/sending/submitFile.h"
#include "rynctl/showing/eventPrinter.h"
#include "rynctl/showing/testEvent.h"
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
  const std::vector<std::byte> record =
      fuzz::Mutate(data, size, rynctl::EventBytes("amb.problem.storage.apd.timeout", {"naa.1", "140"}));
  std::string rendered;
  hosted::RenderEvent(text.c_str(), record.data(), record.size(), size > 4 ? data[3] : 2, &rendered);
  const rynctl::DecodedEvent event = rynctl::DecodeEvent(record.data(), record.size());
  const std::string line = rynctl::EventLine(event, {false, true}), json = rynctl::EventJson(event);
  const auto steers = [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; };
  if (std::ranges::any_of(line, steers) || std::ranges::any_of(json, steers)) abort();
  if (nlohmann::json::parse(json, nullptr, false).is_discarded()) abort();
  return 0;
}
