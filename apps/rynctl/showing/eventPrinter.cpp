// Events as lines of text and of JSON.
#include "rynctl/showing/eventPrinter.h"

#include <algorithm>
#include <cctype>
#include <nlohmann/json.hpp>

#include "rynctl/console.h"
#include "rynctl/escape.h"
#include "rynctl/showing/eventTime.h"

namespace rynctl {
namespace {

using nlohmann::ordered_json;

ordered_json ArgumentJson(const hosted::EventArgument &argument) {
  if (argument.kind == MsgFmtKind::kSigned) return static_cast<int64_t>(argument.bits);
  if (argument.kind == MsgFmtKind::kUnsigned) return argument.bits;
  if (argument.kind == MsgFmtKind::kString) return argument.text;
  return nullptr;  // a null string, or one that the record's problems tell of
}

std::string JoinedProblems(const std::vector<std::string> &texts) {
  std::string result;
  for (const std::string &text : texts) result += (result.empty() ? "" : "; ") + text;
  return result;
}

}  // namespace

std::string_view CategoryName(std::optional<rynd::Category> category) {
  if (category == rynd::kProblem) return "problem";
  if (category == rynd::kAudit) return "audit";
  if (category == rynd::kClear) return "clear";
  return "unknown";
}

std::string_view CategoryColor(std::optional<rynd::Category> category) {
  if (category == rynd::kProblem) return "31";
  if (category == rynd::kAudit) return "33";
  if (category == rynd::kClear) return "32";
  return "35";
}

std::string EventLine(const DecodedEvent &event, LineStyle style) {
  std::string category(CategoryName(event.category));
  std::transform(category.begin(), category.end(), category.begin(),
                 [](unsigned char letter) { return static_cast<char>(std::toupper(letter)); });
  std::string line =
      LocalTime(event.microseconds, style.date) + "  " + Colored(category, CategoryColor(event.category), style.color) +
      std::string(9 - category.size(), ' ') + EscapeForTerminal(event.name) + "  " + EscapeForTerminal(event.text);
  if (!event.problems.empty()) {
    line += "  " + Colored("[" + EscapeForTerminal(JoinedProblems(event.problems)) + "]", "35", style.color);
  }
  return line;
}

std::string EventJson(const DecodedEvent &event) {
  ordered_json arguments = ordered_json::array();
  for (const hosted::EventArgument &argument : event.arguments) arguments.push_back(ArgumentJson(argument));
  ordered_json object = {
      {"time_us", event.microseconds},
      {"time", IsoTime(event.microseconds)},
      {"sequence", event.sequence},
      {"category", CategoryName(event.category)},
      {"name", event.name},
      {"text", event.text},
      {"args", std::move(arguments)},
      {"host_uuid", event.hostUuid},
  };
  if (!event.problems.empty()) object["problems"] = event.problems;
  return EscapeJson(object.dump(-1, ' ', false, ordered_json::error_handler_t::replace));
}

}  // namespace rynctl
