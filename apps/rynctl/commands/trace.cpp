// The command "trace".
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "hosted/paths.h"
#include "rynctl/commands/commands.h"
#include "rynctl/daemonSocket.h"
#include "rynctl/escape.h"
#include "rynctl/showing/eventPrinter.h"
#include "rynctl/showing/outputQueue.h"
#include "rynctl/showing/traceLine.h"
#include "rynctl/showing/traceRecord.h"
#include "rynctl/stopSignals.h"

namespace rynctl {
namespace {

/// A line that is longer is printed in pieces; the daemon's own are shorter.
constexpr size_t kMaxLine = 1024 * 1024;
constexpr std::chrono::milliseconds kConnectLimit(5000);

struct TraceOptions : PrintOptions {
  TraceChoice choice;
  std::vector<std::string> agents;
  std::vector<std::string> subsystems;
  bool raw = false;
  double wait = 0;
};

/// Prints the lines that the options ask for.
class TracePrinter {
 public:
  TracePrinter(const TraceOptions &options, LineStyle style, OutputQueue *output)
      : options_(options), filter_(options.choice), style_(style), output_(output) {}

  /// Print one line, without its end.
  void Print(std::string_view text) {
    if (options_.raw) return PrintRaw(text);
    std::optional<TraceRecord> record = ParseTraceRecord(text);
    // What is none of the feed's objects: its first answer, or text that came before the daemon had heard of JSON.
    if (!record || !filter_.Wants(&*record)) return;
    output_->Print((options_.json ? TraceJson(*record) : TraceText(*record, style_)) + '\n');
    if (record->kind != TraceRecord::Kind::kLost) ++printed_;
  }
  bool Done() const { return options_.count != 0 && printed_ >= options_.count; }

 private:
  /// A line of the text feed; one of another form is shown as it is.
  void PrintRaw(std::string_view text) {
    const std::optional<TraceLine> line = ParseTraceLine(text);
    if (line && !Wanted(*line)) return;
    output_->Print(EscapeForTerminal(text) + '\n');
    if (!line || line->kind != TraceLine::Kind::kLost) ++printed_;
  }
  /// What was lost is always shown: the reader must know that lines are missing.
  bool Wanted(const TraceLine &line) const {
    if (line.kind == TraceLine::Kind::kLost) return true;
    const TraceChoice &choice = options_.choice;
    if (line.kind == TraceLine::Kind::kIn ? choice.out : choice.in) return false;
    return choice.ids.empty() || std::any_of(choice.ids.begin(), choice.ids.end(),
                                             [&](const std::string &prefix) { return line.id.starts_with(prefix); });
  }

