// Reads the embedded texts into entries, once. What is wrong with them ends the program with the entry's name: the
// build and the tests read them too.
#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "catalog/catalog.h"
#include "catalog/texts.h"

namespace catalog {
namespace {

using Json = nlohmann::ordered_json;
using Texts = std::vector<std::string>;

constexpr std::string_view kSeverities[] = {"info", "warning", "error", "critical"};

struct Catalog {
  std::vector<Event> events;
  std::vector<Observation> observations;
};

Severity SeverityOf(const std::string &name) {
  const auto *place = std::ranges::find(kSeverities, name);
  if (place == std::end(kSeverities)) throw std::runtime_error("no severity: " + name);
  return static_cast<Severity>(place - std::begin(kSeverities));
}

Pairs PairsOf(const Json &object) {
  Pairs pairs;
  for (const auto &[mine, theirs] : object.items()) pairs.emplace_back(mine, theirs.get<std::string>());
  return pairs;
}

Clearing ClearingOf(const Json &json) {
  Clearing clearing{json.at("problem"), PairsOf(json.at("where")), std::nullopt};
  if (json.contains("without_names")) clearing.withoutNames = PairsOf(json["without_names"]);
  return clearing;
}

Event EventOf(const std::string &name, const Json &json, const Json &daemon) {
  Event event;
  event.name = name;
  event.category = daemon.at("category");
  event.message = daemon.at("message");
  event.severity = SeverityOf(json.at("severity"));
  event.means = json.at("means");
  event.impact = json.at("impact");
  event.action = json.at("action").get<Texts>();
  event.arguments = json.at("arguments").get<Texts>();
  for (const Json &subject : json.at("subject")) {
    event.subject.push_back(subject.is_object() ? Subject{subject.at("list"), true} : Subject{subject, false});
  }
  event.from = json.value("from", "");
  if (json.contains("clears")) {
    for (const Json &clearing : json["clears"]) event.clears.push_back(ClearingOf(clearing));
  }
  event.clearedByHand = json.value("cleared", "") == "by hand";
  event.settings = json.value("settings", Texts());
  event.tryLines = json.value("try", Texts());
  return event;
}

/// An argument as `rynctl submit` takes it. Text that could be taken for something else says that it is text.
std::string WordOf(const Json &value) {
  if (value.is_null()) return "null";
  if (!value.is_string()) return value.dump();
  std::string word = value;
  const bool number = !word.empty() && word.find_first_not_of("-0123456789") == std::string::npos;
  return number || word == "null" ? "s:" + word : word;
}
Texts WordsOf(const Json &array) {
  Texts words;
  for (const Json &value : array) words.push_back(WordOf(value));
  return words;
}

Try TryOf(const Json &json, const Texts &examples) {
  Try one;
  one.posts = json.at("posts").get<Texts>();
  if (json.contains("tree")) one.tree = PairsOf(json["tree"]);
  if (json.contains("link")) one.link.emplace(json["link"].at(0), json["link"].at(1));
  if (json.contains("before")) {
    for (const Json &before : json["before"]) one.before.push_back(WordsOf(before));
  }
  one.words = json.contains("arguments") ? WordsOf(json["arguments"]) : examples;
  one.times = json.value("times", 1);
  one.everyMs = json.value("every_ms", 0);
  return one;
}

Observation ObservationOf(const std::string &id, const Json &json, const Json &examples, const std::string &agent) {
  Observation observation;
  observation.id = id;
  observation.agent = agent;
  observation.anyArguments = json.at("arguments") == "any";
  Texts words;
  if (!observation.anyArguments) {
    for (const Json &argument : json["arguments"]) {
      observation.arguments.push_back({argument.at("name"), argument.at("type"), argument.value("optional", false)});
      const std::string &name = observation.arguments.back().name;
      words.push_back(WordOf(argument.contains("example") ? argument["example"] : examples.at(name)));
    }
  }
  observation.posts = json.at("posts").get<Texts>();
  observation.note = json.value("note", "");
  observation.settings = json.value("settings", Texts());
  if (json.contains("try")) {
    for (const Json &one : json["try"]) observation.tries.push_back(TryOf(one, words));
  } else {
    observation.tries.push_back({observation.posts, {}, {}, {}, words});
  }
  return observation;
}

/// Fill in what follows from the other entries.
void Connect(Catalog *catalog) {
  std::map<std::string_view, Event *> byName;
  for (Event &event : catalog->events) byName[event.name] = &event;
  for (const Observation &observation : catalog->observations) {
    for (const std::string &name : observation.posts) {
      if (const auto place = byName.find(name); place != byName.end()) {
        place->second->postedBy.push_back(observation.id);
      }
    }
  }
  for (const Event &event : catalog->events) {
    for (const Clearing &clearing : event.clears) {
      const auto place = byName.find(clearing.problem);
      if (place == byName.end() || std::ranges::count(place->second->clearedBy, event.name) > 0) continue;
      place->second->clearedBy.push_back(event.name);
    }
  }
}

void ReadText(const Json &text, const Json &daemon, Catalog *catalog) {
  std::string at;
  try {
    for (const auto &[name, json] : text.at("events").items()) {
      at = name;
      catalog->events.push_back(EventOf(name, json, daemon.at("events").at(name)));
    }
    for (const auto &[id, json] : text.at("observations").items()) {
      at = id;
      const Json &agent = daemon.at("observations").at(id);
      catalog->observations.push_back(ObservationOf(id, json, text.at("examples"), agent));
    }
  } catch (const std::exception &error) {
    throw std::runtime_error(at + ": " + error.what());
  }
}

Json Parse(const EmbeddedText &text) {
  std::string whole;
  for (const std::string_view piece : text.pieces) whole += piece;
  return Json::parse(whole);
}

Catalog ReadCatalog() {
  Catalog catalog;
  const Json daemon = Parse(kTexts.front());
  for (const EmbeddedText &text : kTexts.subspan(1)) ReadText(Parse(text), daemon, &catalog);
  std::ranges::sort(catalog.events, {}, &Event::name);
  std::ranges::sort(catalog.observations, {}, &Observation::id);
  Connect(&catalog);
  return catalog;
}

const Catalog &TheCatalog() {
  static const Catalog catalog = ReadCatalog();
  return catalog;
}

}  // namespace

std::string_view SeverityName(Severity severity) {
  return kSeverities[static_cast<size_t>(severity)];
}

const std::vector<Event> &Events() {
  return TheCatalog().events;
}
const std::vector<Observation> &Observations() {
  return TheCatalog().observations;
}

const Event *FindEvent(std::string_view name) {
  const auto place = std::ranges::lower_bound(Events(), name, {}, &Event::name);
  return place != Events().end() && place->name == name ? &*place : nullptr;
}
const Observation *FindObservation(std::string_view id) {
  const auto place = std::ranges::lower_bound(Observations(), id, {}, &Observation::id);
  return place != Observations().end() && place->id == id ? &*place : nullptr;
}

}  // namespace catalog
