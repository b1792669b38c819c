// Lists stand in the rows as JSON.
#include "mgmtd/store/rows.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace mgmtd {
namespace {

using nlohmann::json;

std::string Dump(const json &value) {
  return value.dump(-1, ' ', false, json::error_handler_t::replace);
}

catalog::Severity SeverityOf(int64_t number) {
  return static_cast<catalog::Severity>(std::clamp<int64_t>(number, 0, 3));
}

/// A text that no longer is what this program wrote gives an empty list.
json ParseList(const std::string &text) {
  json list = json::parse(text, nullptr, false);
  return list.is_array() ? list : json::array();
}

std::string Texts(const json &value) {
  return value.is_string() ? value.get<std::string>() : std::string();
}

}  // namespace

int SeverityNumber(const std::string &word) {
  for (int number = 0; number < 4; ++number) {
    if (catalog::SeverityName(SeverityOf(number)) == word) return number;
  }
  return -1;
}

std::string EventColumns(const std::string &table, bool withRaw) {
  std::string columns;
  for (const char *column : {"id", "received_us", "time_us", "sequence", "host_uuid", "name", "category", "severity",
                             "subjects", "text", "arguments", "damage"}) {
    columns += table + "." + column + ", ";
  }
  return columns + (withRaw ? table + ".raw" : "''");
}

StoredEvent ReadEvent(const Statement &row) {
  StoredEvent event;
  event.id = row.Integer(0);
  event.receivedUs = row.Integer(1);
  event.timeUs = row.Integer(2);
  event.sequence = static_cast<uint64_t>(row.Integer(3));
  event.hostUuid = row.Text(4);
  event.name = row.Text(5);
  event.category = row.Text(6);
  event.severity = catalog::SeverityName(SeverityOf(row.Integer(7)));
  for (const json &subject : ParseList(row.Text(8))) event.subjects.push_back(Texts(subject));
  event.text = row.Text(9);
  event.argumentsJson = row.Text(10);
  event.damage = row.Text(11);
  event.raw = row.Text(12);
  return event;
}

bool InsertEvent(Database *database, const StoredEvent &event) {
  Statement insert = database->Prepare(
      "INSERT OR IGNORE INTO events(id, received_us, time_us, sequence, host_uuid, name, category, severity, subjects,"
      " text, arguments, damage, raw) VALUES(?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)");
  insert.Bind(1, event.id).Bind(2, event.receivedUs).Bind(3, event.timeUs);
  insert.Bind(4, static_cast<int64_t>(event.sequence)).Bind(5, event.hostUuid).Bind(6, event.name);
  insert.Bind(7, event.category).Bind(8, int64_t{std::max(0, SeverityNumber(event.severity))});
  insert.Bind(9, Dump(event.subjects)).Bind(10, event.text).Bind(11, event.argumentsJson).Bind(12, event.damage);
  insert.BindBlob(13, event.raw);
  insert.Run();
  if (database->Changes() == 0) return false;
  for (const std::string &subject : event.subjects) {
    Statement subjects = database->Prepare("INSERT OR IGNORE INTO event_subjects(subject, event_id) VALUES(?, ?)");
    subjects.Bind(1, subject).Bind(2, event.id);
    subjects.Run();
  }
  return true;
}

Problem ReadProblem(const Statement &row) {
  Problem problem;
  problem.id = row.Integer(0);
  problem.change = row.Integer(1);
  problem.eventId = row.Integer(2);
  problem.lastEventId = row.Integer(3);
  problem.name = row.Text(4);
  for (const json &part : ParseList(row.Text(5))) {
    if (part.is_array() && part.size() == 2) problem.about.emplace_back(Texts(part[0]), Texts(part[1]));
  }
  problem.subject = row.Text(6);
  problem.severity = SeverityOf(row.Integer(7));
  problem.text = row.Text(8);
  problem.hostUuid = row.Text(9);
  problem.firstUs = row.Integer(10);
  problem.lastUs = row.Integer(11);
  problem.times = row.Integer(12);
  problem.endedUs = row.Integer(13);
  problem.endedBy = row.Text(14);
  problem.endedByEvent = row.Integer(15);
  return problem;
}

void WriteProblem(Database *database, const Problem &problem) {
  Statement write = database->Prepare(std::string("INSERT OR REPLACE INTO problems(") + kProblemColumns +
                                      ") VALUES(?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)");
  json about = json::array();
  for (const auto &[argument, value] : problem.about) about.push_back({argument, value});
  write.Bind(1, problem.id).Bind(2, problem.change).Bind(3, problem.eventId).Bind(4, problem.lastEventId);
  write.Bind(5, problem.name).Bind(6, Dump(about)).Bind(7, problem.subject);
  write.Bind(8, static_cast<int64_t>(problem.severity)).Bind(9, problem.text).Bind(10, problem.hostUuid);
  write.Bind(11, problem.firstUs).Bind(12, problem.lastUs).Bind(13, problem.times).Bind(14, problem.endedUs);
  write.Bind(15, problem.endedBy).Bind(16, problem.endedByEvent);
  write.Run();
}

}  // namespace mgmtd
