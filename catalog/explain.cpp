// Explanations of events and observations. Stateless: any thread.
#include "catalog/explain.h"

#include <algorithm>
#include <cctype>

#include "text/wrap.h"

namespace catalog {
namespace {

std::string Upper(std::string text) {
  std::ranges::transform(text, text.begin(), [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  return text;
}

std::string Join(const std::vector<std::string> &parts, std::string_view separator) {
  std::string text;
  for (const std::string &part : parts) {
    if (!text.empty()) text += separator;
    text += part;
  }
  return text;
}

/// A part of a page: a heading, and indented paragraphs below it.
class Page {
 public:
  explicit Page(const Style &style) : style_(style) {}

  void Heading(std::string_view text) {
    if (!page_.empty()) page_ += "\n";
    page_.append(style_.headingBegin).append(text).append(style_.headingEnd).append("\n");
  }
  void Paragraph(std::string_view text, std::string_view first = "  ", std::string_view rest = "  ") {
    page_ += text::Wrap(text, style_.width, first, rest);
  }
  void Line(const std::string &text) { page_ += "  " + text + "\n"; }
  void Section(std::string_view heading, const std::vector<std::string> &paragraphs) {
    if (paragraphs.empty()) return;
    Heading(heading);
    for (const std::string &paragraph : paragraphs) Paragraph(paragraph, "  ", paragraphs.size() == 1 ? "  " : "    ");
  }
  const std::string &Text() const { return page_; }

 private:
  Style style_;
  std::string page_;
};

void AddSteps(const std::vector<std::string> &steps, Page *page) {
  page->Heading("What to do");
  for (size_t i = 0; i < steps.size(); ++i) {
    if (steps.size() == 1) {
      page->Paragraph(steps[i]);
    } else {
      page->Paragraph(steps[i], "  " + std::to_string(i + 1) + ". ", "     ");
    }
  }
}

std::string SubjectInWords(const Event &event) {
  std::vector<std::string> parts;
  for (const Subject &subject : event.subject) {
    parts.push_back(subject.list ? "each of " + Upper(subject.argument) : Upper(subject.argument));
  }
  return parts.empty() ? "the host" : Join(parts, ", ");
}

std::string PairsInWords(const Pairs &pairs) {
  std::vector<std::string> parts;
  for (const auto &[mine, theirs] : pairs) {
    parts.push_back(mine == theirs ? Upper(mine) : Upper(mine) + " as its " + Upper(theirs));
  }
  return Join(parts, " and ");
}

std::string OfTheSame(const Clearing &clearing) {
  std::string words;
  if (!clearing.where.empty()) words += " of the same " + PairsInWords(clearing.where);
  if (clearing.withoutNames) words += "; without names, of the same " + PairsInWords(*clearing.withoutNames);
  return words;
}

}  // namespace

std::string MessageWithNames(const Event &event) {
  std::string text;
  size_t argument = 0;
  for (size_t i = 0; i < event.message.size(); ++i) {
    if (event.message[i] != '%') {
      text += event.message[i] == '\t' ? ' ' : event.message[i];
    } else if (event.message[++i] == '%') {
      text += '%';
    } else {
      i = event.message.find_first_of("sdiuxXo", i);
      text += argument < event.arguments.size() ? Upper(event.arguments[argument++]) : "?";
    }
  }
  return text;
}

std::vector<std::string> EndedByInWords(const Event &event) {
  if (event.category != "problem") return {};
  if (event.clearedByHand) return {"Nothing tells its end: it is ended by hand."};
  std::vector<std::string> ends;
  for (const std::string &name : event.clearedBy) {
    for (const Clearing &clearing : FindEvent(name)->clears) {
      if (clearing.problem == event.name) ends.push_back(name + OfTheSame(clearing));
    }
  }
  return ends;
}

std::vector<std::string> EndsInWords(const Event &event) {
  std::vector<std::string> ends;
  for (const Clearing &clearing : event.clears) ends.push_back(clearing.problem + OfTheSame(clearing));
  return ends;
}

std::string ArgumentsInWords(const Observation &observation) {
  if (observation.anyArguments) return "any";
  std::vector<std::string> parts;
  for (const Argument &argument : observation.arguments) {
    parts.push_back(Upper(argument.name) + " (" + argument.type + (argument.optional ? ", optional)" : ")"));
  }
  return parts.empty() ? "none" : Join(parts, ", ");
}

std::string Explain(const Event &event, const Style &style) {
  Page page(style);
  page.Heading(event.name);
  page.Paragraph(event.category == "problem" ? "problem, " + std::string(SeverityName(event.severity))
                                             : event.category);
  page.Paragraph("\"" + MessageWithNames(event) + "\"");
  page.Section("What has happened", {event.means});
  page.Section("What it does to the host and its machines", {event.impact});
  AddSteps(event.action, &page);
  page.Section("What it is about", {SubjectInWords(event)});
  std::vector<std::string> sources;
  for (const std::string &id : event.postedBy) {
    const Observation *observation = FindObservation(id);
    sources.push_back(id + (observation == nullptr ? "" : " (agent " + observation->agent + ")"));
  }
  if (!event.from.empty()) sources.push_back(event.from);
  page.Section("What it comes from", sources);
  page.Section("What ends it", EndedByInWords(event));
  page.Section("What it ends", EndsInWords(event));
  page.Section("What decides it, below /var/lib/corvane/host (rynd-host(5))", event.settings);
  if (const std::vector<std::string> lines = TryLines(event); !lines.empty()) {
    page.Heading("Try it");
    for (const std::string &line : lines) page.Line(line);
  }
  return page.Text();
}

std::string Explain(const Observation &observation, const Style &style) {
  Page page(style);
  page.Heading(observation.id);
  page.Paragraph("observation, handled by the agent " + observation.agent);
  page.Section("Arguments", {ArgumentsInWords(observation)});
  page.Section("What it leads to",
               observation.posts.empty() ? std::vector<std::string>{"No event."} : observation.posts);
  if (!observation.note.empty()) page.Section("How", {observation.note});
  page.Section("What decides it, below /var/lib/corvane/host (rynd-host(5))", observation.settings);
  page.Heading("Try it");
  for (const std::string &line : TryLines(observation)) page.Line(line);
  return page.Text();
}

}  // namespace catalog
