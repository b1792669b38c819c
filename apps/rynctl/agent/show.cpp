// The commands "show" and "ack": one event, and the end of its problems by hand.
#include "catalog/explain.h"
#include "catalog/json.h"
#include "hosted/paths.h"
#include "mgmtd/control/control.h"
#include "mgmtd/json/json.h"
#include "mgmtd/store/reader.h"
#include "rynctl/agent/agentCommands.h"
#include "rynctl/agent/agentControl.h"
#include "rynctl/agent/agentPrinter.h"
#include "rynctl/escape.h"
#include "rynctl/showing/eventTime.h"
#include "rynctl/showing/width.h"
#include "text/wrap.h"

namespace rynctl {
namespace {

using nlohmann::ordered_json;

std::string TimeText(int64_t us) {
  return LocalTime(static_cast<uint64_t>(us), true);
}

/// What became of one problem that the event is of.
std::string StoryOf(const mgmtd::Problem &problem, const mgmtd::StoredEvent &event) {
  std::string story = problem.subject.empty() ? "The host" : problem.subject;
  const std::string times = problem.times == 1 ? "told once" : "told " + std::to_string(problem.times) + " times";
  if (problem.endedByEvent == event.id) {
    story += ": ended by this event; " + problem.name + ", since " + TimeText(problem.firstUs) + " (event " +
             std::to_string(problem.eventId) + "), " + times;
  } else {
    story += problem.IsOpen() ? ": open" : ": over";
    story += " since " + TimeText(problem.IsOpen() ? problem.firstUs : problem.endedUs) + ", " + times;
    if (problem.times > 1) story += ", last " + TimeText(problem.lastUs);
    if (problem.eventId != event.id) story += "; opened by event " + std::to_string(problem.eventId);
    if (!problem.IsOpen()) story += "; ended by " + problem.endedBy;
    if (problem.endedByEvent != 0) story += " (event " + std::to_string(problem.endedByEvent) + ")";
  }
  return EscapeForTerminal(story) + ".";
}

class Page {
 public:
  Page(const catalog::Style &style, std::ostream *out) : style_(style), out_(out) {}
  void Heading(const std::string &text) { *out_ << style_.headingBegin << text << style_.headingEnd << '\n'; }
  void Paragraph(const std::string &text) { *out_ << text::Wrap(text, style_.width, "  ", "  "); }

 private:
  const catalog::Style style_;
  std::ostream *const out_;
};

void Print(const mgmtd::StoredEvent &event, const std::vector<mgmtd::Problem> &problems, const catalog::Style &style,
           std::ostream *out) {
  Page page(style, out);
  page.Heading("Event " + std::to_string(event.id) + ", " + TimeText(event.timeUs));
  page.Paragraph(EscapeForTerminal(event.name));
  page.Paragraph(EscapeForTerminal(event.text));
  page.Paragraph("Received " + TimeText(event.receivedUs) + " from host " + EscapeForTerminal(event.hostUuid) +
                 ", number " + std::to_string(event.sequence) + " of its run.");
  if (!event.damage.empty()) {
    page.Heading("Damaged record");
    page.Paragraph(EscapeForTerminal(event.damage) + ".");
  }
  const ordered_json arguments = ordered_json::parse(event.argumentsJson, nullptr, false);
  if (arguments.is_array() && !arguments.empty()) {
    page.Heading("Arguments");
    for (const ordered_json &argument : arguments) {
      const ordered_json &value = argument.at("value");
      page.Paragraph(EscapeForTerminal(argument.at("name").get<std::string>() + ": " +
                                       (value.is_string() ? value.get<std::string>() : value.dump())));
    }
  }
  if (!problems.empty()) {
    page.Heading(problems.size() == 1 ? "Problem" : "Problems");
    for (const mgmtd::Problem &problem : problems) page.Paragraph(StoryOf(problem, event));
  }
  if (const catalog::Event *entry = catalog::FindEvent(event.name); entry != nullptr) {
    *out << '\n' << catalog::Explain(*entry, style);
  }
}

}  // namespace

int ShowCommand(const Words &words, Console &console) {
  CommandLine line("One event: what it says, means, and what became of its problems.", "rynctl show");
  uint64_t id = 0;
  bool json = false;
  line.Footer("Example:\n  rynctl show 17");
  line.Take("ID", &id, "Event, as 'rynctl history' and 'rynctl problems' number it");
  line.Flag("--json", &json, "Print a JSON object");
  if (const std::optional<int> status = line.Parse(words, console)) return *status;
  if (!line.Has("ID")) return line.UsageError("ID is required", console);

  SayRoot(console);
  try {
    mgmtd::Reader reader(hosted::RootPath(mgmtd::kStoreFile));
    const std::optional<mgmtd::StoredEvent> event = reader.Event(static_cast<int64_t>(id));
    if (!event) return console.Fail("there is no event " + std::to_string(id) + " ('rynctl history' lists all)");
    const std::vector<mgmtd::Problem> problems = reader.ProblemsOf(*event);
    if (json) {
      ordered_json object = mgmtd::ToJson(*event);
      object["problems"] = ordered_json::array();
      for (const mgmtd::Problem &problem : problems) object["problems"].push_back(mgmtd::ToJson(problem));
      const catalog::Event *entry = catalog::FindEvent(event->name);
      if (entry != nullptr) object["explanation"] = catalog::ToJson(*entry);
      console.out << EscapeJson(mgmtd::Dump(object)) << '\n';
    } else {
      catalog::Style style{OutputWidth(console), {}, {}};
      if (UseColor("auto", console)) style = {style.width, "\x1b[1m", "\x1b[0m"};
      Print(*event, problems, style, &console.out);
    }
  } catch (const mgmtd::StoreError &error) {
    return console.Fail(error.what());
  }
  return console.Flush();
}

int AckCommand(const Words &words, Console &console) {
  CommandLine line("End the open problems of an event by hand; your name is kept with them.", "rynctl ack");
  uint64_t id = 0;
  std::string subject;
  line.Footer("Examples:\n  rynctl ack 17\n  rynctl ack 17 --subject 'Production, hynic0'");
  line.Take("ID", &id, "Event that opened the problem, or was the last to tell of it");
  line.Take("--subject", &subject, "Only the problem about this").Shown("TEXT");
  if (const std::optional<int> status = line.Parse(words, console)) return *status;
  if (!line.Has("ID")) return line.UsageError("ID is required", console);

  SayRoot(console);
  ordered_json answer;
  const std::string error = AskAgent({{"do", "ack"}, {"id", id}, {"subject", subject}}, &answer);
  if (!error.empty()) return console.Fail(error);
  const uint64_t ended = answer.value("ended", uint64_t{0});
  if (ended == 0) {
    return console.Fail("event " + std::to_string(id) + " has no open problem" +
                        (subject.empty() ? "" : " about " + subject) + " ('rynctl problems' lists all)");
  }
  console.out << "Ended " << ended << (ended == 1 ? " problem" : " problems") << " of event " << id << ".\n";
  return console.Flush();
}

}  // namespace rynctl
