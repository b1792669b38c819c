// The command "check": is the daemon working, and if not, what to do.

#include "rynctl/commands/commands.h"
#include "rynctl/escape.h"
#include "rynctl/health/healthChecks.h"

namespace rynctl {
namespace {

/// Exit statuses as monitoring plug-ins have them.
constexpr int kStatuses[] = {0, 1, 2};
constexpr const char *kStates[] = {"ok", "warn", "FAIL"};
constexpr const char *kColors[] = {"32", "33", "31"};
constexpr size_t kSubjectWidth = 18;

void PrintText(const std::vector<HealthCheck> &checks, bool color, std::ostream &out) {
  for (const HealthCheck &check : checks) {
    const auto state = static_cast<size_t>(check.state);
    std::string word = kStates[state];
    word.resize(6, ' ');
    std::string subject = check.subject;
    if (subject.size() < kSubjectWidth) subject.resize(kSubjectWidth, ' ');
    out << Colored(word, kColors[state], color) << subject << EscapeForTerminal(check.text) << '\n';
    if (!check.action.empty())
      out << std::string(6 + kSubjectWidth, ' ') << "-> " << EscapeForTerminal(check.action) << '\n';
  }
}

void PrintJson(const std::vector<HealthCheck> &checks, HealthState worst, std::ostream &out) {
  nlohmann::ordered_json list = nlohmann::ordered_json::array();
  for (const HealthCheck &check : checks) {
    list.push_back({{"subject", check.subject},
                    {"state", kStates[static_cast<size_t>(check.state)]},
                    {"text", check.text},
                    {"action", check.action}});
  }
  const nlohmann::ordered_json report = {{"state", kStates[static_cast<size_t>(worst)]}, {"checks", list}};
  out << report.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) << '\n';
}

}  // namespace

int CheckCommand(const Words &words, Console &console) {
  CommandLine line("Is the daemon working? One line a subject, and what to do.", "rynctl check");
  bool json = false;
  std::string color = "auto";
  line.Footer(
      "Exit status: 0 all is well, 1 something deserves a look, 2 something fails, as\n"
      "monitoring plug-ins have it.\n\nExamples:\n  rynctl check\n"
      "  rynctl check --json | jq '.checks[] | select(.state != \"ok\")'");
  line.Flag("--json", &json, "Print a JSON object");
  line.Take("--color", &color, "When to color: auto, always or never").Shown("WHEN").OneOf({"auto", "always", "never"});
  if (const std::optional<int> status = line.Parse(words, console)) return *status;

  SayRoot(console);
  const std::vector<HealthCheck> checks = RunHealthChecks(console.err);
  HealthState worst = HealthState::kOk;
  for (const HealthCheck &check : checks) worst = std::max(worst, check.state);
  if (json) {
    PrintJson(checks, worst, console.out);
  } else {
    PrintText(checks, UseColor(color, console), console.out);
  }
  const int flushed = console.Flush();
  return flushed != kDone ? flushed : kStatuses[static_cast<size_t>(worst)];
}

}  // namespace rynctl
