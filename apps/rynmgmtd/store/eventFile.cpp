// SQLite in WAL mode: a commit is one flush of the log beside the file, and readers never wait for it.
#include "mgmtd/store/eventFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <ctime>

#include "hosted/paths.h"
#include "mgmtd/log/log.h"
#include "mgmtd/store/rows.h"
#include "mgmtd/store/schema.h"

namespace mgmtd {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kCheckLimit(1);  ///< of looking for damage at the start
constexpr mode_t kFolderMode = 0750;

/// "20261121T173000".
std::string TimeStamp() {
  const time_t now = time(nullptr);
  tm parts{};
  localtime_r(&now, &parts);
  char text[32];
  strftime(text, sizeof text, "%Y%m%dT%H%M%S", &parts);
  return text;
}

int EndCheck(void *deadline) {
  return Clock::now() > *static_cast<Clock::time_point *>(deadline) ? 1 : 0;
}

/// Throw when the file's pages contradict each other, as far as a second shows.
void LookForDamage(Database *database) {
  Clock::time_point deadline = Clock::now() + kCheckLimit;
  sqlite3_progress_handler(database->Connection(), 10'000, EndCheck, &deadline);
  std::string found;
  try {
    found = database->Word("PRAGMA quick_check(1)");
  } catch (const DatabaseError &error) {
    if (error.code != SQLITE_INTERRUPT) throw;
    found = "ok";
  }
  sqlite3_progress_handler(database->Connection(), 0, nullptr, nullptr);
  if (found != "ok") throw DatabaseError(found, SQLITE_CORRUPT);
}

/// Refuse a newer file before anything could change it.
void RefuseNewer(const std::string &path) {
  if (access(path.c_str(), F_OK) != 0) return;
  int64_t version = 0;
  try {
    Database database(path, Database::Mode::kRead);
    version = VersionOf(&database);
  } catch (const DatabaseError &) {
    return;  // opening it to write tells more
  }
  if (version <= SchemaVersion()) return;
  throw NewerStore(path + " is of version " + std::to_string(version) +
                   ", written by a newer rynmgmtd; this one knows " + std::to_string(SchemaVersion()) +
                   " (install that one, or move the file away)");
}

}  // namespace

StoreState EventFile::Open(bool look) {
  RefuseNewer(path_);
  try {
    OpenFile(look);
    return Load();
  } catch (const DatabaseError &error) {
    if (!error.IsDamage()) {
      Close();
      throw;
    }
    Log(LogLevel::kError, "The store is damaged: " + std::string(error.what()));
  }
  MoveAside();
  try {
    OpenFile(look);
    return Load();
  } catch (const StoreError &) {
    Close();
    throw;
  }
}

void EventFile::OpenFile(bool look) {
  const std::string folder = path_.substr(0, path_.rfind('/'));
  if (const int error = hosted::MakeFolders(folder, kFolderMode); error != 0) {
    throw StoreError(folder + ": " + std::strerror(error));
  }
  // The group may read the file; SQLite gives its log and index the same mode.
  const int fd = open(path_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0640);
  if (fd < 0) throw StoreError(path_ + ": " + std::strerror(errno));
  close(fd);
  database_ = std::make_unique<Database>(path_, Database::Mode::kWrite);
  database_->Execute("PRAGMA auto_vacuum = INCREMENTAL");  // of a new file; pages that are free go back then
  database_->Execute("PRAGMA journal_mode = WAL");
  database_->Execute("PRAGMA synchronous = FULL");
  database_->Execute("PRAGMA journal_size_limit = 16777216");
  database_->Execute("PRAGMA cache_size = -8192");
  // Readers of the group can't make the log's files themselves.
  int keep = 1;
  sqlite3_file_control(database_->Connection(), nullptr, SQLITE_FCNTL_PERSIST_WAL, &keep);
  if (stat(path_.c_str(), &opened_) != 0) throw StoreError(path_ + ": " + std::strerror(errno));
  if (look && VersionOf(database_.get()) != 0) LookForDamage(database_.get());
  Migrate(database_.get());
}

StoreState EventFile::Load() {
  StoreState state;
  Database *database = database_.get();
  Statement open = database->Prepare(std::string("SELECT ") + kProblemColumns + " FROM problems WHERE ended_us = 0");
  while (open.Step()) state.open.push_back(ReadProblem(open));
  Statement sinks = database->Prepare("SELECT name, event, change FROM sinks");
  while (sinks.Step()) state.sinks[sinks.Text(0)] = {sinks.Integer(1), sinks.Integer(2)};
  state.newest.event = database->Number(
      "SELECT max(coalesce((SELECT max(id) FROM events), 0), coalesce((SELECT max(last_event_id) FROM problems), 0),"
      " coalesce((SELECT max(event) FROM sinks), 0))");
  state.newest.change = database->Number(
      "SELECT max(coalesce((SELECT max(change) FROM problems), 0), coalesce((SELECT max(change) FROM sinks), 0))");
  state.lastProblemId = database->Number("SELECT max(id) FROM problems");
  return state;
}

void EventFile::Close() {
  database_.reset();
}

void EventFile::MoveAside() {
  Close();
  std::string aside = path_ + ".damaged-" + TimeStamp();
  for (int i = 1; access(aside.c_str(), F_OK) == 0; ++i)
    aside = path_ + ".damaged-" + TimeStamp() + "." + std::to_string(i);
  for (const char *part : {"-wal", "-shm", ""}) {
    if (rename((path_ + part).c_str(), (aside + part).c_str()) != 0 && errno != ENOENT) {
      throw StoreError(path_ + part + " can't be moved aside: " + std::strerror(errno));
    }
  }
  Log(LogLevel::kError, "The damaged store was moved to " + aside + "; a new one takes its place");
}

bool EventFile::IsReplaced() const {
  struct stat now {};
  if (stat(path_.c_str(), &now) != 0) return errno == ENOENT;
  return now.st_dev != opened_.st_dev || now.st_ino != opened_.st_ino;
}

bool EventFile::Has(const StoredEvent &event) {
  Statement look =
      database_->Prepare("SELECT 1 FROM events WHERE sequence = ? AND time_us = ? AND host_uuid = ? AND damage = ''");
  look.Bind(1, static_cast<int64_t>(event.sequence)).Bind(2, event.timeUs).Bind(3, event.hostUuid);
  return look.Step();
}

void EventFile::Store(std::span<const StoredEvent> events, const std::map<int64_t, Problem> &problems,
                      const std::map<std::string, Marks> &sinks) {
  Transaction transaction(database_.get());
  for (const StoredEvent &event : events) InsertEvent(database_.get(), event);
  for (const auto &[id, problem] : problems) WriteProblem(database_.get(), problem);
  for (const auto &[name, passed] : sinks) {
    Statement write = database_->Prepare("INSERT OR REPLACE INTO sinks(name, event, change) VALUES(?, ?, ?)");
    write.Bind(1, name).Bind(2, passed.event).Bind(3, passed.change);
    write.Run();
  }
  transaction.Commit();
}

size_t EventFile::Expire(int64_t beforeUs, int64_t mostBytes, int64_t most) {
  const bool tooBig = UsedBytes() > mostBytes;
  // By reception, whose order is that of the ids but where the clock was set back.
  Statement last = database_->Prepare(
      tooBig ? "SELECT max(id), count(*) FROM (SELECT id FROM events ORDER BY id LIMIT ?1)"
             : "SELECT max(id), count(*) FROM (SELECT id, received_us FROM events ORDER BY id LIMIT ?1)"
               " WHERE received_us < ?2");
  last.Bind(1, most);
  if (!tooBig) last.Bind(2, beforeUs);
  if (!last.Step() || last.Integer(1) == 0) return 0;
  const int64_t upTo = last.Integer(0);
  const auto count = static_cast<size_t>(last.Integer(1));
  last.Reset();
  Transaction transaction(database_.get());
  for (const char *sql :
       {"DELETE FROM event_subjects WHERE (subject, event_id) IN"
        " (SELECT value, events.id FROM events, json_each(events.subjects) WHERE events.id <= ?1)",
        "DELETE FROM events WHERE id <= ?1", "DELETE FROM problems WHERE ended_us != 0 AND last_event_id <= ?1"}) {
    Statement remove = database_->Prepare(sql);
    remove.Bind(1, upTo);
    remove.Run();
  }
  transaction.Commit();
  database_->Execute("PRAGMA incremental_vacuum(1000)");
  return count;
}

int64_t EventFile::UsedBytes() {
  const int64_t pages = database_->Number("PRAGMA page_count") - database_->Number("PRAGMA freelist_count");
  return pages * database_->Number("PRAGMA page_size");
}

}  // namespace mgmtd
