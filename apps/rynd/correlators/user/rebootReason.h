// The record of why the host goes down, kept in the configuration store for whoever asks after its restart. User-level
// agent's thread.
#pragma once

#include <cstdint>
#include <string>

namespace rynd {

/// Why the host goes down, as it is recorded; null pointers count as empty texts.
struct RebootReason {
  const char *type;       ///< "REBOOT" or "POWEROFF"
  const char *user;       ///< who asked for it
  const char *subsystem;  ///< which part of the system did
  const char *timestamp;  ///< local time of the announcement
  const char *reason;
};

/// Write the record in place of an earlier one. A failure leaves that one as it is.
void RecordRebootReason(const RebootReason &reason);

/// The platform's status for "there is one" when a reason has been recorded; 0 when not, or when it can't be read.
int RebootReasonRecorded();

/// `now` (seconds since the epoch) in local time, such as "Sat, 21 Nov 26 06:57:57 +0000".
std::string RebootTimestamp(int64_t now);

}  // namespace rynd
