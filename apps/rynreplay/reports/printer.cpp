#include "replay/reports/printer.h"

#include <nlohmann/json.hpp>

#include "replay/reports/stepText.h"
#include "rynctl/console.h"
#include "rynctl/escape.h"
#include "rynctl/showing/eventPrinter.h"
#include "rynctl/showing/eventTime.h"

namespace replay {
namespace {

using nlohmann::ordered_json;

struct KindLook {
  const char *mark;  ///< in front of a line
  const char *word;  ///< in JSON
};
KindLook LookOf(Outcome::Kind kind) {
  switch (kind) {
    case Outcome::Kind::kEqual:
      return {"  ", "equal"};
    case Outcome::Kind::kChanged:
      return {"! ", "changed"};
    case Outcome::Kind::kNew:
      return {"+ ", "new"};
    case Outcome::Kind::kMissing:
      return {"- ", "missing"};
    case Outcome::Kind::kNotKnown:
      break;
  }
  return {"  ", "unknown"};
}

std::string Counted(uint64_t count, const std::string &what) {
  return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

/// One event as a line: of an outcome, or what a changed one was.
std::string Line(const eventrecord::DecodedEvent &event, const std::string &dropReason, uint64_t us, bool color) {
  if (dropReason.empty()) return rynctl::EventLine(event, {color, true});
  return rynctl::LocalTime(us, true) + "  " + rynctl::Colored("DROPPED", "35", color) + "  " +
         rynctl::EscapeForTerminal(event.name) + "  (" + rynctl::EscapeForTerminal(dropReason) + ")";
}

std::string Because(const Step &step, const Post &post) {
  const std::string agent = step.agent == nullptr ? "" : step.agent->name + ", ";
  const bool isOfTimer = step.kind == Step::Kind::kWake && !post.settled.empty();
  return "  <- " + agent + (isOfTimer ? rynctl::EscapeForTerminal(post.settled) : StepText(step));
}

}  // namespace

void Printer::Played(const PlayedStep &step) {
  for (const Outcome &outcome : step.outcomes) {
    if (style_.json) {
      PrintJson(step, outcome);
    } else {
      PrintText(step, outcome);
    }
  }
}

void Printer::PrintText(const PlayedStep &step, const Outcome &outcome) {
  const char *mark = LookOf(outcome.kind).mark;
  *out_ << mark << Line(EventOf(outcome), DropReasonOf(outcome), step.us, style_.color)
        << Because(step.what, outcome.replayed) << '\n';
  if (outcome.kind != Outcome::Kind::kChanged) return;
  const Outcome replayed{Outcome::Kind::kNew, outcome.replayed, {}};
  *out_ << mark << "replayed: " << Line(EventOf(replayed), outcome.replayed.dropReason, step.us, style_.color) << '\n';
}

void Printer::PrintJson(const PlayedStep &step, const Outcome &outcome) {
  const auto eventJson = [&](const Outcome &shown) {
    const eventrecord::DecodedEvent event = EventOf(shown);
    if (!DropReasonOf(shown).empty()) return ordered_json{{"name", event.name}, {"dropped", DropReasonOf(shown)}};
    return ordered_json::parse(rynctl::EventJson(event), nullptr, false);
  };
  ordered_json object = {{"run", run_}, {"time_us", step.us}, {"compared", LookOf(outcome.kind).word}};
  if (step.what.agent != nullptr) object["agent"] = step.what.agent->name;
  object["because"] = outcome.replayed.settled.empty() || step.what.kind != Step::Kind::kWake
                          ? StepText(step.what)
                          : outcome.replayed.settled;
  object["event"] = eventJson(outcome);
  if (outcome.kind == Outcome::Kind::kChanged) {
    object["replayed"] = eventJson({Outcome::Kind::kNew, outcome.replayed, {}});
  }
  *out_ << rynctl::EscapeJson(object.dump(-1, ' ', false, ordered_json::error_handler_t::replace)) << '\n';
}

void Printer::Finish(const Totals &totals) {
  if (style_.json) {
    const ordered_json object = {{"run", run_},
                                 {"observations", totals.observations},
                                 {"events", totals.events},
                                 {"equal", totals.equal},
                                 {"changed", totals.changed},
                                 {"new", totals.added},
                                 {"missing", totals.missing},
                                 {"notes", totals.notes}};
    *out_ << rynctl::EscapeJson(object.dump(-1, ' ', false, ordered_json::error_handler_t::replace)) << '\n';
    return;
  }
  *out_ << Counted(totals.events, "event") << " from " << Counted(totals.observations, "handled observation");
  if (totals.Differences() > 0) {
    *out_ << ": " << totals.equal << " as recorded, " << totals.changed << " changed (!), " << totals.added
          << " in the replay alone (+), " << totals.missing << " in the recording alone (-)";
  } else if (totals.IsCompared()) {
    *out_ << ", all as recorded";
  } else if (totals.events > 0) {
    *out_ << "; the recording holds none to compare them with";
  }
  *out_ << ".\n";
  for (const std::string &note : totals.notes) *out_ << "Note: " << rynctl::EscapeForTerminal(note) << ".\n";
}

}  // namespace replay
