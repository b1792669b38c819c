// The system log: builds each record and delivers it. Any thread; no state but the sockets' and three counters.
#include <sys/uio.h>
#include <syslog.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <new>

#include "base/immortal.h"
#include "hosted/log/journal.h"
#include "hosted/log/log.h"
#include "hosted/log/logRecord.h"
#include "hosted/log/logSocket.h"
#include "hosted/paths.h"
#include "platform/statistics.h"
#include "platform/system.h"

namespace hosted {
namespace {

/// Records that were taken, that were given up, and those of them that no record has told of yet.
std::atomic<uint64_t> logged{0}, dropped{0}, untold{0};

LogSocket &Syslog() {
  static base::Immortal<LogSocket> socket(kLogSocket);
  return *socket;
}

SendResult SendToSyslog(std::string_view record) {
  iovec part{const_cast<char *>(record.data()), record.size()};  // only read
  msghdr message{};
  message.msg_iov = &part;
  message.msg_iovlen = 1;
  return Syslog().Send(message);
}

/// Send the record to the journal, else to the log socket. What is too long for either loses its end.
SendResult Send(const LogHeader &header, LogRecord *record) {
  while (true) {
    SendResult result = SendToJournal(header, record->Message(), false);
    if (result == SendResult::kNoListener) result = SendToSyslog(record->Text());
    if (result == SendResult::kNoListener) result = SendToJournal(header, record->Message(), true);
    // Better a part of a message than none.
    if (result != SendResult::kTooLong || !record->Halve()) return result;
  }
}

Delivery Deliver(const LogHeader &header, LogRecord *record) {
  const SendResult result = Send(header, record);
  if (result == SendResult::kSent) return Delivery::kSystemLog;
  if (result == SendResult::kNoListener) {
    const std::string_view line = record->MakeLine(Hyk_GetThreadName());
    if (Hyk_WriteStandardError(line.data(), line.size())) return Delivery::kStandardError;
  }
  return Delivery::kDropped;
}

[[gnu::format(printf, 2, 0)]] Delivery Emit(const LogHeader &header, const char *format, va_list arguments) {
  const int error = errno;  // a caller may log first and look at it afterwards
  const uint64_t told = untold.load(std::memory_order_relaxed) == 0 ? 0 : untold.exchange(0, std::memory_order_relaxed);
  std::array<char, LogRecord::kTailRoom> tail;
  int tailSize = 0;
  if (told != 0) {
    tailSize =
        std::snprintf(tail.data(), tail.size(), " (%llu records dropped)", static_cast<unsigned long long>(told));
  }
  Delivery delivery = Delivery::kDropped;
  try {
    LogRecord record;
    record.Build(header, format, arguments, {tail.data(), static_cast<size_t>(tailSize)});
    delivery = Deliver(header, &record);
  } catch (const std::bad_alloc &) {  // the next record tells that one is missing
  }
  if (delivery == Delivery::kDropped) {
    dropped.fetch_add(1, std::memory_order_relaxed);
    untold.fetch_add(told + 1, std::memory_order_relaxed);
  } else {
    logged.fetch_add(1, std::memory_order_relaxed);
  }
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
    Hyk_WriteStandardError(line.data(), line.size());
  }
  va_end(again);
  va_end(arguments);
}

}  // namespace hosted

void Hyk_SyslogExtended(int facility, int severity, const char *hostName, const char *appName, const char *messageId,
                        const char *sdId, const HykSyslogParam *params, const char *format, va_list arguments) {
  hosted::Emit({facility | severity, hostName, appName, messageId, sdId, params}, format, arguments);
}

void Hyk_GetLogStatistics(HykLogStatistics *statistics) {
  *statistics = {hosted::logged.load(std::memory_order_relaxed), hosted::dropped.load(std::memory_order_relaxed)};
}
