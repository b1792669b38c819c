// The parameters of a request. For the request's thread.
#include "mgmtd/http/queryParameters.h"

#include <algorithm>
#include <charconv>
#include <chrono>

#include "base/wallClock.h"
#include "text/time.h"

namespace mgmtd {

QueryParameters::QueryParameters(const httplib::Request &request, std::initializer_list<std::string_view> known)
    : request_(request) {
  for (const auto &[name, value] : request.params) {
    if (std::find(known.begin(), known.end(), name) == known.end()) {
      throw BadParameter("there is no parameter \"" + name + "\"");
    }
  }
}

std::string QueryParameters::Text(const char *name) const {
  if (request_.get_param_value_count(name) > 1) throw BadParameter(std::string(name) + " may be given once");
  return request_.has_param(name) ? request_.get_param_value(name) : "";
}

std::vector<std::string> QueryParameters::Texts(const char *name) const {
  std::vector<std::string> texts;
  const auto [begin, end] = request_.params.equal_range(name);
  for (auto entry = begin; entry != end; ++entry) texts.push_back(entry->second);
  return texts;
}

int64_t QueryParameters::Number(const char *name, int64_t otherwise, int64_t low, int64_t high) const {
  const std::string text = Text(name);
  if (text.empty()) return otherwise;
  int64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size() || number < low || number > high) {
    throw BadParameter(std::string(name) + "=" + text + " is no number from " + std::to_string(low) + " to " +
                       std::to_string(high));
  }
  return number;
}

std::optional<int64_t> QueryParameters::Time(const char *name) const {
  const std::string given = Text(name);
  if (given.empty()) return std::nullopt;
  const std::optional<int64_t> time = text::ParseTime(given, base::WallClockUs());
  if (!time) throw BadParameter(std::string(name) + "=" + given + " is no time: such as -1h or 2024-05-01T07:30:00Z");
  return time;
}

std::string QueryParameters::Choice(const char *name, std::initializer_list<std::string_view> choices) const {
  std::string text = Text(name);
  if (text.empty() || std::find(choices.begin(), choices.end(), text) != choices.end()) return text;
  std::string why = std::string(name) + "=" + text + " is none of";
  for (const std::string_view choice : choices) why.append(" ").append(choice);
  throw BadParameter(why);
}

}  // namespace mgmtd
