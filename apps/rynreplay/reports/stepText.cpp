#include "replay/reports/stepText.h"

#include "catalog/catalog.h"
#include "core/basics/rawRecord.h"
#include "hosted/records/rawRecord.h"
#include "text/escape.h"

namespace replay {
namespace {

const std::byte *Bytes(std::string_view text) {
  return reinterpret_cast<const std::byte *>(text.data());
}

std::string Quoted(const std::string &text) {
  std::string quoted;
  for (const char c : text) {
    if (c == '"' || c == '\\') quoted += '\\';
    quoted += c;
  }
  return '"' + text::EscapeForTerminal(quoted) + '"';
}

std::string ArgumentText(const hosted::RawArgument &argument) {
  switch (argument.kind) {
    case hosted::ArgumentKind::kSigned:
      return std::to_string(static_cast<int64_t>(argument.bits));
    case hosted::ArgumentKind::kUnsigned:
      return std::to_string(argument.bits);
    case hosted::ArgumentKind::kString:
      return argument.text;
    default:
      return "";
  }
}

std::vector<hosted::RawArgument> ArgumentsOf(const Step &step) {
  if (step.record.empty()) return {};
  return hosted::DecodeRecord(Bytes(step.record), step.record.size()).arguments;
}

}  // namespace

std::string_view StepId(const Step &step) {
  return step.record.empty() ? std::string_view() : std::string_view(rynd::RecordId(Bytes(step.record)));
}

std::vector<std::string> StepArguments(const Step &step) {
  std::vector<std::string> texts;
  for (const hosted::RawArgument &argument : ArgumentsOf(step)) texts.push_back(ArgumentText(argument));
  return texts;
}

std::vector<std::string> ArgumentFaults(const Step &step) {
  const catalog::Observation *known = catalog::FindObservation(StepId(step));
  std::vector<std::string> faults;
  if (known == nullptr || known->anyArguments) return faults;
  const std::vector<hosted::RawArgument> arguments = ArgumentsOf(step);
  for (size_t i = 0; i < known->arguments.size(); ++i) {
    const catalog::Argument &wanted = known->arguments[i];
    const std::string which = "argument " + std::to_string(i + 1) + " (" + wanted.name + ") ";
    if (i >= arguments.size()) {
      if (!wanted.optional) faults.push_back(which + "is missing");
      continue;
    }
    const bool isInteger =
        arguments[i].kind == hosted::ArgumentKind::kSigned || arguments[i].kind == hosted::ArgumentKind::kUnsigned;
    if (isInteger == (wanted.type == "s")) faults.push_back(which + (isInteger ? "is no text" : "is no integer"));
  }
  return faults;
}

std::string StepText(const Step &step) {
  switch (step.kind) {
    case Step::Kind::kStart:
      return "start of the agents";
    case Step::Kind::kTimer:
      return "timer \"" + step.timer + "\"";
    case Step::Kind::kWake:
      return "timer of agent " + (step.agent == nullptr ? "?" : step.agent->name);
    case Step::Kind::kObservation:
      break;
  }
  if (step.record.empty()) return "an observation that the recording does not have";
  std::string list;
  for (const hosted::RawArgument &argument : ArgumentsOf(step)) {
    list += list.empty() ? "" : ", ";
    const bool isText = argument.kind == hosted::ArgumentKind::kString;
    const bool isNull = argument.kind == hosted::ArgumentKind::kNullString;
    list += isNull ? "null" : isText ? Quoted(argument.text) : ArgumentText(argument);
  }
  return text::EscapeForTerminal(std::string(StepId(step))) + (list.empty() ? "" : " (" + list + ")");
}

eventrecord::DecodedEvent EventOf(const Outcome &outcome) {
  const bool hasRecorded = !outcome.recorded.name.empty();
  const bool showsRecorded = hasRecorded && (outcome.kind != Outcome::Kind::kNew);
  const std::byte *bytes = showsRecorded ? Bytes(outcome.recorded.record) : outcome.replayed.record.data();
  const size_t length = showsRecorded ? outcome.recorded.record.size() : outcome.replayed.record.size();
  if (length == 0) {
    eventrecord::DecodedEvent event;
    event.name = showsRecorded ? outcome.recorded.name : outcome.replayed.name;
    return event;
  }
  return eventrecord::DecodeEvent(bytes, length);
}

const std::string &DropReasonOf(const Outcome &outcome) {
  const bool isOnlyRecorded = outcome.kind == Outcome::Kind::kMissing;
  return isOnlyRecorded ? outcome.recorded.dropReason : outcome.replayed.dropReason;
}

}  // namespace replay
