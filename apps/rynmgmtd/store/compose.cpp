// The decoder's words become the store's; every text becomes UTF-8.
#include "mgmtd/store/compose.h"

#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "base/terminalText.h"
#include "eventRecord/eventDecoder.h"

namespace mgmtd {
namespace {

using nlohmann::ordered_json;

/// The end of the year 9999: no clock of a host says more.
constexpr uint64_t kLastUs = 253'402'300'799'999'999;

/// `text` with NULs and bytes that are no UTF-8 as \xNN.
std::string Utf8(std::string_view text) {
  std::string clean;
  clean.reserve(text.size());
  while (!text.empty()) {
    const base::Utf8Character character = base::FirstCharacter(text);
    if (character.length == 0 || character.code == 0) {
      char escaped[8];
      std::snprintf(escaped, sizeof escaped, "\\x%02x", static_cast<unsigned char>(text[0]));
      clean += escaped;
      text.remove_prefix(1);
      continue;
    }
    clean += text.substr(0, character.length);
    text.remove_prefix(character.length);
  }
  return clean;
}

std::string CategoryWord(std::optional<rynd::Category> category) {
  if (category == rynd::kProblem) return "problem";
  if (category == rynd::kAudit) return "audit";
  if (category == rynd::kClear) return "clear";
  return "unknown";
}

ordered_json ArgumentValue(const hosted::EventArgument &argument) {
  if (argument.kind == MsgFmtKind::kSigned) return static_cast<int64_t>(argument.bits);
  if (argument.kind == MsgFmtKind::kUnsigned) return argument.bits;
  if (argument.kind == MsgFmtKind::kString) return Utf8(argument.text);
  return nullptr;
}

std::string ValueText(const ordered_json &value) {
  if (value.is_string()) return value.get<std::string>();
  return value.is_null() ? "(null)" : value.dump();
}

/// [{"name": ..., "value": ...}]; arguments that the catalogue does not name are called by their number.
ordered_json Arguments(const std::vector<hosted::EventArgument> &arguments, const catalog::Event *entry) {
  ordered_json list = ordered_json::array();
  for (size_t i = 0; i < arguments.size(); ++i) {
    const bool named = entry != nullptr && i < entry->arguments.size();
    list.push_back(
        {{"name", named ? entry->arguments[i] : std::to_string(i + 1)}, {"value", ArgumentValue(arguments[i])}});
  }
  return list;
}

NamedValues NamedValuesOf(const ordered_json &arguments) {
  NamedValues values;
  for (const ordered_json &argument : arguments) {
    values.emplace_back(argument.at("name").get<std::string>(), ValueText(argument.at("value")));
  }
  return values;
}

/// Each value of a subject once, empty ones left out.
std::vector<std::string> SubjectValues(const std::vector<NamedValues> &subjects) {
  std::vector<std::string> values;
  std::set<std::string> seen;
  for (const NamedValues &subject : subjects) {
    for (const auto &[argument, value] : subject) {
      if (!value.empty() && seen.insert(value).second) values.push_back(value);
    }
  }
  return values;
}

/// What is wrong with the record, and a time that a clock may say.
void TakeDamage(const eventrecord::DecodedEvent &decoded, const std::string &cut, StoredEvent *event) {
  std::vector<std::string> problems = decoded.problems;
  if (!cut.empty()) problems.push_back(cut);
  event->timeUs = static_cast<int64_t>(std::min(decoded.microseconds, kLastUs));
  if (decoded.microseconds == 0 || decoded.microseconds > kLastUs) {
    problems.emplace_back("its time can't be right: that of its reception stands for it");
    event->timeUs = event->receivedUs;
  }
  for (const std::string &problem : problems) event->damage += (event->damage.empty() ? "" : "; ") + Utf8(problem);
}

}  // namespace

Composed Compose(ReceivedRecord record) {
  const eventrecord::DecodedEvent decoded = eventrecord::DecodeEvent(record.bytes.data(), record.bytes.size());
  Composed composed;
  StoredEvent &event = composed.event;
  event.receivedUs = record.receivedUs;
  TakeDamage(decoded, record.cut, &event);
  event.sequence = decoded.sequence;
  event.hostUuid = Utf8(decoded.hostUuid);
  event.name = Utf8(decoded.name);
  event.category = CategoryWord(decoded.category);
  event.text = Utf8(decoded.text);
  event.raw.assign(reinterpret_cast<const char *>(record.bytes.data()), record.bytes.size());

  const catalog::Event *entry = catalog::FindEvent(decoded.name);
  const ordered_json arguments = Arguments(decoded.arguments, entry);
  event.argumentsJson = arguments.dump();
  event.severity = catalog::SeverityName(entry == nullptr ? catalog::Severity::kInfo : entry->severity);
  if (entry == nullptr) return composed;
  NamedValues values = NamedValuesOf(arguments);
  event.subjects = SubjectValues(SubjectsOf(*entry, values));
  if (!event.damage.empty()) return composed;
  composed.happening = {entry, 0, event.timeUs, std::move(values), event.text, event.hostUuid};
  return composed;
}

Happening HappeningOf(const StoredEvent &event) {
  Happening happening;
  happening.eventId = event.id;
  if (!event.damage.empty()) return happening;
  const ordered_json arguments = ordered_json::parse(event.argumentsJson, nullptr, false);
  const catalog::Event *entry = catalog::FindEvent(event.name);
  if (entry == nullptr || !arguments.is_array()) return happening;
  return {entry, event.id, event.timeUs, NamedValuesOf(arguments), event.text, event.hostUuid};
}

}  // namespace mgmtd
