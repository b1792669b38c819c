#include "core/basics/log.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/ryn.h"
#include "platform/system.h"

namespace rynd {
namespace {

constexpr int kFacilityDaemon = 24;
constexpr int kSeverityInformational = 6;
constexpr char kPanicPrefix[] = "Rynd - Panic: ";

[[gnu::format(printf, 1, 0)]] void LogV(const char *format, va_list arguments) {
  const HykSyslogParam parameters[] = {{"threadName", Hyk_GetThreadName()}, {nullptr, nullptr}};
  Hyk_SyslogExtended(kFacilityDaemon, kSeverityInformational, "", "", "", "amb", parameters, format, arguments);
}

}  // namespace

void Log(const char *format, ...) {
  va_list arguments;
  va_start(arguments, format);
  LogV(format, arguments);
  va_end(arguments);
}

void Panic(const char *format, ...) {
  va_list arguments;
  va_list again;
  va_start(arguments, format);
  va_copy(again, arguments);
  char line[1024];
  const auto prefix = static_cast<size_t>(snprintf(line, sizeof line, "%s", kPanicPrefix));
  vsnprintf(line + prefix, sizeof line - prefix, format, arguments);
  Hyk_WriteStandardError(line, strlen(line));
  Log("%s", kPanicPrefix);
  LogV(format, again);
  va_end(again);
  va_end(arguments);
  Hyk_FlushLog();
  abort();
}

void LogObservation(const Observation *observation) {
  const char *id = nullptr;
  char *message = nullptr;
  char *second = nullptr;
  uint64_t timestampUs = 0;
  Ryn_GetID(observation, &id);
  Ryn_GetTimestamp(observation, &timestampUs);
  const char *text = Ryn_ViewMsg(observation);
  if (text == nullptr && Ryn_GetMsg(observation, &message, &second) == 0) text = message;
  LogObservationText(id == nullptr ? "(null)" : id, text == nullptr ? "(null)" : text, timestampUs);
  free(message);
}

void LogObservationText(const char *id, const char *message, uint64_t timestampUs) {
  Log("%luus: [%s] %s\n", timestampUs, id, message);
}

}  // namespace rynd
