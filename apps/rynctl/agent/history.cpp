// The command "history".
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <map>

#include "base/wallClock.h"
#include "hosted/paths.h"
#include "mgmtd/control/control.h"
#include "mgmtd/json/json.h"
#include "mgmtd/store/reader.h"
#include "rynctl/agent/agentCommands.h"
#include "rynctl/agent/agentPrinter.h"
#include "rynctl/escape.h"
#include "rynctl/showing/width.h"
#include "text/time.h"

namespace rynctl {
namespace {

constexpr size_t kPage = 1000;  ///< events of one look at the file: nothing of it is held while they are printed
constexpr int kFollowMs = 100;

struct HistoryOptions {
  std::string since, until;
  mgmtd::EventFilter filter;
  uint64_t count = 0;  ///< only the newest; 0: all
  bool follow = false;
  bool json = false;
  std::string color = "auto";
};

/// "" or what is wrong with a number of events.
std::string CheckCount(const std::string &text) {
  const bool number = !text.empty() && text.size() <= 6 && text.find_first_not_of("0123456789") == std::string::npos;
  return number && text.find_first_not_of('0') != std::string::npos ? "" : "must be 1 to 999999";
}

void Declare(CommandLine *line, HistoryOptions *options) {
  line->Footer(
      "Times: now, today, yesterday, -1h, \"2 days ago\", 2026-11-21, \"2026-11-21 12:00\",\n"
      "12:00, 2026-11-21T12:00:00Z, @1795000000.\n\n"
      "Examples:\n"
      "  rynctl history --since yesterday --severity error\n"
      "  rynctl history --subject naa.6001 --name storage\n"
      "  rynctl history --follow --count 10");
  mgmtd::EventFilter &filter = options->filter;
  line->Take("--since", &options->since, "From this time on").Shown("T");
  line->Take("--until", &options->until, "Up to this time").Shown("T");
  line->Take("--name", &filter.names, "Only events whose name begins so; several times").Shown("PREFIX").Repeated();
  line->Take("--subject", &filter.subject, "Only about this; * and ? stand for any text").Shown("TEXT");
  line->Take("--category", &filter.category, "Only problem, audit, clear or unknown")
      .Shown("C")
      .OneOf({"problem", "audit", "clear", "unknown"});
  line->Take("--severity", &filter.severity, "Only info, warning, error, critical, or worse")
      .Shown("S")
      .OneOf({"info", "warning", "error", "critical"});
  line->Take("--count", &options->count, "Only the newest N").Shown("N").Checked(CheckCount);
  line->Flag("--follow", &options->follow, "Go on with what comes");
  line->Flag("--json", &options->json, "Print JSON lines");
  line->Take("--color", &options->color, "When to color: auto, always or never")
      .Shown("WHEN")
      .OneOf({"auto", "always", "never"});
}

/// "" or which time is none.
std::string ReadTimes(HistoryOptions *options) {
  const int64_t now = base::WallClockUs();
  const std::pair<const std::string *, std::optional<int64_t> *> times[] = {
      {&options->since, &options->filter.sinceUs}, {&options->until, &options->filter.untilUs}};
  for (const auto &[text, us] : times) {
    if (text->empty()) continue;
    *us = text::ParseTime(*text, now);
    if (!*us) return *text + " is no time (such as -1h, today, \"2026-11-21 12:00\")";
  }
  return "";
}

class Printer {
 public:
  Printer(const HistoryOptions &options, Console *console)
      : json_(options.json),
        style_{UseColor(options.color, *console), console->terminal ? OutputWidth(*console) : 0},
        console_(console) {}

  void Print(const std::vector<mgmtd::StoredEvent> &events) {
    for (const mgmtd::StoredEvent &event : events) {
      console_->out << (json_ ? EscapeJson(mgmtd::Dump(mgmtd::ToJson(event))) + "\n" : StoredEventLines(event, style_));
    }
  }

 private:
  const bool json_;
  const AgentStyle style_;
  Console *const console_;
};

/// The reader of standard output has gone.
bool OutputIsGone() {
  pollfd output{STDOUT_FILENO, 0, 0};
  return poll(&output, 1, kFollowMs) == 1 && (output.revents & POLLERR) != 0;
}

/// Print what the file has, and go on with what comes, where that is wanted. The exit status.
int Show(const std::string &path, const HistoryOptions &options, Console *console) {
  mgmtd::EventFilter filter = options.filter;
  filter.limit = kPage;
  Printer printer(options, console);
  if (options.count != 0) {
    mgmtd::EventFilter newest = filter;
    newest.newestFirst = true;
    newest.limit = options.count;
    std::vector<mgmtd::StoredEvent> events = mgmtd::Reader(path).Events(newest);
    std::ranges::reverse(events);
    printer.Print(events);
    if (!options.follow) return console->Flush();
    // From here on, also where the newest ones did not match.
    filter.afterId = events.empty() ? mgmtd::Reader(path).LastEventId() : events.back().id;
  }
  mgmtd::Reader reader(path);
  while (true) {
    std::vector<mgmtd::StoredEvent> events;
    try {
      events = reader.Events(filter);
    } catch (const mgmtd::StoreError &) {
      if (!options.follow || filter.afterId == 0) throw;
    }
    printer.Print(events);
    if (const int status = console->Flush(); status != kDone) return status;
    if (!events.empty()) filter.afterId = events.back().id;
    if (events.size() == kPage) continue;
    if (!options.follow) return kDone;
    if (OutputIsGone()) return kFailed;
    usleep(kFollowMs * 1000);
    reader = mgmtd::Reader(path);  // another file may have taken its place
  }
}

}  // namespace

int HistoryCommand(const Words &words, Console &console) {
  CommandLine line("The events that the management agent has kept, oldest first.", "rynctl history");
  HistoryOptions options;
  Declare(&line, &options);
  if (const std::optional<int> status = line.Parse(words, console)) return *status;
  if (const std::string error = ReadTimes(&options); !error.empty()) return line.UsageError(error, console);

  SayRoot(console);
  try {
    return Show(hosted::RootPath(mgmtd::kStoreFile), options, &console);
  } catch (const mgmtd::StoreError &error) {
    return console.Fail(error.what());
  }
}

}  // namespace rynctl
