// The command "catalog".
#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "correlators/catalog.h"
#include "rynctl/commands/commands.h"
#include "rynctl/eventPrinter.h"

namespace rynctl {
namespace {

/// A JSON array with one message a line.
void PrintJson(std::ostream &out) {
  const char *separator = "[\n";
  for (const rynd::CatalogMessage &message : rynd::Catalog()) {
    const nlohmann::ordered_json object = {
        {"category", CategoryName(message.category)}, {"name", message.name}, {"message", message.message}};
    out << separator << object.dump();
    separator = ",\n";
  }
  out << (rynd::Catalog().empty() ? "[]\n" : "\n]\n");
}

}  // namespace

int CatalogCommand(const Words &words, Console &console) {
  CLI::App app("Print every event that the daemon can post: category, name and printf message.", "rynctl catalog");
  bool json = false;
  app.footer("Example:\n  rynctl catalog --json | jq '.[] | select(.category == \"problem\")'");
  app.add_flag("--json", json, "Print a JSON array");
  if (const std::optional<int> status = ParseCommandLine(app, words, console)) return *status;

  if (json) {
    PrintJson(console.out);
  } else {
    for (const rynd::CatalogMessage &message : rynd::Catalog()) {
      console.out << CategoryName(message.category) << '\t' << message.name << '\t' << message.message << '\n';
    }
  }
  return console.Flush();
}

}  // namespace rynctl
