#include "replay/recording/traceSource.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <nlohmann/json.hpp>
#include <utility>

#include "hosted/records/rawRecord.h"

namespace replay {
namespace {

using hosted::ArgumentKind;
using nlohmann::json;

/// An argument such as {"i32":-5}, {"s":"text"} or {"null":null}. False when it is none.
bool ToArgument(const json &object, hosted::RawArgument *argument) {
  if (!object.is_object() || object.size() != 1) return false;
  const std::string &type = object.begin().key();
  const json &value = object.begin().value();
  if (type == "null") {
    *argument = {ArgumentKind::kNullString, 0, 0, ""};
    return true;
  }
  if (type == "s" && value.is_string()) {
    *argument = {ArgumentKind::kString, 0, 0, value.get<std::string>()};
    return true;
  }
  constexpr std::pair<const char *, uint8_t> kWidths[] = {{"8", 1}, {"16", 2}, {"32", 4}, {"64", 8}};
  const bool isInteger = value.is_number_integer() && (type[0] == 'i' || type[0] == 'u');
  for (const auto &[name, width] : kWidths) {
    if (!isInteger || type.substr(1) != name) continue;
    const bool isSigned = type[0] == 'i';
    const uint64_t bits = isSigned ? static_cast<uint64_t>(value.get<int64_t>()) : value.get<uint64_t>();
    *argument = {isSigned ? ArgumentKind::kSigned : ArgumentKind::kUnsigned, width, bits, ""};
    return true;
  }
  return false;
}

/// The record that an object of the feed tells of. False when it does not.
bool ToRecord(const json &object, hosted::RawRecord *record) {
  const auto text = [&](const char *member) {
    const auto found = object.find(member);
    return found != object.end() && found->is_string() ? found->get<std::string>() : std::string();
  };
  const auto us = object.find("us");
  const auto arguments = object.find("args");
  record->id = text("id");
  record->message = text("text");
  constexpr uint64_t kLastUs = 9'000'000'000'000'000;  // in the year 2255; more is no nanoseconds
  if (record->id.empty() || us == object.end() || !us->is_number_unsigned()) return false;
  record->microseconds = us->get<uint64_t>();
  if (record->microseconds > kLastUs) return false;
  if (arguments == object.end() || !arguments->is_array()) return false;
  return std::ranges::all_of(
      *arguments, [&](const json &argument) { return ToArgument(argument, &record->arguments.emplace_back()); });
}

}  // namespace

std::unique_ptr<TraceSource> TraceSource::Open(const std::string &path, std::string *error) {
  std::unique_ptr<TraceSource> source(new TraceSource);
  source->file_.open(path);
  if (!source->file_) {
    *error = path + ": " + std::strerror(errno);
    return nullptr;
  }
  source->hasNext_ = source->ReadObservation();
  if (source->hasNext_ || source->lines_ == 0 || source->strange_ < source->lines_) return source;
  *error = path + ": no line of it is one of the daemon's JSON trace feed ('rynctl trace --json')";
  return nullptr;
}

bool TraceSource::ReadObservation() {
  for (std::string line; std::getline(file_, line);) {
    if (line.empty()) continue;
    ++lines_;
    const json object = json::parse(line, nullptr, false);
    const std::string direction =
        object.is_object() ? object.value("dir", json()).is_string() ? object["dir"].get<std::string>() : std::string()
                           : std::string();
    hosted::RawRecord record;
    if (direction == "lost") ++lost_;
    if (direction.empty() || (direction == "in" && !ToRecord(object, &record))) ++strange_;
    if (record.id.empty() || direction != "in") continue;
    const std::vector<std::byte> bytes = hosted::EncodeRecord(record);
    if (hosted::CheckRecord(bytes.data(), bytes.size()) != nullptr) {
      ++strange_;
      continue;
    }
    // It is the sender's clock, which may be set back.
    lastUs_ = std::max(lastUs_, record.microseconds);
    next_ = {};
    next_.kind = RecordedStep::Kind::kArrival;
    next_.record = std::make_shared<const std::string>(reinterpret_cast<const char *>(bytes.data()), bytes.size());
    next_.beginUs = next_.endUs = lastUs_;
    next_.beginNs = static_cast<int64_t>(lastUs_) * 1'000;
    return true;
  }
  return false;
}

bool TraceSource::Next(RecordedStep *step) {
  if (!hasStarted_) {
    hasStarted_ = true;
    *step = {};
    step->beginUs = step->endUs = next_.beginUs;
    step->beginNs = next_.beginNs;
    return true;
  }
  if (!hasNext_) return false;
  *step = std::move(next_);
  hasNext_ = ReadObservation();
  return true;
}

std::vector<std::string> TraceSource::Missing() const {
  std::vector<std::string> sentences = {
      "A trace feed tells neither what the host answered nor which timers ran: 'rynctl replay --set' gives answers"};
  if (lost_ > 0) sentences.push_back("The feed lost lines at " + std::to_string(lost_) + " places");
  if (strange_ > 0) sentences.push_back(std::to_string(strange_) + " lines are none of the feed's");
  return sentences;
}

}  // namespace replay
