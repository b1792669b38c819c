// rynd-events(7). Stateless: any thread.
#include "catalog/catalog.h"
#include "catalog/explain.h"

#include "generate/documents.h"
#include "text/wrap.h"

namespace catalog {
namespace {

constexpr size_t kWidth = 78;

/// `text` as the formatter takes it for nothing but text.
std::string Escaped(std::string_view text) {
  std::string escaped;
  for (const char c : text) {
    if (c == '\\') {
      escaped += "\\e";
    } else if (c == '-') {
      escaped += "\\-";
    } else if (c == '\'') {
      escaped += "\\(aq";
    } else if (c == '`') {
      escaped += "\\(ga";
    } else if (c == '^') {
      escaped += "\\(ha";
    } else if (c == '~') {
      escaped += "\\(ti";
    } else {
      escaped += c;
    }
  }
  return escaped;
}

/// A paragraph's lines. One that would begin with a control character is told apart.
std::string Lines(std::string_view text) {
  const std::string wrapped = text::Wrap(Escaped(text), kWidth, "", "");
  std::string lines;
  for (size_t at = 0; at < wrapped.size();) {
    const size_t end = wrapped.find('\n', at) + 1;
    if (wrapped[at] == '.') lines += "\\&";
    lines += wrapped.substr(at, end - at);
    at = end;
  }
  return lines;
}

std::string Paragraph(std::string_view text) {
  return ".PP\n" + Lines(text);
}

std::string Steps(const std::vector<std::string> &steps) {
  if (steps.size() == 1) return Paragraph(steps[0]);
  std::string list;
  for (size_t i = 0; i < steps.size(); ++i) list += ".IP " + std::to_string(i + 1) + ". 4\n" + Lines(steps[i]);
  return list;
}

std::string EventText(const Event &event) {
  std::string page = ".SS " + Escaped(event.name) + "\n";
  page += Lines((event.category == "problem" ? std::string(SeverityName(event.severity)) + ": " : "") +
                MessageWithNames(event));
  page += Paragraph(event.means) + Paragraph(event.impact) + Steps(event.action);
  if (event.clearedByHand) return page;
  for (const std::string &end : EndedByInWords(event)) page += Paragraph("Ended by " + end + ".");
  for (const std::string &end : EndsInWords(event)) page += Paragraph("Ends " + end + ".");
  return page;
}

}  // namespace

std::string ManualPage(std::string_view date) {
  std::string page =
      ".TH RYND\\-EVENTS 7 " + std::string(date) + " \"rynd " RYND_VERSION "\" \"Miscellaneous Information Manual\"\n";
  page += ".ad l\n.SH NAME\nrynd\\-events \\- what the events of rynd mean, and what to do\n.SH DESCRIPTION\n";
  page += Lines(
      "Every event that rynd can post, by its name: its text, in which capitals stand for what the event carries; what "
      "has happened; what it does to the host and its machines; what to do; and what ends it. The same is told by");
  page += ".BR \"rynctl explain\" .\n";
  const std::pair<std::string_view, std::string_view> parts[] = {
      {"problem", "PROBLEMS"}, {"clear", "ENDS OF PROBLEMS"}, {"audit", "FOR THE RECORD"}};
  for (const auto &[category, heading] : parts) {
    page.append(".SH ").append(heading).append("\n");
    for (const Event &event : Events()) {
      if (event.category == category) page += EventText(event);
    }
  }
  return page + ".SH SEE ALSO\n.BR rynctl (1),\n.BR rynd\\-host (5),\n.BR rynd (8)\n";
}

}  // namespace catalog
