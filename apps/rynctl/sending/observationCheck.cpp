// Compares an observation with its entry in the catalogue. Stateless: any thread.
#include "rynctl/sending/observationCheck.h"

#include <algorithm>
#include <cstdint>
#include <string_view>

#include "catalog/explain.h"
#include "catalog/find.h"
#include "text/suggest.h"

namespace rynctl {
namespace {

using hosted::ArgumentKind;
using hosted::RawArgument;

bool IsInteger(const RawArgument &argument) {
  return argument.kind == ArgumentKind::kSigned || argument.kind == ArgumentKind::kUnsigned;
}

/// True when the value can be written in `bits` bits, with or without a sign: so the daemon reads it.
bool FitsInto(const RawArgument &argument, unsigned bits) {
  const bool negative = argument.kind == ArgumentKind::kSigned && static_cast<int64_t>(argument.bits) < 0;
  if (bits == 64) return true;
  if (!negative) return argument.bits >> bits == 0;
  return static_cast<int64_t>(argument.bits) >= -(int64_t{1} << (bits - 1));
}

/// What is wrong with `argument`, or "".
std::string Mismatch(const RawArgument &argument, const std::string &type) {
  if (type == "s") return IsInteger(argument) ? "is an integer where text is wanted (s:TEXT)" : "";
  if (!IsInteger(argument)) return "is text where an integer is wanted (" + type + ":N)";
  const auto bits = static_cast<unsigned>(std::stoul(type.substr(1)));
  return FitsInto(argument, bits) ? "" : "does not fit into the " + std::to_string(bits) + " bits that are wanted";
}

std::string CheckArguments(const catalog::Observation &entry, const hosted::RawRecord &record) {
  if (entry.anyArguments) return "";
  const size_t given = record.arguments.size(), most = entry.arguments.size();
  const auto least = static_cast<size_t>(std::ranges::count(entry.arguments, false, &catalog::Argument::optional));
  if (given < least || given > most) {
    return std::to_string(given) + (given == 1 ? " argument" : " arguments") + " where " +
           (least == most ? "" : std::to_string(least) + " or ") + std::to_string(most) +
           (most == 1 ? " is wanted" : " are wanted");
  }
  for (size_t i = 0; i < given; ++i) {
    const std::string wrong = Mismatch(record.arguments[i], entry.arguments[i].type);
    if (!wrong.empty()) return "argument " + std::to_string(i + 1) + " " + wrong;
  }
  return "";
}

}  // namespace

std::string CheckAgainstCatalog(const hosted::RawRecord &record) {
  constexpr std::string_view kForce = "; --force sends it all the same";
  const catalog::Observation *entry = catalog::FindObservation(record.id);
  if (entry == nullptr) {
    return "no correlator handles " + record.id + text::DidYouMean(catalog::SuggestObservations(record.id)) +
           std::string(kForce);
  }
  const std::string wrong = CheckArguments(*entry, record);
  if (wrong.empty()) return "";
  return record.id + ": " + wrong + ". It takes " + catalog::ArgumentsInWords(*entry) + std::string(kForce);
}

}  // namespace rynctl
