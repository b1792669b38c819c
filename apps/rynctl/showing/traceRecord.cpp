// Records of the daemon's JSON feed. Stateless but for the filter: any thread.
#include "rynctl/showing/traceRecord.h"

#include <algorithm>
#include <array>
#include <utility>

#include "rynctl/console.h"
#include "rynctl/escape.h"
#include "rynctl/showing/eventTime.h"

namespace rynctl {
namespace {

using json = nlohmann::ordered_json;

constexpr size_t kMostShown = 10'000;  ///< events whose deliveries are recognised

struct KindName {
  const char *direction;
  TraceRecord::Kind kind;
  const char *shown;
  const char *color;
};
constexpr auto kKinds = std::to_array<KindName>({
    {"in", TraceRecord::Kind::kIn, "IN  ", "36"},
    {"out", TraceRecord::Kind::kOut, "OUT ", "33"},
    {"delivery", TraceRecord::Kind::kDelivery, "", ""},
    {"drop", TraceRecord::Kind::kDrop, "DROP", "31"},
    {"lost", TraceRecord::Kind::kLost, "LOST", "35"},
});

const KindName &NameOf(TraceRecord::Kind kind) {
  return *std::find_if(kKinds.begin(), kKinds.end(), [kind](const KindName &name) { return name.kind == kind; });
}

/// A member that must be a text; "" when it is none.
std::string Text(const json &object, const char *member) {
  const auto found = object.find(member);
  return found != object.end() && found->is_string() ? found->get<std::string>() : "";
}

uint64_t Number(const json &object, const char *member) {
  const auto found = object.find(member);
  return found != object.end() && found->is_number_unsigned() ? found->get<uint64_t>() : 0;
}

std::vector<std::string> AgentsOf(const json &object) {
  std::vector<std::string> agents;
  if (const std::string agent = Text(object, "agent"); !agent.empty()) agents.push_back(agent);
  const auto list = object.find("agents");
  if (list == object.end() || !list->is_array()) return agents;
  for (const json &agent : *list) {
    if (agent.is_string()) agents.push_back(agent);
  }
  return agents;
}

/// The arguments as a person reads them: ("naa.1", 140, null).
std::string ArgumentsText(const json &object) {
  const auto list = object.find("args");
  std::string text;
  if (list == object.end() || !list->is_array()) return text;
  for (const json &argument : *list) {
    if (!argument.is_object() || argument.empty()) continue;
    text += text.empty() ? "" : ", ";
    text += argument.begin()->dump(-1, ' ', false, json::error_handler_t::replace);
  }
  return " (" + EscapeForTerminal(text) + ")";
}

std::string JoinedNames(const std::vector<std::string> &names) {
  std::string text;
  for (const std::string &name : names) text += (text.empty() ? "" : ", ") + name;
  return EscapeForTerminal(text);
}

/// What an event was posted for: "  <- APD, ryn.storage.apd.start".
std::string CauseText(const TraceRecord &record) {
  std::string text = record.agents.empty() ? "" : "  <- " + JoinedNames(record.agents);
  const auto because = record.object.find("because");
  if (because == record.object.end() || !because->is_object()) return text;
  const std::string timer = Text(*because, "timer");
  return text + (text.empty() ? "  <- " : ", ") + EscapeForTerminal(timer.empty() ? Text(*because, "id") : timer);
}

}  // namespace

std::optional<TraceRecord> ParseTraceRecord(std::string_view line) {
  json object = json::parse(line, nullptr, false);
  if (!object.is_object()) return std::nullopt;
  const std::string direction = Text(object, "dir");
  const auto kind =
      std::find_if(kKinds.begin(), kKinds.end(), [&](const KindName &name) { return name.direction == direction; });
  if (kind == kKinds.end()) return std::nullopt;
  TraceRecord record{kind->kind, Number(object, "us"), json(), Text(object, "id"), AgentsOf(object)};
  const bool hasId = record.kind != TraceRecord::Kind::kLost && record.kind != TraceRecord::Kind::kDelivery;
  if (hasId && record.id.empty()) return std::nullopt;
  record.object = std::move(object);
  return record;
}

const std::map<std::string, std::set<std::string>> &SubsystemAgents() {
  static const std::map<std::string, std::set<std::string>> agents = {
      {"hardware", {"Clock", "Fabra", "HCM", "Hardware", "Memtier", "cpu", "pageretire", "sched"}},
      {"network", {"migrate", "net"}},
      {"storage", {"APD", "BootDevice", "Kvol", "SWAP", "Velfs", "Vfat", "hyfs", "iscsi", "psastor", "scsi", "vscsi"}},
      {"user", {"Generic", "UserLevel", "UserWorld", "VM"}},
  };
  return agents;
}

bool TraceFilter::Wants(TraceRecord *record) {
  using Kind = TraceRecord::Kind;
  if (record->kind == Kind::kLost) return true;
  if (record->kind == Kind::kIn ? choice_.out : choice_.in) return false;
  if (record->kind == Kind::kDelivery) {
    const auto found = shown_.find(Number(record->object, "seq"));
    if (found == shown_.end()) return choice_.ids.empty() && choice_.agents.empty();
    record->id = found->second;
    return true;
  }
  const auto begins = [record](const std::string &prefix) { return record->id.starts_with(prefix); };
  if (!choice_.ids.empty() && std::none_of(choice_.ids.begin(), choice_.ids.end(), begins)) return false;
  const auto isChosen = [this](const std::string &agent) { return choice_.agents.contains(agent); };
  if (!choice_.agents.empty() && std::none_of(record->agents.begin(), record->agents.end(), isChosen)) return false;
  if (record->kind == Kind::kOut) Remember(Number(record->object, "seq"), record->id);
  return true;
}

void TraceFilter::Remember(uint64_t sequence, const std::string &id) {
  shown_[sequence] = id;
  if (shown_.size() > kMostShown) shown_.erase(shown_.begin());
}

std::string TraceText(const TraceRecord &record, LineStyle style) {
  using Kind = TraceRecord::Kind;
  const std::string time = LocalTime(record.microseconds, style.date) + "  ";
  const KindName &name = NameOf(record.kind);
  const json &object = record.object;
  const std::string id = EscapeForTerminal(record.id);
  if (record.kind == Kind::kDelivery) {
    const bool isSent = Text(object, "result") == "sent";
    return time + Colored(isSent ? "SENT" : "WAIT", isSent ? "32" : "35", style.color) + "  " +
           (id.empty() ? "event" : id) + " #" + std::to_string(Number(object, "seq")) +
           (isSent ? "" : ": the management agent does not take it yet");
  }
  const std::string kind = time + Colored(name.shown, name.color, style.color) + "  ";
  if (record.kind == Kind::kLost) {
    return kind + std::to_string(Number(object, "count")) + " lines: this client was too slow";
  }
  if (record.kind == Kind::kDrop) {
    return kind + id + ": dropped, reason " + EscapeForTerminal(Text(object, "reason")) + CauseText(record);
  }
  const std::string said = id + "  " + EscapeForTerminal(Text(object, "text")) + ArgumentsText(object);
  if (record.kind == Kind::kOut) return kind + said + CauseText(record);
  return kind + said + "  -> " + (record.agents.empty() ? "nobody" : JoinedNames(record.agents));
}

std::string TraceJson(const TraceRecord &record) {
  return EscapeJson(record.object.dump(-1, ' ', false, json::error_handler_t::replace));
}

}  // namespace rynctl
