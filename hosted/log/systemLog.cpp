// The system log: builds each record and delivers it. Any thread; no state but the socket's.
#include <syslog.h>

#include <array>
#include <cerrno>
#include <cstdio>

#include "hosted/log/log.h"
#include "hosted/log/logRecord.h"
#include "hosted/log/logSocket.h"
#include "platform/system.h"

namespace hosted {
namespace {

/// Deliver a record that was built; `told` is the number of dropped records that its tail tells of.
Delivery Deliver(LogRecord *record, uint64_t told) {
  SendResult result = SendToSystemLog(record->Text().data(), record->Text().size());
  // Better a part of a message than none.
  while (result == SendResult::kTooLong && record->Halve()) {
    result = SendToSystemLog(record->Text().data(), record->Text().size());
  }
  if (result == SendResult::kSent) return Delivery::kSystemLog;
  if (result == SendResult::kNoListener) {
    const std::string_view line = record->MakeLine(Hyk_GetThreadName());
    if (WriteToStandardError(line.data(), line.size())) return Delivery::kStandardError;
  }
  AddDropped(told + 1);
  return Delivery::kDropped;
}

[[gnu::format(printf, 2, 0)]] Delivery Emit(const LogHeader &header, const char *format, va_list arguments) {
  const int error = errno;  // a caller may log first and look at it afterwards
  const uint64_t dropped = TakeDropped();
  std::array<char, LogRecord::kTailRoom> tail;
  int tailSize = 0;
  if (dropped != 0) {
    tailSize =
        std::snprintf(tail.data(), tail.size(), " (%llu records dropped)", static_cast<unsigned long long>(dropped));
  }
  LogRecord record;
  record.Build(header, format, arguments, {tail.data(), static_cast<size_t>(tailSize)});
  const Delivery delivery = Deliver(&record, dropped);
  errno = error;
  return delivery;
}

[[gnu::format(printf, 1, 0)]] Delivery LogVA(const char *format, va_list arguments) {
  const HykSyslogParam params[] = {{"threadName", Hyk_GetThreadName()}, {"", ""}};
  return Emit({LOG_DAEMON | LOG_INFO, nullptr, nullptr, nullptr, "amb", params}, format, arguments);
}

}  // namespace

Delivery Log(const char *format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const Delivery delivery = LogVA(format, arguments);
  va_end(arguments);
  return delivery;
}

void LogAndTell(const char *format, ...) {
  va_list arguments, again;
  va_start(arguments, format);
  va_copy(again, arguments);
  if (LogVA(format, arguments) != Delivery::kStandardError) {
    LogRecord record;
    record.Build({LOG_DAEMON | LOG_INFO, nullptr, nullptr, nullptr, nullptr, nullptr}, format, again, {});
    const std::string_view line = record.MakeLine(Hyk_GetThreadName());
    WriteToStandardError(line.data(), line.size());
  }
  va_end(again);
  va_end(arguments);
}

}  // namespace hosted

void Hyk_SyslogExtended(int facility, int severity, const char *hostName, const char *appName, const char *messageId,
                        const char *sdId, const HykSyslogParam *params, const char *format, va_list arguments) {
  hosted::Emit({facility | severity, hostName, appName, messageId, sdId, params}, format, arguments);
}
