// One step a version: a new file takes them all, an older one those that it lacks. A step that is out is never changed.
#include "mgmtd/store/schema.h"

#include <array>

namespace mgmtd {
namespace {

constexpr std::array<const char *, 2> kSteps = {
    // Texts as storedEvent.h and problem.h tell; severity 0 to 3; subjects, arguments and about are JSON.
    "CREATE TABLE events(id INTEGER PRIMARY KEY, received_us INTEGER NOT NULL, time_us INTEGER NOT NULL,"
    " sequence INTEGER NOT NULL, host_uuid TEXT NOT NULL, name TEXT NOT NULL, category TEXT NOT NULL,"
    " severity INTEGER NOT NULL, subjects TEXT NOT NULL, text TEXT NOT NULL, arguments TEXT NOT NULL,"
    " damage TEXT NOT NULL, raw BLOB NOT NULL);"
    // A record that is sent again is the same event; of damaged ones nobody can say so.
    "CREATE UNIQUE INDEX events_whole ON events(sequence, time_us, host_uuid) WHERE damage = '';"
    "CREATE INDEX events_time ON events(time_us, severity);"
    "CREATE INDEX events_name ON events(name);"
    "CREATE TABLE event_subjects(subject TEXT NOT NULL, event_id INTEGER NOT NULL, PRIMARY KEY(subject, event_id))"
    " WITHOUT ROWID;"
    "CREATE TABLE problems(id INTEGER PRIMARY KEY, event_id INTEGER NOT NULL, last_event_id INTEGER NOT NULL,"
    " name TEXT NOT NULL, about TEXT NOT NULL, subject TEXT NOT NULL, severity INTEGER NOT NULL, text TEXT NOT NULL,"
    " host_uuid TEXT NOT NULL, first_us INTEGER NOT NULL, last_us INTEGER NOT NULL, times INTEGER NOT NULL,"
    " ended_us INTEGER NOT NULL, ended_by TEXT NOT NULL, ended_by_event INTEGER NOT NULL);"
    "CREATE INDEX problems_open ON problems(ended_us, severity);"
    "CREATE INDEX problems_name ON problems(name, event_id);"
    "CREATE INDEX problems_ended ON problems(ended_by_event) WHERE ended_by_event != 0;"
    "CREATE TABLE sinks(name TEXT PRIMARY KEY, event INTEGER NOT NULL)",
    // Changes of problems in their order, for who passes them on.
    "ALTER TABLE problems ADD COLUMN change INTEGER NOT NULL DEFAULT 0;"
    "UPDATE problems SET change = id;"
    "CREATE INDEX problems_change ON problems(change);"
    "ALTER TABLE sinks ADD COLUMN change INTEGER NOT NULL DEFAULT 0;"
    "UPDATE sinks SET change = (SELECT coalesce(max(change), 0) FROM problems)",
};

}  // namespace

int64_t SchemaVersion() {
  return static_cast<int64_t>(kSteps.size());
}

int64_t VersionOf(Database *database) {
  return database->Number("PRAGMA user_version");
}

void Migrate(Database *database) {
  const int64_t version = VersionOf(database);
  if (version >= SchemaVersion()) return;
  Transaction transaction(database);
  for (int64_t step = version; step < SchemaVersion(); ++step) database->Execute(kSteps[static_cast<size_t>(step)]);
  database->Execute(("PRAGMA user_version = " + std::to_string(SchemaVersion())).c_str());
  transaction.Commit();
}

}  // namespace mgmtd
