// The command "trace".
#include <poll.h>
#include <sys/socket.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstring>

#include "hosted/paths.h"
#include "rynctl/commands/commands.h"
#include "rynctl/daemonSocket.h"
#include "rynctl/escape.h"
#include "rynctl/eventPrinter.h"
#include "rynctl/outputQueue.h"
#include "rynctl/stopSignals.h"
#include "rynctl/traceLine.h"

namespace rynctl {
namespace {

/// A line that is longer is printed in pieces; the daemon's own are shorter.
constexpr size_t kMaxLine = 1024 * 1024;
constexpr std::chrono::milliseconds kConnectLimit(5000);

struct TraceOptions : PrintOptions {
  std::string id;  ///< prefix; "" for all
  bool in = false;
  bool out = false;
  bool raw = false;
  double wait = 0;
};

/// Prints the lines that the options ask for.
class TracePrinter {
 public:
  TracePrinter(const TraceOptions &options, LineStyle style, OutputQueue *output)
      : options_(options), style_(style), output_(output) {}

  /// Print one line, without its end. Lines of another form than the feed's are shown as they are.
  void Print(std::string_view text) {
    const std::optional<TraceLine> line = ParseTraceLine(text);
    if (line && !Wanted(*line)) return;
    if (options_.json) {
      if (!line) return;
      output_->Print(TraceJson(*line) + '\n');
    } else if (!line || options_.raw) {
      output_->Print(EscapeForTerminal(text) + '\n');
    } else {
      output_->Print(TraceText(*line, style_) + '\n');
    }
    if (!line || line->kind != TraceLine::Kind::kLost) ++printed_;
  }
  bool Done() const { return options_.count != 0 && printed_ >= options_.count; }

 private:
  /// What was lost is always shown: the reader must know that lines are missing.
  bool Wanted(const TraceLine &line) const {
    if (line.kind == TraceLine::Kind::kLost) return true;
    const bool in = line.kind == TraceLine::Kind::kIn;
    return (in ? !options_.out : !options_.in) && line.id.starts_with(options_.id);
  }

  const TraceOptions &options_;
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

void Declare(CLI::App &app, TraceOptions *options) {
  app.footer(
      "Examples:\n"
      "  rynctl trace --id ryn.storage\n"
      "  rynctl trace --out --json --count 1");
  app.add_option("--id", options->id, "Only ids that begin with PREFIX")->option_text("PREFIX");
  CLI::Option *in = app.add_flag("--in", options->in, "Only observations");
  app.add_flag("--out", options->out, "Only events")->excludes(in);
  AddPrintOptions(app, options);
  app.add_flag("--raw", options->raw, "Print the daemon's lines, time in microseconds");
  AddWaitOption(app, &options->wait);
}

}  // namespace

int TraceCommand(const Words &words, Console &console) {
  CLI::App app("Follow what goes into the daemon and comes out, until a signal or its end.", "rynctl trace");
  TraceOptions options;
  Declare(app, &options);
  if (const std::optional<int> status = ParseCommandLine(app, words, console)) return *status;
  // Told here: the parser's help lists what an option excludes in no fixed order.
  if (options.raw && options.json) return UsageError(app, "--raw excludes --json", console);

  SayRoot(console);
  const StopSignals signals;
  Patience patience{console.err, kConnectLimit, kConnectLimit, SecondsOf(options.wait), &signals};
  base::UniqueFd fd;
  const std::string path = hosted::RootPath(hosted::kTraceSocket);
  const std::string error = ConnectToDaemon(path, SOCK_STREAM, &patience, &fd);
  if (signals.Wanted()) return kDone;
  if (!error.empty()) return console.Fail(error);
  return Follow(fd.Get(), options, signals, console);
}

}  // namespace rynctl
