// The command "catalog".

#include "catalog/explain.h"
#include "catalog/find.h"
#include "catalog/json.h"
#include "rynctl/commands/commands.h"
#include "text/suggest.h"

namespace rynctl {
namespace {

using Json = nlohmann::ordered_json;

struct Selection {
  std::string prefix;
  bool observations = false;
};

/// The entries that `selection` asks for, each on a line of its own.
void PrintJson(const Selection &selection, std::ostream &out) {
  out << "{\"version\":" << catalog::kJsonVersion << ",\"" << (selection.observations ? "observations" : "events")
      << "\":[";
  const char *separator = "\n";
  const auto print = [&](const std::string &name, const auto &entry) {
    if (!catalog::Matches(name, selection.prefix)) return;
    out << separator << catalog::ToJson(entry).dump();
    separator = ",\n";
  };
  if (selection.observations) {
    for (const catalog::Observation &observation : catalog::Observations()) print(observation.id, observation);
  } else {
    for (const catalog::Event &event : catalog::Events()) print(event.name, event);
  }
  out << "\n]}\n";
}

void PrintText(const Selection &selection, std::ostream &out) {
  if (selection.observations) {
    for (const catalog::Observation &observation : catalog::Observations()) {
      if (!catalog::Matches(observation.id, selection.prefix)) continue;
      out << observation.agent << '\t' << observation.id << '\t' << catalog::ArgumentsInWords(observation) << '\n';
    }
    return;
  }
  for (const catalog::Event &event : catalog::Events()) {
    if (!catalog::Matches(event.name, selection.prefix)) continue;
    out << (event.category == "problem" ? catalog::SeverityName(event.severity) : event.category) << '\t' << event.name
        << '\t' << catalog::MessageWithNames(event) << '\n';
  }
}

bool AnyMatches(const Selection &selection) {
  const auto matches = [&](const std::string &name) { return catalog::Matches(name, selection.prefix); };
  return selection.observations ? std::ranges::any_of(catalog::Observations(), matches, &catalog::Observation::id)
                                : std::ranges::any_of(catalog::Events(), matches, &catalog::Event::name);
}

}  // namespace

int CatalogCommand(const Words &words, Console &console) {
  CommandLine line("List the events that the daemon can post, or the observations that it handles.", "rynctl catalog");
  Selection selection;
  bool json = false;
  line.Footer(
      "A line is severity (of a problem) or category, name and text; with\n"
      "--observations agent, id and arguments. PREFIX may lack \"amb.\", the category\n"
      "or \"ryn.\".\n"
      "Examples:\n"
      "  rynctl catalog net.lacp\n"
      "  rynctl catalog --observations ryn.user\n"
      "  rynctl catalog --json | jq '.events[] | select(.severity == \"critical\").name'");
  line.Take("PREFIX", &selection.prefix, "Only names that begin so");
  line.Flag("--observations", &selection.observations, "Observations instead of events");
  line.Flag("--json", &json, "Print a JSON object, with its version");
  if (const std::optional<int> status = line.Parse(words, console)) return *status;

  if (!AnyMatches(selection)) {
    const catalog::Found found = catalog::Find(selection.prefix);
    return console.Fail("no name begins with " + selection.prefix + text::DidYouMean(found.suggestions));
  }
  if (json) {
    PrintJson(selection, console.out);
  } else {
    PrintText(selection, console.out);
  }
  return console.Flush();
}

}  // namespace rynctl
