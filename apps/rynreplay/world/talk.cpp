// Stands in for core/basics/log.cpp and the hosted platform's log.
#include "replay/world/talk.h"

#include <array>
#include <cstdarg>
#include <cstdio>
#include <string_view>

#include "core/basics/log.h"
#include "core/basics/reason.h"
#include "hosted/log/log.h"
#include "platform/system.h"
#include "replay/world/world.h"

namespace {

[[gnu::format(printf, 1, 0)]] std::string Text(const char *format, va_list arguments) {
  std::array<char, 1024> line;
  const int length = vsnprintf(line.data(), line.size(), format, arguments);
  std::string text(line.data(), length < 0 ? 0 : std::min(static_cast<size_t>(length), line.size() - 1));
  while (text.ends_with('\n') || text.ends_with(' ')) text.pop_back();
  return text;
}

/// Lines that tell of every event what the event itself tells.
bool IsOfDelivery(std::string_view format) {
  return format.starts_with("The event ([") || format.starts_with("Successfully sent event");
}

}  // namespace

namespace rynd {

void TellReason(const char *format, ...) {
  if (!replay::TheWorld().talk.IsHeard()) return;
  va_list arguments;
  va_start(arguments, format);
  replay::TheWorld().talk.Say(Text(format, arguments));
  va_end(arguments);
}

void Log(const char *format, ...) {
  if (!replay::TheWorld().talk.IsHeard() || IsOfDelivery(format)) return;
  va_list arguments;
  va_start(arguments, format);
  replay::TheWorld().talk.Say("log: " + Text(format, arguments));
  va_end(arguments);
}

void Panic(const char *format, ...) {
  va_list arguments;
  va_start(arguments, format);
  std::string text = Text(format, arguments);
  va_end(arguments);
  throw replay::Panicked{std::move(text)};
}

void LogObservation(const Observation * /*observation*/) {}
void LogObservationText(const char * /*id*/, const char * /*message*/, uint64_t /*timestampUs*/) {}

}  // namespace rynd

namespace hosted {

Delivery Log(const char *format, ...) {
  if (replay::TheWorld().talk.IsHeard()) {
    va_list arguments;
    va_start(arguments, format);
    replay::TheWorld().talk.Say("log: " + Text(format, arguments));
    va_end(arguments);
  }
  return Delivery::kSystemLog;
}

}  // namespace hosted

void Hyk_HoldLog(bool) {}
void Hyk_FlushLog() {}
