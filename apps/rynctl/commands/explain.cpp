// The command "explain".

#include "catalog/explain.h"
#include "catalog/find.h"
#include "catalog/json.h"
#include "rynctl/commands/commands.h"
#include "rynctl/showing/width.h"
#include "text/suggest.h"

namespace rynctl {
namespace {

constexpr size_t kMostCandidates = 20;

/// Say why `name` leads to no entry. Returns kFailed.
int SayWhyNot(const std::string &name, const catalog::Found &found, Console *console) {
  if (found.candidates.empty()) {
    return console->Fail("nothing is called " + name + text::DidYouMean(found.suggestions) +
                         "; 'rynctl catalog' lists all");
  }
  console->Fail(std::to_string(found.candidates.size()) + " names begin with " + name + ":");
  for (size_t i = 0; i < std::min(kMostCandidates, found.candidates.size()); ++i) {
    console->err << "  " << found.candidates[i] << '\n';
  }
  if (found.candidates.size() > kMostCandidates) console->err << "  ... ('rynctl catalog " << name << "' lists all)\n";
  return kFailed;
}

void Print(const catalog::Found &found, bool json, const Console &console) {
  if (json) {
    console.out
        << (found.event != nullptr ? catalog::ToJson(*found.event) : catalog::ToJson(*found.observation)).dump(2)
        << '\n';
    return;
  }
  catalog::Style style{OutputWidth(console), {}, {}};
  if (UseColor("auto", console)) style = {style.width, "\x1b[1m", "\x1b[0m"};
  console.out << (found.event != nullptr ? catalog::Explain(*found.event, style)
                                         : catalog::Explain(*found.observation, style));
}

}  // namespace

int ExplainCommand(const Words &words, Console &console) {
  CommandLine line("Explain an event or an observation: what it means, what it does, what to do.", "rynctl explain");
  std::string name;
  bool json = false;
  line.Footer(
      "NAME may lack \"amb.\", the category or \"ryn.\", and its end when only one name\nbegins so.\n"
      "Examples:\n"
      "  rynctl explain amb.problem.storage.apd.start\n"
      "  rynctl explain net.connectivity.lost\n"
      "  rynctl explain ryn.pageretire.mce");
  line.Take("NAME", &name, "Event or observation");
  line.Flag("--json", &json, "Print a JSON object");
  if (const std::optional<int> status = line.Parse(words, console)) return *status;
  if (name.empty()) return line.UsageError("NAME is required", console);

  const catalog::Found found = catalog::Find(name);
  if (found.event == nullptr && found.observation == nullptr) return SayWhyNot(name, found, &console);
  Print(found, json, console);
  return console.Flush();
}

}  // namespace rynctl
