// The host's services that the daemon itself needs: system log, thread names, event stamps, root folder.
// Declarations only; a platform library provides them. Every operation may be called from any thread.
#pragma once

#include <cstdarg>
#include <cstddef>

/// One parameter of a structured-data element; a list ends with an empty pair.
struct HykSyslogParam {
  const char *name;
  const char *value;
};

/// Emit one RFC 5424 record. Empty `hostName`, `appName` and `messageId` mean the platform's defaults; `sdId` (null for
/// no structured data) names the element that holds `params`. Blocks for at most 100 ms.
[[gnu::format(printf, 8, 0)]] void Hyk_SyslogExtended(int facility, int severity, const char *hostName,
                                                      const char *appName, const char *messageId, const char *sdId,
                                                      const HykSyslogParam *params, const char *format,
                                                      va_list arguments);

/// Whether the calling thread's records wait from now on, to be sent together. It then calls Hyk_FlushLog() before it
/// waits for anything, and this with false before it ends, which sends what waits.
void Hyk_HoldLog(bool hold);
/// Send the calling thread's records that wait, in their order. Blocks for at most 100 ms a record.
void Hyk_FlushLog();

/// Write one line of `size` bytes, its line end included, to standard error, whatever stands behind it: waits for at
/// most 100 ms. Control characters and what is no UTF-8 are written out. True when it was written.
bool Hyk_WriteStandardError(const char *text, size_t size);

/// Name the calling thread; the whole name appears in log records. 0 or an errno value.
int Hyk_SetThreadName(const char *name);
/// The calling thread's name, or the platform's default ("rynd"); valid until the thread names itself again.
const char *Hyk_GetThreadName();

constexpr size_t kHykEventHeaderSize = 16;
/// Stamp an event record's header: bytes 0 to 7 are the time in microseconds since the epoch.
void Hyk_StampEvent(std::byte header[kHykEventHeaderSize]);

/// What stands in front of every absolute path, "" by default; the same text for the whole run.
const char *Hyk_Root();
