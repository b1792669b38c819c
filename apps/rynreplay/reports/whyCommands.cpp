// The commands "why" and "why-not".
#include <algorithm>
#include <charconv>
#include <ctime>
#include <memory>

#include "catalog/find.h"
#include "flight/format.h"
#include "flight/reader.h"
#include "hosted/paths.h"
#include "replay/recording/player.h"
#include "replay/reports/commands.h"
#include "replay/reports/runs.h"
#include "replay/reports/why.h"
#include "text/suggest.h"
#include "text/time.h"

namespace replay {
namespace {

/// The whole name of the event that `name` means. "", after saying so, when there is none.
std::string EventNamed(const std::string &name, rynctl::Console *console) {
  const catalog::Found found = catalog::Find(name);
  if (found.event != nullptr) return found.event->name;
  if (found.observation != nullptr) {
    console->Fail(name + " is an observation; 'rynctl explain " + name + "' lists the events that it leads to");
  } else if (!found.candidates.empty()) {
    console->Fail("several names begin with " + name + ": " + found.candidates[0] + ", " +
                  found.candidates[found.candidates.size() > 1 ? 1 : 0] + " ...");
  } else {
    console->Fail("no event is called " + name + text::DidYouMean(found.suggestions));
  }
  return "";
}

/// What a recording holds of runs, and of the last one that has a wanted event.
struct HeldRuns {
  size_t count = 0;
  size_t run = 0;  ///< the last one, or the last one with the event
};

/// Look through a recording without playing it. False, with the reason reported, when it can't be used.
bool LookThrough(const std::string &path, const WantedEvent &wanted, HeldRuns *runs, rynctl::Console *console) {
  std::string error;
  const std::unique_ptr<flight::Reader> reader = flight::Reader::Open(path, &error);
  if (reader == nullptr) {
    console->Fail(error);
    return false;
  }
  bool isFound = false;
  for (flight::Entry entry; reader->Next(&entry);) {
    const auto *start = std::get_if<flight::Start>(&entry.what);
    if (runs->count == 0 || (start != nullptr && !start->isContinued)) ++runs->count;
    if (!isFound) runs->run = runs->count - 1;
    const auto *event = std::get_if<flight::Event>(&entry.what);
    if (event == nullptr) continue;
    const eventrecord::DecodedEvent decoded = eventrecord::DecodeEvent(event->record.data(), event->record.size());
    const bool isNear = !wanted.atUs || decoded.microseconds <= *wanted.atUs || !isFound;
    if (wanted.sequence != 0 ? decoded.sequence == wanted.sequence : decoded.name == wanted.name && isNear) {
      isFound = true;
      runs->run = runs->count - 1;
    }
  }
  if (runs->count > 0) return true;
  console->Fail(path + ": it holds no entry");
  return false;
}

}  // namespace

int WhyCommand(const rynctl::Words &words, rynctl::Console &console) {
  rynctl::CommandLine line("Why an event came: what was observed, counted and decided before it.", "rynctl why");
  std::string event, path, at;
  line.Footer(
      "EVENT is its number in the daemon's run, as 'rynctl show' and the trace feed tell\nit, or its name: then the "
      "last one is meant, or the one nearest to --at.\n"
      "Examples:\n"
      "  rynctl why 17\n"
      "  rynctl why net.hynic.linkstate.flapping flight.rec --at '10:30'");
  line.Take("EVENT", &event, "Event");
  line.Take("FILE", &path, "Recording, or folder of one; this host's own by default");
  line.Take("--at", &at, "About when").Shown("TIME");
  if (const std::optional<int> status = line.Parse(words, console)) return *status;
  if (event.empty()) return line.UsageError("EVENT is required", console);

  WantedEvent wanted;
  const auto [end, error] = std::from_chars(event.data(), event.data() + event.size(), wanted.sequence);
  if (error != std::errc() || end != event.data() + event.size() || wanted.sequence == 0) {
    wanted.sequence = 0;
    wanted.name = EventNamed(event, &console);
    if (wanted.name.empty()) return kUnusable;
  }
  if (!at.empty()) {
    const std::optional<int64_t> atUs = text::ParseTime(at, int64_t{time(nullptr)} * 1'000'000);
    if (!atUs) return line.UsageError("--at: '" + at + "' is no time", console);
    wanted.atUs = static_cast<uint64_t>(*atUs);
  }
  if (path.empty()) path = hosted::RootPath(flight::kRingFolder);
  HeldRuns runs;
  if (!LookThrough(path, wanted, &runs, &console)) return kUnusable;
  return PlayRun(RunsOf(path), runs.run, &console, [&](StepSource *source, size_t) {
    Why why(wanted);
    const Totals totals = Player(source, {}, &why).Play();
    if (!why.Print(&console.out)) {
      console.Fail("no event " + event + " comes of this recording ('rynctl replay " + path + "' lists all)");
      return kDifferent;
    }
    for (const std::string &note : totals.notes) console.out << "Note: " << note << ".\n";
    return kEqual;
  });
}

int WhyNotCommand(const rynctl::Words &words, rynctl::Console &console) {
  rynctl::CommandLine line("Why an event did not come: which of its observations did, and where they stopped.",
                           "rynctl why-not");
  std::string name, path, subject;
  line.Footer(
      "Exit status: 0 it did not come, 1 it did, 2 the recording cannot be used.\n"
      "Example:\n"
      "  rynctl why-not net.hynic.linkstate.flapping --subject hynic1");
  line.Take("NAME", &name, "Event");
  line.Take("FILE", &path, "Recording, or folder of one; this host's own by default");
  line.Take("--subject", &subject, "What it would have been about").Shown("TEXT");
  if (const std::optional<int> status = line.Parse(words, console)) return *status;
  if (name.empty()) return line.UsageError("NAME is required", console);

  const std::string whole = EventNamed(name, &console);
  if (whole.empty()) return kUnusable;
  if (path.empty()) path = hosted::RootPath(flight::kRingFolder);
  HeldRuns runs;
  if (!LookThrough(path, {}, &runs, &console)) return kUnusable;
  return PlayRuns(path, &console, [&](StepSource *source, size_t run) {
    if (run > 0) console.out << "The daemon starts anew.\n";
    WhyNot whyNot(whole, subject);
    const Totals totals = Player(source, {}, &whyNot).Play();
    whyNot.Print(&console.out);
    for (const std::string &note : totals.notes) console.out << "Note: " << note << ".\n";
    return whyNot.HasCome() ? kDifferent : kEqual;
  });
}

}  // namespace replay
