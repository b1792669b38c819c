// The platform's own log lines: the same records as the daemon's. Any thread.
#pragma once

namespace hosted {

/// Where a log record went.
enum class Delivery { kSystemLog, kStandardError, kDropped };

/// Log one line as a daemon record of the calling thread. Blocks for at most 100 ms.
[[gnu::format(printf, 1, 2)]] Delivery Log(const char *format, ...);
/// Log one line that a person at the terminal must see: it goes to standard error too, unless it is there already.
[[gnu::format(printf, 1, 2)]] void LogAndTell(const char *format, ...);

}  // namespace hosted
