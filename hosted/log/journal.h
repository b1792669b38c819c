// The journal of the host, in its native protocol: one datagram of fields a record. Any thread.
#pragma once

#include <string_view>

#include "hosted/log/logRecord.h"
#include "hosted/log/logSocket.h"

namespace hosted {

/// Send `message` to the journal, where the host has one, with what `header` says: PRIORITY, SYSLOG_FACILITY,
/// SYSLOG_IDENTIFIER, SYSLOG_PID, and each parameter as a field SDID_NAME. A record that no datagram holds goes as a
/// sealed file. Waits as LogSocket::Send does. kNoListener also while a look less than a second ago found no journal;
/// `lookAgain` looks all the same.
SendResult SendToJournal(const LogHeader &header, std::string_view message, bool lookAgain);

/// True when a look less than a second ago found no journal. Any thread.
bool JournalIsMissing();

}  // namespace hosted