  const TraceOptions &options_;
  TraceFilter filter_;
  const LineStyle style_;
  OutputQueue *const output_;
  uint64_t printed_ = 0;
};

/// Print the whole lines at the front of `pending` and take them off; at the feed's end, the rest too.
void PrintLines(std::string *pending, bool end, TracePrinter *printer) {
  size_t start = 0;
  while (start < pending->size() && !printer->Done()) {
    const size_t newline = pending->find('\n', start);
    if (newline == std::string::npos && !end && pending->size() - start < kMaxLine) break;
    const size_t stop = std::min(newline, pending->size());
    printer->Print(std::string_view(*pending).substr(start, stop - start));
    start = std::min(stop + 1, pending->size());
  }
  pending->erase(0, start);
}

/// Read what there is of the feed into `pending`. False at its end.
bool ReadFeed(int fd, std::string *pending) {
  char chunk[16 * 1024];
  const ssize_t count = recv(fd, chunk, sizeof chunk, 0);
  if (count > 0) pending->append(chunk, static_cast<size_t>(count));
  return count > 0 || (count < 0 && (errno == EAGAIN || errno == EINTR));
}

/// Follow the feed until a signal, the wanted number of lines, its end, or an output that takes no more. While the
/// output takes nothing the feed is not read: the daemon counts what this client misses.
int Follow(int fd, const TraceOptions &options, const StopSignals &signals, Console &console) {
  OutputQueue output(&console, [](uint64_t) { return ""; });
  TracePrinter printer(options, {UseColor(options.color, console), options.date}, &output);
  std::string pending;
  bool served = true;
  while (served && !printer.Done() && !signals.Wanted() && !output.HasFailed()) {
    pollfd set[] = {{output.HasRoom() ? fd : -1, POLLIN, 0}, {output.ChangedFd(), POLLIN, 0}};
    if (ppoll(set, 2, nullptr, signals.PollMask()) < 0 && errno != EINTR) {
      return console.Fail(std::string("cannot wait: ") + std::strerror(errno));
    }
    output.Noticed();
    if (set[0].revents == 0) continue;
    served = ReadFeed(fd, &pending);
    PrintLines(&pending, !served, &printer);
  }
  const int status = output.Finish(signals);
  if (status != kDone || served || printer.Done()) return status;
  return console.Fail("the daemon ended the trace (see whether rynd still runs; start it again)");
}

void Declare(CommandLine &line, TraceOptions *options) {
  line.Footer(
      "IN is an observation and who was given it, OUT an event and what it came of,\n"
      "SENT, WAIT and DROP what became of it.\n\n"
      "Examples:\n"
      "  rynctl trace --subsystem storage\n"
      "  rynctl trace --out --json --count 1\n"
      "  rynctl trace --id ryn.storage --id amb.problem.storage");
  line.Flag("--raw", &options->raw, "Print the daemon's text feed, time in microseconds");
  line.Take("--id", &options->choice.ids, "Only ids that begin with PREFIX; again for more").Shown("PREFIX").Repeated();
  std::vector<std::string> names;
  for (const auto &[name, agents] : SubsystemAgents()) names.push_back(name);
  line.Take("--subsystem", &options->subsystems, "Only of hardware, network, storage or user")
      .Shown("NAME")
      .Repeated()
      .Checked([names](const std::string &name) {
        return std::count(names.begin(), names.end(), name) > 0 ? "" : "unknown subsystem '" + name + "'";
      });
  line.Take("--agent", &options->agents, "Only of the agent, such as APD; again for more").Shown("NAME").Repeated();
  const Declared in = line.Flag("--in", &options->choice.in, "Only observations");
  line.Flag("--out", &options->choice.out, "Only events and what becomes of them").Excludes(in);
  AddPrintOptions(&line, options);
  AddWaitOption(&line, &options->wait);
}

/// "" or what is wrong with the agents that were asked for; chooses them.
std::string ChooseAgents(TraceOptions *options) {
  for (const std::string &subsystem : options->subsystems) {
    const std::set<std::string> &agents = SubsystemAgents().at(subsystem);
    options->choice.agents.insert(agents.begin(), agents.end());
  }
  for (const std::string &agent : options->agents) {
    const auto knows = [&](const auto &entry) { return entry.second.contains(agent); };
    if (std::none_of(SubsystemAgents().begin(), SubsystemAgents().end(), knows)) {
      return "no agent is called '" + agent + "' (see `rynctl stats`)";
    }
    options->choice.agents.insert(agent);
  }
  return "";
}

}  // namespace

int TraceCommand(const Words &words, Console &console) {
  CommandLine line("Follow what goes into the daemon and comes out, until a signal or its end.", "rynctl trace");
  TraceOptions options;
  Declare(line, &options);
  if (const std::optional<int> status = line.Parse(words, console)) return *status;
  // Told here: the parser's help lists what an option excludes in no fixed order.
  if (options.raw && options.json) return line.UsageError("--raw excludes --json", console);
  if (options.raw && !(options.agents.empty() && options.subsystems.empty())) {
    return line.UsageError("--raw excludes --agent and --subsystem: the text feed does not name agents", console);
  }
  if (const std::string error = ChooseAgents(&options); !error.empty()) return line.UsageError(error, console);
  SayRoot(console);
  const StopSignals signals;
  Patience patience{console.err, kConnectLimit, kConnectLimit, SecondsOf(options.wait), &signals};
  base::UniqueFd fd;
  const std::string path = hosted::RootPath(hosted::kTraceSocket);
  const std::string error = ConnectToDaemon(path, SOCK_STREAM, &patience, &fd);
  if (signals.Wanted()) return kDone;
  if (!error.empty()) return console.Fail(error);
  // A daemon that ends at once has said so by the end of its feed.
  if (!options.raw && send(fd.Get(), "json\n", 5, MSG_NOSIGNAL) != 5 && errno != EPIPE && errno != ECONNRESET) {
    return console.Fail("cannot ask the daemon at " + path + " for JSON: " + std::strerror(errno));
  }
  return Follow(fd.Get(), options, signals, console);
}

}  // namespace rynctl
