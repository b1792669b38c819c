// What the agent says to whoever looks after it. Any thread.
#pragma once

#include <string>

namespace mgmtd {

/// Priorities as syslog has them.
enum class LogLevel { kError = 3, kWarning = 4, kNotice = 5, kInfo = 6 };

/// Write "rynmgmtd: TEXT" as a line to standard error, escaped, with the priority in front where the journal reads it.
/// Never blocks: what standard error takes no room for is dropped, and the next line says how many were.
void Log(LogLevel level, const std::string &text);

}  // namespace mgmtd
