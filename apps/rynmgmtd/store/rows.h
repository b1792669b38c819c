// Events and problems as rows: the columns in one place, for who writes and who reads. Stateless: any thread.
#pragma once

#include <string>
#include <vector>

#include "mgmtd/store/database.h"
#include "mgmtd/store/storedEvent.h"

namespace mgmtd {

/// The columns that ReadEvent wants, of the table called "events" or "e"; the last is the raw bytes, or ''.
std::string EventColumns(const std::string &table, bool withRaw);
StoredEvent ReadEvent(const Statement &row);
/// Insert `event` with its subjects; one that is there already stays as it is. False then.
bool InsertEvent(Database *database, const StoredEvent &event);

constexpr const char *kProblemColumns =
    "id, change, event_id, last_event_id, name, about, subject, severity, text, host_uuid, first_us, last_us, times,"
    " ended_us, ended_by, ended_by_event";
Problem ReadProblem(const Statement &row);
void WriteProblem(Database *database, const Problem &problem);

/// "info" is 0, "critical" 3; -1 for any other word.
int SeverityNumber(const std::string &word);

}  // namespace mgmtd
