// Lines of the trace feed, whose id holds no blank. Stateless: any thread.
#include "rynctl/traceLine.h"

#include <charconv>
#include <nlohmann/json.hpp>

#include "rynctl/console.h"
#include "rynctl/escape.h"
#include "rynctl/eventTime.h"

namespace rynctl {
namespace {

/// Cut the first word off `rest`, and the one blank behind it.
std::string_view TakeWord(std::string_view *rest) {
  const std::string_view word = rest->substr(0, rest->find(' '));
  rest->remove_prefix(std::min(word.size() + 1, rest->size()));
  return word;
}

bool ParseNumber(std::string_view text, uint64_t *value) {
  const char *end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, *value);
  return error == std::errc() && rest == end;
}

}  // namespace

std::optional<TraceLine> ParseTraceLine(std::string_view rest) {
  TraceLine line;
  if (!ParseNumber(TakeWord(&rest), &line.microseconds)) return std::nullopt;
  const std::string_view kind = TakeWord(&rest);
  if (kind == "LOST") {
    line.kind = TraceLine::Kind::kLost;
    if (!ParseNumber(rest, &line.lost)) return std::nullopt;
    return line;
  }
  if (kind != "IN" && kind != "OUT") return std::nullopt;
  line.kind = kind == "IN" ? TraceLine::Kind::kIn : TraceLine::Kind::kOut;
  line.id = TakeWord(&rest);
  line.text = rest;
  if (line.id.empty()) return std::nullopt;
  return line;
}

std::string TraceText(const TraceLine &line, LineStyle style) {
  const std::string time = LocalTime(line.microseconds, style.date) + "  ";
  if (line.kind == TraceLine::Kind::kLost) {
    return time + Colored("LOST " + std::to_string(line.lost) + " lines: this client was too slow", "35", style.color);
  }
  const std::string kind =
      line.kind == TraceLine::Kind::kIn ? Colored("IN ", "36", style.color) : Colored("OUT", "33", style.color);
  return time + kind + "  " + EscapeForTerminal(line.id) + "  " + EscapeForTerminal(line.text);
}

std::string TraceJson(const TraceLine &line) {
  nlohmann::ordered_json object = {{"time_us", line.microseconds}};
  if (line.kind == TraceLine::Kind::kLost) {
    object["direction"] = "lost";
    object["lost"] = line.lost;
  } else {
    object["direction"] = line.kind == TraceLine::Kind::kIn ? "in" : "out";
    object["id"] = line.id;
    object["text"] = line.text;
  }
  return EscapeJson(object.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace));
}

}  // namespace rynctl
