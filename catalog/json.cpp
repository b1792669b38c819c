// Entries as JSON. Stateless: any thread.
#include "catalog/json.h"

namespace catalog {
namespace {

using Json = nlohmann::ordered_json;

Json PairsJson(const Pairs &pairs) {
  Json object = Json::object();
  for (const auto &[mine, theirs] : pairs) object[mine] = theirs;
  return object;
}

Json ClearingJson(const Clearing &clearing) {
  Json json = {{"problem", clearing.problem}, {"where", PairsJson(clearing.where)}};
  if (clearing.withoutNames) json["without_names"] = PairsJson(*clearing.withoutNames);
  return json;
}

Json ArgumentJson(const Argument &argument) {
  Json json = {{"name", argument.name}, {"type", argument.type}};
  if (argument.optional) json["optional"] = true;
  return json;
}

}  // namespace

Json ToJson(const Event &event) {
  Json json = {{"name", event.name},
               {"category", event.category},
               {"message", event.message},
               {"message_id", MessageId(event.name)},
               {"severity", SeverityName(event.severity)},
               {"means", event.means},
               {"impact", event.impact},
               {"action", event.action},
               {"arguments", event.arguments},
               {"subject", Json::array()}};
  for (const Subject &subject : event.subject) {
    json["subject"].push_back(subject.list ? Json{{"list", subject.argument}} : Json(subject.argument));
  }
  json["posted_by"] = event.postedBy;
  if (!event.from.empty()) json["from"] = event.from;
  json["clears"] = Json::array();
  for (const Clearing &clearing : event.clears) json["clears"].push_back(ClearingJson(clearing));
  json["cleared_by"] = event.clearedBy;
  if (event.clearedByHand) json["cleared"] = "by hand";
  json["settings"] = event.settings;
  return json;
}

Json ToJson(const Observation &observation) {
  Json json = {{"id", observation.id}, {"agent", observation.agent}, {"arguments", Json::array()}};
  for (const Argument &argument : observation.arguments) json["arguments"].push_back(ArgumentJson(argument));
  if (observation.anyArguments) json["arguments"] = "any";
  json["posts"] = observation.posts;
  if (!observation.note.empty()) json["note"] = observation.note;
  json["settings"] = observation.settings;
  return json;
}

Json WholeCatalog() {
  Json json = {{"version", kJsonVersion}, {"program", "rynd " RYND_VERSION}};
  json["events"] = Json::array();
  for (const Event &event : Events()) json["events"].push_back(ToJson(event));
  json["observations"] = Json::array();
  for (const Observation &observation : Observations()) json["observations"].push_back(ToJson(observation));
  return json;
}

}  // namespace catalog
