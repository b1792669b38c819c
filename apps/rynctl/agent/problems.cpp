// The command "problems".
#include <algorithm>

#include "hosted/paths.h"
#include "mgmtd/control/control.h"
#include "mgmtd/json/json.h"
#include "mgmtd/store/reader.h"
#include "rynctl/agent/agentCommands.h"
#include "rynctl/agent/agentControl.h"
#include "rynctl/agent/agentPrinter.h"
#include "rynctl/escape.h"
#include "rynctl/showing/width.h"

namespace rynctl {
namespace {

using nlohmann::ordered_json;

enum ProblemStatus : int { kNoneOpen = 0, kSomeOpen = 1, kNoAgent = 2 };
constexpr size_t kMostProblems = 100'000;

/// What the store's file says, added to `list`: the ended ones, and the open ones where the agent can't be asked.
void ReadStore(bool open, bool ended, ordered_json *list) {
  mgmtd::Reader reader(hosted::RootPath(mgmtd::kStoreFile));
  for (const mgmtd::Problem &problem : reader.Problems({ended, kMostProblems})) {
    if (problem.IsOpen() ? open : ended) list->push_back(mgmtd::ToJson(problem));
  }
}

void Print(const ordered_json &problems, bool color, size_t width, std::ostream &out) {
  if (!problems.empty()) out << ProblemHeading();
  for (const ordered_json &problem : problems) out << ProblemLines(problem, {color, width});
  out << ProblemSummary(problems) << '\n';
}

/// Say that the agent's store fails, when it does.
void SayHealth(Console *console) {
  ordered_json status;
  if (!AskAgent({{"do", "status"}}, &status).empty() || status.value("works", true)) return;
  console->Fail("the agent's store can't be written, so that events wait in its memory: " +
                status.value("problem", ""));
}

}  // namespace

int ProblemsCommand(const Words &words, Console &console) {
  CommandLine line("What is wrong now, the worst first.", "rynctl problems");
  bool all = false;
  bool json = false;
  std::string color = "auto";
  line.Footer(
      "Exit status: 0 no problem is open, 1 some are, 2 the management agent is not there.\n\n"
      "Examples:\n"
      "  rynctl problems\n"
      "  rynctl problems --json | jq -r '.problems[] | .name + \" \" + .subject'");
  line.Flag("--all", &all, "Show the ended ones, too");
  line.Flag("--json", &json, "Print a JSON object");
  line.Take("--color", &color, "When to color: auto, always or never").Shown("WHEN").OneOf({"auto", "always", "never"});
  if (const std::optional<int> status = line.Parse(words, console)) return *status;

  SayRoot(console);
  ordered_json answer;
  const std::string error = AskAgent({{"do", "problems"}}, &answer);
  const bool there = error.empty();
  ordered_json list = there ? answer.at("problems") : ordered_json::array();
  if (!there) console.Fail(error);
  try {
    if (all || !there) ReadStore(!there, all, &list);
    if (!there) console.err << "rynctl: what follows is what its store holds\n" << std::flush;
  } catch (const mgmtd::StoreError &failure) {
    console.Fail(failure.what());
    if (!there) return kNoAgent;
  }
  if (there) SayHealth(&console);
  if (json) {
    console.out << EscapeJson(mgmtd::Dump({{"problems", list}})) << '\n';
  } else {
    Print(list, UseColor(color, console), OutputWidth(console), console.out);
  }
  const int flushed = console.Flush();
  if (flushed != kDone) return flushed;
  const bool open = std::ranges::any_of(list, [](const ordered_json &problem) { return problem.at("open") == true; });
  return !there ? kNoAgent : open ? kSomeOpen : kNoneOpen;
}

}  // namespace rynctl
