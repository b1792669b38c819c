#include "core/feed/traceLines.h"

#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <string_view>
#include <utility>

#include "core/basics/clock.h"
#include "core/basics/log.h"
#include "core/basics/rawRecord.h"
#include "core/feed/traceFeed.h"
#include "core/feed/traceJson.h"
#include "platform/messageFormat.h"
#include "platform/ryn.h"

namespace rynd {
namespace {

/// Append `text` without the line ends that would break the framing.
void AppendOneLine(std::string *line, std::string_view text) {
  for (const char c : text) *line += c == '\n' || c == '\r' ? ' ' : c;
}

/// Append `text` double-quoted with C escapes; null is the bare word.
void AppendQuoted(std::string *line, const char *text) {
  if (text == nullptr) {
    *line += "null";
    return;
  }
  constexpr std::string_view kPlain = "\"\\\n\t\r\a\b\f\v";
  constexpr std::string_view kEscaped = "\"\\ntrabfv";
  *line += '"';
  for (const char c : std::string_view(text)) {
    const size_t known = kPlain.find(c);
    const auto byte = static_cast<unsigned char>(c);
    if (known != std::string_view::npos) {
      *line += '\\';
      *line += kEscaped[known];
    } else if (byte < 0x20 || byte == 0x7f) {
      char octal[5];
      snprintf(octal, sizeof octal, "\\%03o", byte);
      *line += octal;
    } else {
      *line += c;
    }
  }
  *line += '"';
}

std::string LineStart(uint64_t timeUs, const char *direction, const char *id, std::string_view message) {
  std::string line = std::to_string(timeUs);
  line += ' ';
  line += direction;
  line += ' ';
  AppendOneLine(&line, id);
  line += ' ';
  AppendOneLine(&line, message);
  return line;
}

void AppendInteger(std::string *line, bool isSigned, uint64_t bits) {
  *line += isSigned ? std::to_string(static_cast<int64_t>(bits)) : std::to_string(bits);
}

/// Append every argument of an observation; one that can't be shown is logged and left out.
void AppendArguments(std::string *line, const Observation *observation) {
  RynArg argument{};
  for (uint32_t i = 0;; ++i) {
    const int status = Ryn_GetArg(observation, i, &argument);
    if (status == kRynNoArgument) return;
    if (i > 0) *line += ", ";
    if (status != 0) {
      const char *id = nullptr;
      Ryn_GetID(observation, &id);
      Log("Invalid argument in ryn with ID %s", id);
    } else if (argument.kind == RynArg::Kind::kSigned || argument.kind == RynArg::Kind::kUnsigned) {
      AppendInteger(line, argument.kind == RynArg::Kind::kSigned, argument.bits);
    } else {
      AppendQuoted(line, argument.kind == RynArg::Kind::kString ? argument.text : nullptr);
    }
  }
}

/// The line of a raw record, or of one that no observation can be made of (null).
std::string ObservationLine(const std::byte *record, uint64_t timeUs, const Observation *observation) {
  if (observation == nullptr) return LineStart(timeUs, "IN", RecordId(record), "") + " ()\n";
  std::string line = LineStart(timeUs, "IN", RecordId(record), ObservationMessage(observation));
  line += " (";
  AppendArguments(&line, observation);
  return line + ")\n";
}

/// The line of an event.
std::string EventLine(const TracedEvent &event) {
  std::string line = LineStart(event.timeUs, "OUT", event.name, event.message);
  line += " (";
  for (uint32_t i = 0; i < event.count; ++i) {
    if (i > 0) line += ", ";
    const MsgFmtArg argument = MsgFmt_GetArg(event.area, i);
    if (argument.kind == MsgFmtKind::kSigned || argument.kind == MsgFmtKind::kUnsigned) {
      AppendInteger(&line, argument.kind == MsgFmtKind::kSigned, argument.value);
    } else {
      const char *text = reinterpret_cast<const char *>(event.area + argument.value);
      AppendQuoted(&line, argument.kind == MsgFmtKind::kString ? text : nullptr);
    }
  }
  return line + ")\n";
}

/// Queue what `makeText` and `makeJson` give, if anybody wants it. Without memory the clients miss it, and nothing else
/// does.
template <typename MakeText, typename MakeJson>
void Publish(const MakeText &makeText, const MakeJson &makeJson) try {
  TraceLine line;
  if (Feed().Wants(TraceFormat::kText)) line[static_cast<size_t>(TraceFormat::kText)] = makeText();
  if (Feed().Wants(TraceFormat::kJson)) line[static_cast<size_t>(TraceFormat::kJson)] = makeJson();
  if (!line[0].empty() || !line[1].empty()) Feed().Publish(std::move(line));
} catch (const std::bad_alloc &) {
  Log("Out of memory for a line of the trace feed\n");
}

std::string NoText() {
  return "";
}

}  // namespace

void TraceObservation(const std::byte *record, size_t length, const RecordSource &source,
                      std::span<const char *const> agents) {
  if (!Feed().HasClients()) return;
  uint64_t timeUs = 0;
  std::memcpy(&timeUs, record + kRecordTimeOffset, sizeof timeUs);
  try {
    const auto observation = CopyToObservation(record, length);
    if (observation == nullptr) Log("Invalid argument in ryn with ID %s", RecordId(record));
    Publish([&] { return ObservationLine(record, timeUs, observation.get()); },
            [&] { return ObservationJson(RecordId(record), timeUs, observation.get(), source, agents); });
  } catch (const std::bad_alloc &) {
    Log("Out of memory for a line of the trace feed\n");
  }
}

void TraceEvent(const TracedEvent &event) {
  Publish([&] { return EventLine(event); }, [&] { return EventJson(event); });
}

void TraceDelivery(uint64_t sequence, const char *result) {
  Publish(NoText, [&] { return DeliveryJson(sequence, result); });
}

void TraceDrop(const char *name, const char *reason) {
  Publish(NoText, [&] { return DropJson(name, reason); });
}

std::string TraceLostLine(uint64_t count, TraceFormat format) {
  if (format == TraceFormat::kJson) return LostJson(count);
  return std::to_string(WallClockUs()) + " LOST " + std::to_string(count) + '\n';
}

}  // namespace rynd
