// The journal, in its native protocol. The sink's thread.
#include "mgmtd/sinks/journalSink.h"

#include <sys/uio.h>

#include <array>
#include <cstring>
#include <nlohmann/json.hpp>

#include "catalog/catalog.h"
#include "hosted/log/journalDatagram.h"
#include "hosted/paths.h"
#include "mgmtd/json/json.h"

namespace mgmtd {
namespace {

constexpr size_t kMostFieldName = 64;  // the longest that the journal takes
constexpr size_t kMostSubjects = 256;

void AppendField(std::string_view name, std::string_view value, std::string *record) {
  record->append(name);
  if (value.find('\n') == std::string_view::npos) {
    record->append("=").append(value).append("\n");
    return;
  }
  record->append("\n");
  uint64_t size = value.size();  // little-endian whatever the machine
  for (int i = 0; i < 8; ++i, size >>= 8) *record += static_cast<char>(size & 0xff);
  record->append(value).append("\n");
}

/// The name of an argument as a field's: upper-case letters, digits and underscores.
std::string FieldName(const std::string &argument) {
  std::string name = "RYND_ARG_";
  for (const char c : argument) {
    const bool lower = c >= 'a' && c <= 'z';
    const bool fine = (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
    name += lower ? static_cast<char>(c - 'a' + 'A') : fine ? c : '_';
  }
  return name.substr(0, kMostFieldName);
}

/// As syslog counts.
const char *Priority(const StoredEvent &event) {
  if (event.severity == "critical") return "2";
  if (event.severity == "error") return "3";
  if (event.severity == "warning") return "4";
  return event.category == "clear" ? "5" : "6";
}

}  // namespace

std::string JournalRecord(const StoredEvent &event) {
  std::string record;
  AppendField("MESSAGE", event.text.empty() ? event.name : event.text, &record);
  AppendField("PRIORITY", Priority(event), &record);
  AppendField("SYSLOG_IDENTIFIER", "rynmgmtd", &record);
  if (catalog::FindEvent(event.name) != nullptr) AppendField("MESSAGE_ID", catalog::MessageId(event.name), &record);
  AppendField("RYND_EVENT", event.name, &record);
  AppendField("RYND_CATEGORY", event.category, &record);
  AppendField("RYND_SEVERITY", event.severity, &record);
  for (size_t i = 0; i < std::min(event.subjects.size(), kMostSubjects); ++i) {
    AppendField("RYND_SUBJECT", event.subjects[i], &record);
  }
  const nlohmann::json arguments = nlohmann::json::parse(event.argumentsJson, nullptr, false);
  for (const nlohmann::json &argument : arguments) {
    if (!argument.is_object() || !argument.contains("name") || !argument["name"].is_string()) continue;
    const nlohmann::json value = argument.value("value", nlohmann::json());
    if (value.is_null()) continue;
    AppendField(FieldName(argument["name"]), value.is_string() ? value.get<std::string>() : value.dump(), &record);
  }
  AppendField("RYND_TIME", IsoTime(event.timeUs), &record);
  AppendField("RYND_HOST", event.hostUuid, &record);
  AppendField("RYND_ID", std::to_string(event.id), &record);
  if (!event.damage.empty()) AppendField("RYND_DAMAGE", event.damage, &record);
  return record;
}

JournalSink::JournalSink(const std::string &storePath, Feed *feed, Writer *writer)
    : EventSink("journal", storePath, feed, writer), socket_(hosted::kJournalSocket) {}

Outcome JournalSink::Pass(const StoredEvent &event, std::string *error) {
  std::string record = JournalRecord(event);
  iovec part{record.data(), record.size()};
  switch (hosted::SendJournalDatagram(&socket_, &part, 1)) {
    case hosted::SendResult::kSent:
      return Outcome::kPassed;
    case hosted::SendResult::kFull:
      *error = "the journal takes nothing more for now";
      return Outcome::kRetry;
    case hosted::SendResult::kTooLong:
      *error = "no memory for a record of " + std::to_string(record.size()) + " bytes";
      return Outcome::kRetry;
    case hosted::SendResult::kNoListener:
      break;
  }
  *error = "no journal serves " + hosted::RootPath(hosted::kJournalSocket);
  return Outcome::kRetry;
}

}  // namespace mgmtd
