// Columns are padded before they are colored; every text from an event is escaped.
#include "rynctl/agent/agentPrinter.h"

#include <array>

#include "rynctl/console.h"
#include "rynctl/escape.h"
#include "rynctl/showing/eventTime.h"
#include "text/time.h"
#include "text/wrap.h"

namespace rynctl {
namespace {

using nlohmann::ordered_json;

constexpr size_t kIdWidth = 6;
constexpr std::array<const char *, 4> kSeverities = {"critical", "error", "warning", "info"};

std::string Left(std::string text, size_t width) {
  if (text.size() < width) text.resize(width, ' ');
  return text;
}

std::string Right(const std::string &text, size_t width) {
  return text.size() < width ? std::string(width - text.size(), ' ') + text : text;
}

std::string Upper(std::string text) {
  for (char &c : text) c = c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
  return text;
}

/// "storage.apd.start" of "amb.problem.storage.apd.start".
std::string ShortName(const std::string &name) {
  for (const char *space : {"amb.problem.", "amb.audit.", "amb.clear."}) {
    if (name.starts_with(space)) return name.substr(std::string_view(space).size());
  }
  return name.empty() ? "(no name)" : name;
}

std::string CategoryColor(const std::string &category) {
  return category == "problem" ? "31" : category == "audit" ? "33" : category == "clear" ? "32" : "35";
}

std::string Broken(const std::string &text, size_t width, const std::string &first, const std::string &rest) {
  return width == 0 ? first + text + "\n" : text::Wrap(text, width, first, rest);
}

}  // namespace

std::string_view SeverityColor(std::string_view severity) {
  if (severity == "critical" || severity == "error") return "31";
  return severity == "warning" ? "33" : "";
}

std::string MinuteOf(const std::string &isoTime) {
  const std::optional<int64_t> us = text::ParseTime(isoTime, 0);
  return us ? LocalTime(static_cast<uint64_t>(*us), true).substr(0, 16) : isoTime;
}

std::string StoredEventLines(const mgmtd::StoredEvent &event, const AgentStyle &style) {
  const std::string head = Right(std::to_string(event.id), kIdWidth) + "  " +
                           LocalTime(static_cast<uint64_t>(event.timeUs), true).substr(0, 19) + "  ";
  const std::string category = Left(Upper(event.category), 7);
  std::string text = EscapeForTerminal(event.text);
  if (!event.damage.empty()) text += " [" + EscapeForTerminal(event.damage) + "]";
  std::string lines = Broken(EscapeForTerminal(ShortName(event.name)) + ": " + text, style.width,
                             head + category + "  ", std::string(kIdWidth + 2, ' '));
  if (style.color) lines.replace(head.size(), category.size(), Colored(category, CategoryColor(event.category), true));
  return lines;
}

std::string ProblemHeading() {
  return Right("ID", kIdWidth) + "  SINCE             SEVERITY  TIMES  SUBJECT\n";
}

std::string ProblemLines(const ordered_json &problem, const AgentStyle &style) {
  const std::string severity = problem.at("severity");
  const std::string subject = problem.at("subject");
  const std::string head =
      Right(problem.at("id").dump(), kIdWidth) + "  " + MinuteOf(problem.at("since").get<std::string>()) + "  ";
  const std::string_view color = SeverityColor(severity);
  std::string lines = head + Colored(Left(severity, 8), color, style.color && !color.empty()) + "  " +
                      Right(problem.at("times").dump(), 5) + "  " +
                      (subject.empty() ? "the host" : EscapeForTerminal(subject)) + "\n";
  const std::string indent(kIdWidth + 2, ' ');
  const size_t width = style.width == 0 ? 80 : style.width;
  lines += Broken(ShortName(problem.at("name")) + ": " + EscapeForTerminal(problem.at("text").get<std::string>()),
                  width, indent, indent);
  if (problem.at("open")) return lines;
  return lines + Broken("Ended " + MinuteOf(problem.value("ended", "")) + " by " +
                            EscapeForTerminal(problem.value("endedBy", "")) + ".",
                        width, indent, indent);
}

std::string ProblemSummary(const ordered_json &problems) {
  std::array<size_t, kSeverities.size()> counts{};
  size_t open = 0;
  for (const ordered_json &problem : problems) {
    if (!problem.at("open")) continue;
    ++open;
    for (size_t i = 0; i < kSeverities.size(); ++i) counts[i] += problem.at("severity") == kSeverities[i] ? 1 : 0;
  }
  if (open == 0) return "No problem is open.";
  std::string text;
  for (size_t i = 0; i < kSeverities.size(); ++i) {
    if (counts[i] != 0) text += (text.empty() ? ": " : ", ") + std::to_string(counts[i]) + " " + kSeverities[i];
  }
  return std::to_string(open) + " open" + text + ".";
}

}  // namespace rynctl
