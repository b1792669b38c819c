// The command "replay".
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <utility>
#include <vector>

#include "base/wallClock.h"
#include "flight/redact.h"
#include "replay/recording/player.h"
#include "replay/recording/traceSource.h"
#include "replay/reports/commands.h"
#include "replay/reports/printer.h"
#include "replay/reports/runs.h"
#include "text/time.h"

namespace replay {
namespace {

/// "", or what is wrong with `text` as PATH=VALUE.
std::string CheckSetting(const std::string &text) {
  const size_t end = text.find('=');
  if (end == std::string::npos || end == 0) return "'" + text + "' is not PATH=VALUE";
  return "";
}

std::pair<std::string, std::string> ToSetting(const std::string &text) {
  const size_t end = text.find('=');
  return {text.substr(0, end), text.substr(end + 1)};
}

/// Copy the recording at `path` without its names.
int Redact(const std::string &path, const std::string &to, rynctl::Console *console) {
  if (std::filesystem::exists(to)) {
    console->Fail(to + ": it is there already");
    return kUnusable;
  }
  std::ofstream out(to, std::ios::binary);
  const std::string error = out ? flight::Redact(path, &out) : "";
  if (!error.empty() || !out.flush()) {
    console->Fail(error.empty() ? to + ": " + std::strerror(errno) : error);
    std::error_code ignored;
    std::filesystem::remove(to, ignored);
    return kUnusable;
  }
  console->out << "Written: " << to << '\n';
  return console->Flush();
}

}  // namespace

int ReplayCommand(const rynctl::Words &words, rynctl::Console &console) {
  rynctl::CommandLine line("Run the daemon's agents over a flight recording again, and compare what they post.",
                           "rynctl replay");
  std::string path, trace, redacted, speed = "max", until, color = "auto";
  std::vector<std::string> settings;
  bool json = false;
  line.Footer(
      "A folder is read as a recorder's ring: all of its files in order.\n"
      "Exit status: 0 as recorded, 1 different, 2 the recording cannot be used.\n"
      "Examples:\n"
      "  rynctl replay /var/lib/corvane/flight\n"
      "  rynctl replay flight.rec --set sysinfo/config/intOpts/Net/LinkFlappingThreshold=3");
  line.Take("FILE", &path, "Recording, or folder of one");
  line.Take("--from-trace", &trace, "Take the observations of a saved 'rynctl trace --json' instead").Shown("FILE");
  line.Take("--redact", &redacted, "Write a copy without its names instead").Shown("OUT");
  line.Take("--speed", &speed, "As fast as it goes, or as it happened").OneOf({"max", "1"});
  line.Take("--until", &until, "Stop in front of this time").Shown("TIME");
  line.Take("--set", &settings, "Have a file below the host tree hold something else")
      .Shown("PATH=VALUE")
      .Repeated()
      .Checked(CheckSetting);
  line.Flag("--json", &json, "Print JSON objects, one a line");
  line.Take("--color", &color, "Color").OneOf({"auto", "always", "never"});
  if (const std::optional<int> status = line.Parse(words, console)) return *status;
  if (path.empty() == trace.empty()) return line.UsageError("either FILE or --from-trace is required", console);
  if (!redacted.empty()) {
    if (path.empty()) return line.UsageError("--redact needs FILE", console);
    return Redact(path, redacted, &console);
  }

  PlayOptions options;
  options.takesItsTime = speed == "1";
  for (const std::string &setting : settings) options.settings.push_back(ToSetting(setting));
  if (!until.empty()) {
    const std::optional<int64_t> untilUs = text::ParseTime(until, base::WallClockUs());
    if (!untilUs) return line.UsageError("--until: '" + until + "' is no time", console);
    options.untilUs = static_cast<uint64_t>(*untilUs);
  }
  const PrintStyle style{json, rynctl::UseColor(color, console)};
  const Play play = [&](StepSource *source, size_t run) {
    if (run > 0 && !style.json) console.out << "The daemon starts anew.\n";
    Printer printer(&console.out, style, run);
    const Totals totals = Player(source, options, &printer).Play();
    printer.Finish(totals);
    return totals.Differences() > 0 ? kDifferent : kEqual;
  };
  if (trace.empty()) return PlayRuns(path, &console, play);
  return PlayRun(
      [&](size_t, std::string *error) -> std::unique_ptr<StepSource> { return TraceSource::Open(trace, error); }, 0,
      &console, play);
}

}  // namespace replay
