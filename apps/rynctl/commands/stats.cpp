// The command "stats".
#include <poll.h>

#include <array>
#include <ctime>
#include <sstream>

#include "rynctl/commands/commands.h"
#include "rynctl/escape.h"
#include "rynctl/health/statistics.h"
#include "rynctl/stopSignals.h"

namespace rynctl {
namespace {

using nlohmann::json;

constexpr std::chrono::milliseconds kConnectLimit(5000);

struct StatsOptions {
  bool json = false;
  bool watch = false;
  double interval = 1;
  double wait = 0;
};

/// The columns behind an agent's name.
struct Column {
  const char *title;
  const char *member;
  int width;
};
constexpr std::array<Column, 7> kColumns = {{{"RECEIVED", "received", 10},
                                             {"HANDLED", "handled", 10},
                                             {"UNHANDLED", "unhandled", 10},
                                             {"POSTED", "posted", 8},
                                             {"DROPPED", "dropped", 8},
                                             {"WAITING", "waitingBytes", 9},
                                             {"BUSY", "busyUs", 9}}};
constexpr int kNameWidth = 13;

std::string Padded(const std::string &text, int width) {
  const auto wanted = static_cast<size_t>(width);
  return text.size() < wanted ? std::string(wanted - text.size(), ' ') + text : " " + text;
}

/// A number of bytes for people.
std::string BytesText(uint64_t bytes) {
  if (bytes < 10'000) return std::to_string(bytes) + " B";
  return std::to_string(bytes / 1000) + " kB";
}

std::string CellText(const json &agent, const Column &column) {
  const uint64_t value = agent.at(column.member);
  if (std::string_view(column.member) == "busyUs") return DurationText(value);
  if (std::string_view(column.member) == "waitingBytes") return BytesText(value);
  return std::to_string(value);
}

void PrintAgents(const json &statistics, std::ostream &out) {
  std::string line = "AGENT";
  line.resize(kNameWidth, ' ');
  for (const Column &column : kColumns) line += Padded(column.title, column.width);
  out << line << '\n';
  for (const json &agent : statistics.at("agents")) {
    line = EscapeForTerminal(agent.at("name").get<std::string>());
    if (line.size() < kNameWidth) line.resize(kNameWidth, ' ');
    for (const Column &column : kColumns) line += Padded(CellText(agent, column), column.width);
    out << line << (agent.at("alive") ? "" : "  has ended") << '\n';
  }
}

uint64_t Sum(const json &list, const char *member) {
  uint64_t sum = 0;
  for (const json &entry : list) sum += (member == nullptr ? entry : entry.at(member)).get<uint64_t>();
  return sum;
}

/// The reasons that counted something, in brackets: " (5 rate)"; "" for none.
std::string ReasonsText(const json &reasons) {
  std::string text;
  for (const auto &[reason, count] : reasons.items()) {
    if (count == 0) continue;
    text += (text.empty() ? " (" : ", ") + count.dump() + " " + EscapeForTerminal(reason);
  }
  return text.empty() ? "" : text + ")";
}

/// Two lines that add up when the daemon is at rest, and what stands beside them.
void PrintLedger(const json &statistics, std::ostream &out) {
  const json &records = statistics.at("records");
  const json &events = statistics.at("events");
  out << "observations: " << Sum(statistics.at("contexts"), "records") << " received = "  //
      << records.at("matched") << " matched + " << records.at("unmatched") << " that no agent wants";
  if (records.at("unsound") != 0) out << " + " << records.at("unsound") << " unsound";
  out << "\nevents:       " << events.at("posted") << " posted = " << Sum(events.at("dropped"), nullptr) << " dropped"
      << ReasonsText(events.at("dropped")) << " + " << events.at("sent") << " sent + " << events.at("waiting")
      << " waiting";
  if (events.at("waiting") != 0) out << ", the oldest for " << DurationText(events.at("oldestWaitingUs"));
  json discarded = json::object();
  for (const json &context : statistics.at("contexts")) {
    for (const auto &[reason, count] : context.at("discarded").items()) {
      discarded[reason] = discarded.value(reason, uint64_t{0}) + count.get<uint64_t>();
    }
  }
  if (!discarded.empty()) out << "\nbad records:  " << Sum(discarded, nullptr) << ReasonsText(discarded);
  const json &log = statistics.at("log");
  const json &trace = statistics.at("trace");
  const json &connections = statistics.at("connections");
  out << "\nlog:          " << log.at("records") << " lines, " << log.at("dropped") << " dropped\n"
      << "programs:     " << connections.at("now") << " connected, " << connections.at("accepted") << " so far, "
      << connections.at("refused") << " refused\n"
      << "trace:        " << trace.at("clients") << " clients, " << trace.at("lines") << " lines, " << trace.at("lost")
      << " lost\n";
}

std::string ReportText(const json &statistics) {
  std::ostringstream out;
  const uint64_t startedUs = statistics.at("startedUs");
  const uint64_t nowUs = statistics.at("nowUs");
  out << "rynd " << EscapeForTerminal(statistics.at("version").get<std::string>()) << ", process "
      << statistics.at("pid") << ", runs for " << DurationText(nowUs > startedUs ? nowUs - startedUs : 0) << "\n\n";
  PrintAgents(statistics, out);
  out << '\n';
  PrintLedger(statistics, out);
  return out.str();
}

/// Fetch and print once. An exit status.
int PrintOnce(const StatsOptions &options, const StopSignals &signals, Console &console) {
  Patience patience{console.err, kConnectLimit, kConnectLimit, SecondsOf(options.wait), &signals};
  json statistics;
  const std::string error = FetchStatistics(&patience, &statistics);
  if (signals.Wanted()) return kDone;
  if (!error.empty()) return console.Fail(error);
  if (options.watch && !options.json && console.terminal) console.out << "\033[H\033[2J";
  console.out << (options.json ? statistics.dump() + '\n' : ReportText(statistics));
  if (options.watch && !options.json && !console.terminal) console.out << '\n';
  return console.Flush();
}

}  // namespace

int StatsCommand(const Words &words, Console &console) {
  CommandLine line("Show what the daemon has counted: its agents, and where everything went.", "rynctl stats");
  StatsOptions options;
  line.Footer(
      "Received is handled + unhandled, an event is dropped, sent or waiting: at rest the\n"
      "sums agree.\n\nExamples:\n  rynctl stats\n  rynctl stats --watch\n"
      "  rynctl stats --json | jq .events");
  line.Flag("--watch", &options.watch, "Again every second, until a signal");
  line.Take("--interval", &options.interval, "Seconds between two looks").Shown("SECONDS").Checked(CheckSeconds);
  line.Flag("--json", &options.json, "Print the daemon's own object");
  AddWaitOption(&line, &options.wait);
  if (const std::optional<int> status = line.Parse(words, console)) return *status;

  SayRoot(console);
  const StopSignals signals;
  for (;;) {
    const int status = PrintOnce(options, signals, console);
    if (status != kDone || !options.watch || signals.Wanted()) return status;
    const auto interval = SecondsOf(options.interval).count();
    const timespec pause{static_cast<time_t>(interval / 1000), static_cast<long>(interval % 1000 * 1'000'000)};
    ppoll(nullptr, 0, &pause, signals.PollMask());
    if (signals.Wanted()) return kDone;
  }
}

}  // namespace rynctl
