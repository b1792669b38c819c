#include "core/feed/traceJson.h"

#include <cstdlib>
#include <cstring>

#include "core/basics/cause.h"
#include "core/basics/clock.h"
#include "core/basics/jsonText.h"
#include "core/basics/statistics.h"
#include "platform/messageFormat.h"

namespace rynd {
namespace {

/// One line that `fill` completes.
template <typename Fill>
std::string Line(uint64_t timeUs, const char *direction, const Fill &fill) {
  std::string line;
  JsonScope object(&line, '{');
  object.Number("us", timeUs);
  object.Text("dir", direction);
  fill(object);
  object.Close();
  return line + '\n';
}

/// An integer argument of `width` bytes: {"i32":-5}.
void AppendInteger(std::string *out, bool isSigned, uint32_t width, uint64_t bits) {
  *out += isSigned ? "{\"i" : "{\"u";
  *out += std::to_string(width * 8) + "\":";
  *out += (isSigned ? std::to_string(static_cast<int64_t>(bits)) : std::to_string(bits)) + '}';
}

/// A text argument, null for a null string.
void AppendText(std::string *out, const char *text) {
  if (text == nullptr) {
    *out += "{\"null\":null}";
    return;
  }
  *out += "{\"s\":";
  AppendJsonText(out, text);
  *out += '}';
}

void AppendArguments(JsonScope *object, const Observation *observation) {
  JsonScope list(object->Key("args").Out(), '[');
  RynArg argument{};
  // One that cannot be read has been logged with the text line, or makes the record no observation.
  for (uint32_t i = 0; observation != nullptr && Ryn_GetArg(observation, i, &argument) == 0; ++i) {
    std::string *const out = list.Next().Out();
    if (argument.kind == RynArg::Kind::kSigned || argument.kind == RynArg::Kind::kUnsigned) {
      AppendInteger(out, argument.kind == RynArg::Kind::kSigned, argument.width, argument.bits);
    } else {
      AppendText(out, argument.kind == RynArg::Kind::kString ? argument.text : nullptr);
    }
  }
  list.Close();
}

void AppendArguments(JsonScope *object, const TracedEvent &event) {
  JsonScope list(object->Key("args").Out(), '[');
  for (uint32_t i = 0; i < event.count; ++i) {
    std::string *const out = list.Next().Out();
    const MsgFmtArg argument = MsgFmt_GetArg(event.area, i);
    if (argument.kind == MsgFmtKind::kSigned || argument.kind == MsgFmtKind::kUnsigned) {
      AppendInteger(out, argument.kind == MsgFmtKind::kSigned, argument.size, argument.value);
    } else {
      const char *text = reinterpret_cast<const char *>(event.area + argument.value);
      AppendText(out, argument.kind == MsgFmtKind::kString ? text : nullptr);
    }
  }
  list.Close();
}

/// What the calling thread acts upon.
void AppendCause(JsonScope *object) {
  const Cause &cause = currentCause;
  if (cause.observationId == nullptr && cause.timer == nullptr) return;
  JsonScope because(object->Key("because").Out(), '{');
  if (cause.timer != nullptr) {
    because.Text("timer", cause.timer);
  } else {
    because.Text("id", cause.observationId);
    because.Number("us", cause.observationUs);
  }
  because.Close();
}

}  // namespace

std::unique_ptr<Observation, FreeObservation> CopyToObservation(const std::byte *record, size_t length) {
  auto copy = std::make_unique<std::byte[]>(length);
  std::memcpy(copy.get(), record, length);
  Observation *observation = nullptr;
  if (Ryn_MakeRyn(copy.get(), length, &observation) == 0) copy.release();
  return std::unique_ptr<Observation, FreeObservation>(observation);
}

std::string ObservationMessage(const Observation *observation) {
  char *message = nullptr;
  char *second = nullptr;
  Ryn_GetMsg(observation, &message, &second);
  const std::unique_ptr<char, decltype(&free)> owner(message, &free);
  return message == nullptr ? "" : message;
}

std::string ObservationJson(const char *id, uint64_t timeUs, const Observation *observation, const RecordSource &source,
                            std::span<const char *const> agents) {
  return Line(timeUs, "in", [&](JsonScope &object) {
    object.Text("context", source.context);
    if (source.pid != 0) {
      *object.Key("pid").Out() += std::to_string(source.pid);
      object.Number("uid", source.uid);
    }
    object.Text("id", id);
    object.Text("text", observation == nullptr ? "" : ObservationMessage(observation));
    AppendArguments(&object, observation);
    JsonScope list(object.Key("agents").Out(), '[');
    for (const char *agent : agents) AppendJsonText(list.Next().Out(), agent);
    list.Close();
  });
}

std::string EventJson(const TracedEvent &event) {
  return Line(event.timeUs, "out", [&](JsonScope &object) {
    object.Number("seq", event.sequence);
    object.Text("agent", CurrentAgentStatistics()->name);
    object.Text("id", event.name);
    object.Text("text", event.message);
    AppendArguments(&object, event);
    AppendCause(&object);
  });
}

std::string DeliveryJson(uint64_t sequence, const char *result) {
  return Line(WallClockUs(), "delivery", [&](JsonScope &object) {
    object.Number("seq", sequence);
    object.Text("result", result);
  });
}

std::string DropJson(const char *name, const char *reason) {
  return Line(WallClockUs(), "drop", [&](JsonScope &object) {
    object.Text("agent", CurrentAgentStatistics()->name);
    object.Text("id", name);
    object.Text("reason", reason);
  });
}

std::string LostJson(uint64_t count) {
  return Line(WallClockUs(), "lost", [&](JsonScope &object) { object.Number("count", count); });
}

}  // namespace rynd
