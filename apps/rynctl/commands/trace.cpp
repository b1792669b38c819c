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
};

/// Prints the lines that the options ask for.
class TracePrinter {
 public:
  TracePrinter(const TraceOptions &options, Console *console)
      : options_(options), color_(UseColor(options.color, *console)), console_(console) {}

  /// Print one line, without its end. Lines of another form than the feed's are shown as they are.
  void Print(std::string_view text) {
    const std::optional<TraceLine> line = ParseTraceLine(text);
    if (line && !Wanted(*line)) return;
    if (options_.json) {
      if (!line) return;
      console_->out << TraceJson(*line) << '\n';
    } else if (!line || options_.raw) {
      console_->out << EscapeForTerminal(text) << '\n';
    } else {
      console_->out << date_.For(line->microseconds) << TraceText(*line, color_) << '\n';
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
  const bool color_;
  Console *const console_;
  DateLine date_;
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

/// Follow the feed until a signal, the wanted number of lines, its end, or an output that takes no more.
int Follow(int fd, const TraceOptions &options, const StopSignals &signals, Console &console) {
  TracePrinter printer(options, &console);
  std::string pending;
  char chunk[16 * 1024];
  while (!signals.Wanted()) {
    pollfd readable{fd, POLLIN, 0};
    if (ppoll(&readable, 1, nullptr, signals.PollMask()) < 0) {
      if (errno == EINTR) continue;
      return console.Fail(std::string("cannot wait: ") + std::strerror(errno));
    }
    const ssize_t count = recv(fd, chunk, sizeof chunk, 0);
    if (count < 0 && (errno == EAGAIN || errno == EINTR)) continue;
    if (count > 0) pending.append(chunk, static_cast<size_t>(count));
    PrintLines(&pending, count <= 0, &printer);
    if (const int status = console.Flush(); status != kDone) return status;
    if (printer.Done()) return kDone;
    if (count <= 0) return console.Fail("the daemon ended the trace (see whether rynd still runs; start it again)");
  }
  return kDone;
}

void Declare(CLI::App &app, TraceOptions *options) {
  app.footer("Examples:\n  rynctl trace --id ryn.storage\n  rynctl trace --out --json");
  app.add_option("--id", options->id, "Only ids that begin with PREFIX")->option_text("PREFIX");
  CLI::Option *in = app.add_flag("--in", options->in, "Only observations");
  app.add_flag("--out", options->out, "Only events")->excludes(in);
  AddPrintOptions(app, options);
  CLI::Option *raw = app.add_flag("--raw", options->raw, "Print the daemon's lines, time in microseconds");
  raw->excludes("--json");
}

}  // namespace

int TraceCommand(const Words &words, Console &console) {
  CLI::App app("Follow what goes into the daemon and comes out, until a signal or the daemon's end.", "rynctl trace");
  TraceOptions options;
  Declare(app, &options);
  if (const std::optional<int> status = ParseCommandLine(app, words, console)) return *status;

  const StopSignals signals;
  Patience patience{console.err, kConnectLimit, kConnectLimit};
  base::UniqueFd fd;
  const std::string path = hosted::RootPath(hosted::kTraceSocket);
  const std::string error = ConnectToDaemon(path, SOCK_STREAM, &patience, &fd);
  if (!error.empty()) return console.Fail(error);
  return Follow(fd.Get(), options, signals, console);
}

}  // namespace rynctl
