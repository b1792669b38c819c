// Queries are made of the filter's parts; each is one statement that ends before its caller goes on.
#include "mgmtd/store/reader.h"

#include <unistd.h>

#include <algorithm>
#include <limits>

#include "catalog/find.h"
#include "mgmtd/problems/subject.h"
#include "mgmtd/store/compose.h"
#include "mgmtd/store/rows.h"
#include "mgmtd/store/schema.h"

namespace mgmtd {
namespace {

constexpr int64_t kMostBuckets = 10'000;

/// An SQL condition and what its parameters are.
struct Condition {
  std::string sql;
  std::vector<std::string> texts;   ///< ?1 to ?N in order
  std::vector<int64_t> integers{};  ///< behind the texts
};

/// A place for a text, or for an integer, in the statement.
std::string Place(Condition *condition, const std::string &text) {
  condition->texts.push_back(text);
  return "?" + std::to_string(condition->texts.size());
}

std::string Quoted(const std::string &text) {
  std::string quoted = "'";
  for (const char c : text) quoted += c == '\'' ? std::string("''") : std::string(1, c);
  return quoted + "'";
}

/// The lowest and the highest id with a time in the filter's range; an index tells.
std::pair<int64_t, int64_t> IdsOfTime(Database *database, const EventFilter &filter) {
  Statement range = database->Prepare(
      "SELECT coalesce(min(id), 1), coalesce(max(id), 0) FROM events INDEXED BY events_time WHERE time_us BETWEEN ?1"
      " AND ?2");
  range.Bind(1, filter.sinceUs.value_or(0)).Bind(2, filter.untilUs.value_or(std::numeric_limits<int64_t>::max()));
  range.Step();
  return {range.Integer(0), range.Integer(1)};
}

/// The names that one of the prefixes begins, of those that the file has.
std::string NameCondition(Database *database, const std::vector<std::string> &prefixes) {
  std::string list;
  std::string name;
  // From one name to the next over the index.
  while (true) {
    Statement next = database->Prepare("SELECT min(name) FROM events WHERE name > ?1");
    next.Bind(1, name);
    if (!next.Step() || next.IsNull(0)) break;
    name = next.Text(0);
    const auto matches = [&](const std::string &prefix) { return catalog::Matches(name, prefix); };
    if (std::ranges::any_of(prefixes, matches)) list += (list.empty() ? "" : ", ") + Quoted(name);
  }
  return "e.name IN (" + list + ")";
}

/// What the filter says but of ids and subjects.
void AddConditions(Database *database, const EventFilter &filter, Condition *condition) {
  std::string &sql = condition->sql;
  if (filter.sinceUs) sql += " AND e.time_us >= " + std::to_string(*filter.sinceUs);
  if (filter.untilUs) sql += " AND e.time_us <= " + std::to_string(*filter.untilUs);
  if (!filter.names.empty()) sql += " AND " + NameCondition(database, filter.names);
  if (!filter.category.empty()) sql += " AND e.category = " + Place(condition, filter.category);
  if (!filter.severity.empty()) sql += " AND e.severity >= " + std::to_string(SeverityNumber(filter.severity));
  if (!filter.text.empty()) {
    const std::string place = Place(condition, filter.text);
    sql += " AND (instr(lower(e.text), lower(" + place + ")) OR instr(lower(e.name), lower(" + place + ")))";
  }
}

/// The whole statement for a filter.
Condition EventQuery(Database *database, const EventFilter &filter, bool withRaw) {
  int64_t low = std::min(filter.afterId, std::numeric_limits<int64_t>::max() - 1) + 1;
  int64_t high = filter.beforeId != 0 ? filter.beforeId - 1 : std::numeric_limits<int64_t>::max();
  if (filter.sinceUs || filter.untilUs) {
    const auto [first, last] = IdsOfTime(database, filter);
    low = std::max(low, first);
    high = std::min(high, last);
  }
  Condition query;
  const std::string columns = EventColumns("e", withRaw);
  const std::string range = " BETWEEN " + std::to_string(low) + " AND " + std::to_string(high);
  std::string order = "e.id";
  if (filter.subject.empty()) {
    query.sql = "SELECT " + columns + " FROM events e WHERE e.id" + range;
  } else if (filter.subject.find_first_of("*?") == std::string::npos) {
    query.sql = "SELECT " + columns +
                " FROM event_subjects s CROSS JOIN events e ON e.id = s.event_id WHERE s.subject = " +
                Place(&query, filter.subject) + " AND s.event_id" + range;
    order = "s.event_id";
  } else {
    query.sql = "SELECT " + columns + " FROM events e WHERE e.id" + range +
                " AND EXISTS(SELECT 1 FROM json_each(e.subjects) WHERE value GLOB " + Place(&query, filter.subject) +
                ")";
  }
  AddConditions(database, filter, &query);
  query.sql += " ORDER BY " + order + (filter.newestFirst ? " DESC" : "") + " LIMIT " + std::to_string(filter.limit);
  return query;
}

}  // namespace

Reader::Reader(std::string path) : path_(std::move(path)) {}
Reader::~Reader() = default;
Reader::Reader(Reader &&) noexcept = default;
Reader &Reader::operator=(Reader &&) noexcept = default;

/// Call `query` with the connection, opened where it is not; one that fails is made anew by the next call.
template <typename Query>
auto Reader::Run(Query query) {
  try {
    if (!database_) Open();
    return query(database_.get());
  } catch (const StoreError &) {
    database_.reset();
    throw;
  }
}

void Reader::Open() {
  if (access(path_.c_str(), F_OK) != 0) throw StoreError("there is no store at " + path_);
  try {
    database_ = std::make_unique<Database>(path_, Database::Mode::kRead);
    VersionOf(database_.get());
  } catch (const DatabaseError &error) {
    if (error.code != SQLITE_CANTOPEN || access((path_ + "-wal").c_str(), F_OK) == 0) throw;
    database_ = std::make_unique<Database>(path_, Database::Mode::kReadUnchanging);
  }
  const int64_t version = VersionOf(database_.get());
  if (version == SchemaVersion()) return;
  throw StoreError(path_ + " is of version " + std::to_string(version) + ", and this program reads " +
                   std::to_string(SchemaVersion()) +
                   (version < SchemaVersion() ? " (rynmgmtd brings it up to date when it starts)" : ""));
}

std::vector<StoredEvent> Reader::Events(const EventFilter &filter, bool withRaw) {
  return Run([&](Database *database) {
    const Condition query = EventQuery(database, filter, withRaw);
    Statement statement = database->PrepareOnce(query.sql);
    for (size_t i = 0; i < query.texts.size(); ++i) statement.Bind(static_cast<int>(i) + 1, query.texts[i]);
    std::vector<StoredEvent> events;
    while (statement.Step()) events.push_back(ReadEvent(statement));
    return events;
  });
}

std::optional<StoredEvent> Reader::Event(int64_t id) {
  if (id <= 0 || id == std::numeric_limits<int64_t>::max()) return std::nullopt;
  EventFilter filter;
  filter.afterId = id - 1;
  filter.beforeId = id + 1;
  std::vector<StoredEvent> events = Events(filter, true);
  if (events.empty()) return std::nullopt;
  return std::move(events.front());
}

std::vector<Problem> Reader::Problems(const ProblemFilter &filter) {
  return Run([&](Database *database) {
    std::vector<Problem> problems;
    const auto take = [&](const char *which) {
      Statement statement =
          database->Prepare(std::string("SELECT ") + kProblemColumns + " FROM problems WHERE " + which + " LIMIT ?1");
      statement.Bind(1, static_cast<int64_t>(filter.limit - problems.size()));
      while (statement.Step()) problems.push_back(ReadProblem(statement));
    };
    take("ended_us = 0 ORDER BY severity DESC, last_event_id DESC");
    if (filter.ended && problems.size() < filter.limit) take("ended_us > 0 ORDER BY ended_us DESC");
    return problems;
  });
}

std::vector<Problem> Reader::ProblemsOf(const StoredEvent &event) {
  const Happening happening = HappeningOf(event);
  if (happening.entry == nullptr) return {};
  const std::vector<NamedValues> subjects = SubjectsOf(*happening.entry, happening.arguments);
  return Run([&](Database *database) {
    std::vector<Problem> problems;
    Statement told = database->Prepare(std::string("SELECT ") + kProblemColumns +
                                       " FROM problems WHERE name = ?1 AND event_id <= ?2 AND last_event_id >= ?2");
    told.Bind(1, event.name).Bind(2, event.id);
    while (told.Step()) {
      Problem problem = ReadProblem(told);
      if (std::ranges::find(subjects, problem.about) != subjects.end()) problems.push_back(std::move(problem));
    }
    Statement ended = database->Prepare(std::string("SELECT ") + kProblemColumns +
                                        " FROM problems WHERE ended_by_event = ?1 AND ended_by_event != 0");
    ended.Bind(1, event.id);
    while (ended.Step()) problems.push_back(ReadProblem(ended));
    return problems;
  });
}

std::vector<Problem> Reader::ProblemsChangedAfter(int64_t change, size_t limit) {
  return Run([&](Database *database) {
    Statement statement = database->Prepare(std::string("SELECT ") + kProblemColumns +
                                            " FROM problems WHERE change > ?1 ORDER BY change LIMIT ?2");
    statement.Bind(1, change).Bind(2, static_cast<int64_t>(limit));
    std::vector<Problem> problems;
    while (statement.Step()) problems.push_back(ReadProblem(statement));
    return problems;
  });
}

std::vector<TimelineBucket> Reader::Timeline(int64_t sinceUs, int64_t untilUs, int64_t bucketUs) {
  bucketUs = std::max<int64_t>(1, bucketUs);
  if (untilUs <= sinceUs) return {};
  const int64_t count = std::min(kMostBuckets, (untilUs - sinceUs + bucketUs - 1) / bucketUs);
  std::vector<TimelineBucket> buckets(static_cast<size_t>(count));
  for (int64_t i = 0; i < count; ++i) buckets[static_cast<size_t>(i)].startUs = sinceUs + i * bucketUs;
  Run([&](Database *database) {
    Statement statement = database->Prepare(
        "SELECT (time_us - ?1) / ?3, severity, count(*) FROM events INDEXED BY events_time"
        " WHERE time_us >= ?1 AND time_us < ?2 GROUP BY 1, 2");
    statement.Bind(1, sinceUs).Bind(2, std::min(untilUs, sinceUs + count * bucketUs)).Bind(3, bucketUs);
    while (statement.Step()) {
      TimelineBucket &bucket = buckets.at(static_cast<size_t>(statement.Integer(0)));
      int64_t *counts[] = {&bucket.other, &bucket.warning, &bucket.error, &bucket.critical};
      *counts[std::clamp<int64_t>(statement.Integer(1), 0, 3)] += statement.Integer(2);
    }
    return 0;
  });
  return buckets;
}

int64_t Reader::LastEventId() {
  return Run([](Database *database) { return database->Number("SELECT max(id) FROM events"); });
}

}  // namespace mgmtd
