// JSON lines: parsing, which throws a LineError inside this file only, and timing.
#include "rynctl/sending/submitFile.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <nlohmann/json.hpp>
#include <thread>

#include "rynctl/sending/argument.h"
#include "rynctl/sending/observationCheck.h"

namespace rynctl {
namespace {

using nlohmann::json;

/// Why a line is refused; caught where the line is parsed.
struct LineError {
  std::string text;
};

Integer IntegerOf(const json &value, const std::string &where) {
  if (value.is_number_unsigned()) return {false, value.get<uint64_t>()};
  if (value.is_number_integer()) return {true, ~static_cast<uint64_t>(value.get<int64_t>()) + 1};
  throw LineError{where + " must be an integer of at most 64 bits, not " + value.dump()};
}

hosted::RawArgument ArgumentOf(const json &value, const std::string &where) {
  if (value.is_string()) return TextArgument(value.get_ref<const std::string &>());
  if (value.is_null()) return NullArgument();
  std::string error;
  std::optional<hosted::RawArgument> argument;
  if (value.is_object()) {
    if (value.size() != 1) throw LineError{where + " must have one key, its type: {\"u64\":16}"};
    const auto typed = value.begin();
    if (!IsIntegerType(typed.key())) {
      throw LineError{where + ": unknown type \"" + typed.key() + "\" (i8 i16 i32 i64 u8 u16 u32 u64)"};
    }
    argument = TypedInteger(typed.key(), IntegerOf(typed.value(), where), &error);
  } else {
    argument = SmallestInteger(IntegerOf(value, where), &error);
  }
  if (!argument) throw LineError{where + ": " + value.dump() + " is " + error};
  return *argument;
}

std::string TextOf(const json &value, const std::string &key) {
  if (!value.is_string()) throw LineError{"\"" + key + "\" must be text"};
  return value.get<std::string>();
}

double OffsetOf(const json &value) {
  const double offset = value.is_number() ? value.get<double>() : -1;
  if (offset >= 0 && offset <= kMaxOffset) return offset;
  throw LineError{"\"offset\" must be 0 to " + std::to_string(std::lround(kMaxOffset)) + " seconds"};
}

unsigned ContextOf(const json &value) {
  if (value.is_number_unsigned() && value.get<uint64_t>() <= 28) return value.get<unsigned>();
  throw LineError{"\"context\" must be 0 to 28"};
}

TimedSubmission SubmissionOf(const json &object, const Target &target) {
  if (!object.is_object()) throw LineError{"a line must be a JSON object: {\"id\":\"ryn...\"}"};
  if (!object.contains("id")) throw LineError{"\"id\" is missing"};
  TimedSubmission line{{target, {}}, 0};
  hosted::RawRecord &record = line.submission.record;
  for (const auto &[key, value] : object.items()) {
    if (key == "id") {
      record.id = TextOf(value, key);
    } else if (key == "message") {
      record.message = TextOf(value, key);
    } else if (key == "offset") {
      line.offset = OffsetOf(value);
    } else if (key == "context") {
      line.submission.target = {false, ContextOf(value)};
    } else if (key == "user") {
      if (!value.is_boolean()) throw LineError{"\"user\" must be true or false"};
    } else if (key == "args") {
      if (!value.is_array()) throw LineError{"\"args\" must be an array"};
      for (const json &item : value) {
        record.arguments.push_back(ArgumentOf(item, "argument " + std::to_string(record.arguments.size() + 1)));
      }
    } else {
      throw LineError{"unknown key \"" + key + "\" (id, args, offset, context, user, message)"};
    }
  }
  if (object.contains("user")) {
    if (object["user"] && object.contains("context")) throw LineError{"\"user\" and \"context\" exclude each other"};
    line.submission.target.user = object["user"];
  }
  return line;
}

/// What is wrong, without the parser's own name and place.
std::string ReasonOf(const json::parse_error &failure) {
  std::string reason = failure.what();
  const size_t place = reason.find(": ");
  if (place != std::string::npos) reason.erase(0, place + 2);
  return reason;
}

}  // namespace

std::optional<TimedSubmission> ParseSubmissionLine(std::string_view text, const Target &target, std::string *error) {
  try {
    TimedSubmission line = SubmissionOf(json::parse(text), target);
    *error = CheckSubmission(line.submission);
    if (error->empty()) return line;
  } catch (const json::parse_error &failure) {
    *error = "no JSON at column " + std::to_string(failure.byte) + ": " + ReasonOf(failure);
  } catch (const json::exception &failure) {
    *error = std::string("JSON beyond reach: ") + failure.what();
  } catch (const LineError &failure) {
    *error = failure.text;
  }
  return std::nullopt;
}

int SubmitLines(std::istream &input, const FileOptions &options, ObservationSender *sender, Console &console) {
  using Clock = std::chrono::steady_clock;
  const Clock::time_point start = Clock::now();
  std::string text;
  for (unsigned long number = 1; std::getline(input, text); ++number) {
    if (text.find_first_not_of(" \t\r") == std::string::npos) continue;
    std::string error;
    std::optional<TimedSubmission> line = ParseSubmissionLine(text, options.target, &error);
    if (line && !options.force) error = CheckAgainstCatalog(line->submission.record);
    if (line && error.empty()) {
      if (options.speed > 0) {
        const std::chrono::duration<double> offset(std::min(line->offset / options.speed, 1e9));
        std::this_thread::sleep_until(start + std::chrono::duration_cast<Clock::duration>(offset));
      }
      error = sender->Send(std::move(line->submission));
    }
    if (!error.empty()) return console.Fail(options.name + ":" + std::to_string(number) + ": " + error);
  }
  if (input.bad()) return console.Fail("cannot read " + options.name + " to its end");
  return kDone;
}

}  // namespace rynctl
