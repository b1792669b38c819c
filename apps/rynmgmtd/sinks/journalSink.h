// Events as records of the host's journal.
#pragma once

#include <string>

#include "hosted/log/logSocket.h"
#include "mgmtd/sinks/sink.h"

namespace mgmtd {

/// Writes one record an event: MESSAGE, PRIORITY, SYSLOG_IDENTIFIER, MESSAGE_ID, RYND_EVENT, RYND_CATEGORY,
/// RYND_SEVERITY, RYND_SUBJECT (each), RYND_ARG_NAME (each), RYND_TIME, RYND_HOST, RYND_ID, RYND_DAMAGE.
class JournalSink : public EventSink {
 public:
  JournalSink(const std::string &storePath, Feed *feed, Writer *writer);

 protected:
  Outcome Pass(const StoredEvent &event, std::string *error) override;

 private:
  hosted::LogSocket socket_;
};

/// An event in the journal's native form: lines "NAME=VALUE", or, for a value with line ends, the name, its length as
/// 64 bits and the value.
std::string JournalRecord(const StoredEvent &event);

}  // namespace mgmtd
