// Lines of the trace feed, whose id holds no blank. Stateless: any thread.
#include "rynctl/showing/traceLine.h"

#include <charconv>

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

}  // namespace rynctl
