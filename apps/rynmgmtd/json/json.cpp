// Events and problems as JSON. Stateless: any thread.
#include "mgmtd/json/json.h"

namespace mgmtd {

using Json = nlohmann::ordered_json;

Json ToJson(const StoredEvent &event) {
  Json json = {{"id", event.id},
               {"time", IsoTime(event.timeUs)},
               {"received", IsoTime(event.receivedUs)},
               {"name", event.name},
               {"category", event.category},
               {"severity", event.severity},
               {"subjects", event.subjects},
               {"text", event.text}};
  Json arguments = Json::parse(event.argumentsJson, nullptr, false);
  json["arguments"] = arguments.is_array() ? std::move(arguments) : Json::array();
  json["host"] = event.hostUuid;
  json["sequence"] = event.sequence;
  if (!event.damage.empty()) json["damage"] = event.damage;
  return json;
}

Json ToJson(const Problem &problem) {
  Json json = {{"id", problem.eventId},
               {"problem", problem.id},
               {"name", problem.name},
               {"severity", catalog::SeverityName(problem.severity)},
               {"subject", problem.subject},
               {"about", Json::object()},
               {"text", problem.text},
               {"host", problem.hostUuid},
               {"since", IsoTime(problem.firstUs)},
               {"last", IsoTime(problem.lastUs)},
               {"times", problem.times},
               {"open", problem.IsOpen()}};
  for (const auto &[name, value] : problem.about) json["about"][name] = value;
  if (!problem.IsOpen()) {
    json["ended"] = IsoTime(problem.endedUs);
    json["endedBy"] = problem.endedBy;
    json["endedByEvent"] = problem.endedByEvent;
  }
  return json;
}

std::string Dump(const Json &json) {
  return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

}  // namespace mgmtd
