// The system log: builds each record and delivers it, or keeps it to be sent with others. Any thread; no state but the
// sockets', three counters, and what each thread keeps.
#include <sys/uio.h>
#include <syslog.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>
#include <utility>

#include "base/immortal.h"
#include "hosted/log/heldRecords.h"
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

/// Send a record to the journal, else to the log socket.
SendResult Send(const LogHeader &header, std::string_view text, std::string_view message) {
  SendResult result = SendToJournal(header, message, false);
  if (result == SendResult::kNoListener) result = SendToSyslog(text);
  if (result == SendResult::kNoListener) result = SendToJournal(header, message, true);
  return result;
}

/// The same. What is too long for either loses its end: better a part of a message than none.
SendResult Send(const LogHeader &header, LogRecord *record) {
  while (true) {
    const SendResult result = Send(header, record->Text(), record->Message());
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

void Count(Delivery delivery, uint64_t records) {
  if (delivery == Delivery::kDropped) {
    dropped.fetch_add(1, std::memory_order_relaxed);
    untold.fetch_add(records, std::memory_order_relaxed);
  } else {
    logged.fetch_add(1, std::memory_order_relaxed);
  }
}

/// What a thread keeps. Nothing is done when the thread ends: the C library ends the process where it has no memory to
/// remember that.
struct Keeper {
  bool holds = false;
  HeldRecords *held = nullptr;  ///< made when it is needed first; its own
};
thread_local constinit Keeper keeper;

/// Every record that is kept says of itself what this does. `params` has to stay.
LogHeader UsualHeader(const HykSyslogParam *params) {
  return {LOG_DAEMON | LOG_INFO, nullptr, nullptr, nullptr, "amb", params};
}

/// Keep a record where the calling thread does, unless it has a header of its own or the journal takes it. False when
/// it has to be sent now, and then what was kept has been.
bool Keep(const LogHeader &header, const LogRecord &record, uint64_t told) {
  if (!keeper.holds) return false;
  if (keeper.held == nullptr) keeper.held = new (std::nothrow) HeldRecords;
  HeldRecords *const held = keeper.held;
  if (held == nullptr) return false;
  const auto isEmpty = [](const char *text) { return text == nullptr || *text == '\0'; };
  const bool usual = header.priority == (LOG_DAEMON | LOG_INFO) && isEmpty(header.hostName) &&
                     isEmpty(header.appName) && isEmpty(header.messageId) && !isEmpty(header.sdId);
  if (usual && JournalIsMissing() && held->Add(record.Text(), record.Message(), told)) return true;
  Hyk_FlushLog();
  return usual && JournalIsMissing() && held->Add(record.Text(), record.Message(), told);
}

/// Deliver a record that was kept and did not pass at once.
void DeliverKept(const LogHeader &header, const HeldRecords::Record &record) try {
  Delivery delivery = Delivery::kSystemLog;
  const SendResult result = Send(header, record.text, record.message);
  if (result == SendResult::kNoListener) {
    const std::string line = std::string(Hyk_GetThreadName()) + ": " + std::string(record.message) + "\n";
    delivery = Hyk_WriteStandardError(line.data(), line.size()) ? Delivery::kStandardError : Delivery::kDropped;
  } else if (result != SendResult::kSent) {
    delivery = Delivery::kDropped;
  }
  Count(delivery, record.told + 1);
} catch (const std::bad_alloc &) {
  Count(Delivery::kDropped, record.told + 1);
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
    if (Keep(header, record, told)) {
      errno = error;
      return Delivery::kSystemLog;
    }
    delivery = Deliver(header, &record);
  } catch (const std::bad_alloc &) {  // the next record tells that one is missing
  }
  Count(delivery, told + 1);
  errno = error;
  return delivery;
}

[[gnu::format(printf, 1, 0)]] Delivery LogVA(const char *format, va_list arguments) {
  const HykSyslogParam params[] = {{"threadName", Hyk_GetThreadName()}, {"", ""}};
  return Emit(UsualHeader(params), format, arguments);
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

void Hyk_HoldLog(bool hold) {
  hosted::keeper.holds = hold;
  if (hold) return;
  Hyk_FlushLog();
  delete std::exchange(hosted::keeper.held, nullptr);
}

void Hyk_FlushLog() {
  hosted::HeldRecords *const held = hosted::keeper.held;
  if (held == nullptr || held->Records().empty()) return;
  const int error = errno;
  std::array<iovec, hosted::HeldRecords::kMost> parts;
  std::array<mmsghdr, hosted::HeldRecords::kMost> messages{};
  const std::span<const hosted::HeldRecords::Record> records = held->Records();
  for (size_t i = 0; i < records.size(); ++i) {
    parts[i] = {const_cast<char *>(records[i].text.data()), records[i].text.size()};  // only read
    messages[i].msg_hdr.msg_iov = &parts[i];
    messages[i].msg_hdr.msg_iovlen = 1;
  }
  const size_t sent = hosted::Syslog().SendTogether(messages.data(), records.size());
  hosted::logged.fetch_add(sent, std::memory_order_relaxed);
  const HykSyslogParam params[] = {{"threadName", Hyk_GetThreadName()}, {"", ""}};
  for (const auto &record : records.subspan(sent)) hosted::DeliverKept(hosted::UsualHeader(params), record);
  held->Clear();
  errno = error;
}

void Hyk_GetLogStatistics(HykLogStatistics *statistics) {
  *statistics = {hosted::logged.load(std::memory_order_relaxed), hosted::dropped.load(std::memory_order_relaxed)};
}
