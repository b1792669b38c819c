#include "core/traceLines.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string_view>

#include "core/clock.h"
#include "core/log.h"
#include "core/rawRecord.h"
#include "core/traceFeed.h"
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

struct FreeObservation {
  void operator()(Observation *observation) const { Ryn_Free(observation); }
};

/// An Observation made from a copy of `record`, or null.
std::unique_ptr<Observation, FreeObservation> CopyToObservation(const std::byte *record, size_t length) {
  auto copy = std::make_unique<std::byte[]>(length);
  std::memcpy(copy.get(), record, length);
  Observation *observation = nullptr;
  if (Ryn_MakeRyn(copy.get(), length, &observation) == 0) copy.release();
  return std::unique_ptr<Observation, FreeObservation>(observation);
}

/// The line of a raw record.
std::string ObservationLine(const std::byte *record, size_t length) {
  uint64_t timeUs = 0;
  std::memcpy(&timeUs, record + kRecordTimeOffset, sizeof timeUs);
  const auto observation = CopyToObservation(record, length);
  if (observation == nullptr) {
    Log("Invalid argument in ryn with ID %s", RecordId(record));
    return LineStart(timeUs, "IN", RecordId(record), "") + " ()\n";
  }
  char *message = nullptr;
  char *second = nullptr;
  Ryn_GetMsg(observation.get(), &message, &second);
  const std::unique_ptr<char, decltype(&free)> owner(message, &free);
  std::string line = LineStart(timeUs, "IN", RecordId(record), message == nullptr ? "" : message);
  line += " (";
  AppendArguments(&line, observation.get());
  return line + ")\n";
}

/// The line of an event.
std::string EventLine(uint64_t timeUs, const char *name, const char *message, const std::byte *area, uint32_t count) {
  std::string line = LineStart(timeUs, "OUT", name, message);
  line += " (";
  for (uint32_t i = 0; i < count; ++i) {
    if (i > 0) line += ", ";
    const MsgFmtArg argument = MsgFmt_GetArg(area, i);
    if (argument.kind == MsgFmtKind::kSigned || argument.kind == MsgFmtKind::kUnsigned) {
      AppendInteger(&line, argument.kind == MsgFmtKind::kSigned, argument.value);
    } else {
      const char *text = reinterpret_cast<const char *>(area + argument.value);
      AppendQuoted(&line, argument.kind == MsgFmtKind::kString ? text : nullptr);
    }
  }
  return line + ")\n";
}

/// Make a line and queue it, if anybody listens. Without memory the clients miss it, and nothing else does.
template <typename MakeLine>
void Publish(const MakeLine &makeLine) {
  if (!Feed().HasClients()) return;
  try {
    Feed().Publish(makeLine());
  } catch (const std::bad_alloc &) {
    Log("Out of memory for a line of the trace feed\n");
  }
}

}  // namespace

void TraceObservation(const std::byte *record, size_t length) {
  Publish([&] { return ObservationLine(record, length); });
}

void TraceEvent(uint64_t timeUs, const char *name, const char *message, const std::byte *area, uint32_t count) {
  Publish([&] { return EventLine(timeUs, name, message, area, count); });
}

std::string TraceLostLine(uint64_t count) {
  return std::to_string(WallClockUs()) + " LOST " + std::to_string(count) + '\n';
}

}  // namespace rynd
