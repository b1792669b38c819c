// Arguments as people write them: the integer types, their ranges, and how a word is told from a number.
#include "rynctl/sending/argument.h"

#include <charconv>

namespace rynctl {
namespace {

using hosted::ArgumentKind;
using hosted::RawArgument;

struct IntegerType {
  std::string_view name;
  ArgumentKind kind;
  uint8_t width;  ///< bytes
};

constexpr IntegerType kIntegerTypes[] = {
    {"i8", ArgumentKind::kSigned, 1},    {"i16", ArgumentKind::kSigned, 2},   {"i32", ArgumentKind::kSigned, 4},
    {"i64", ArgumentKind::kSigned, 8},   {"u8", ArgumentKind::kUnsigned, 1},  {"u16", ArgumentKind::kUnsigned, 2},
    {"u32", ArgumentKind::kUnsigned, 4}, {"u64", ArgumentKind::kUnsigned, 8},
};

const IntegerType *FindIntegerType(std::string_view name) {
  for (const IntegerType &type : kIntegerTypes) {
    if (type.name == name) return &type;
  }
  return nullptr;
}

/// The greatest value of a type.
uint64_t Maximum(const IntegerType &type) {
  const unsigned bits = 8U * type.width - (type.kind == ArgumentKind::kSigned ? 1U : 0U);
  return ~uint64_t{0} >> (64U - bits);
}

bool Fits(const IntegerType &type, Integer value) {
  if (!value.negative || value.magnitude == 0) return value.magnitude <= Maximum(type);
  return type.kind == ArgumentKind::kSigned && value.magnitude - 1 <= Maximum(type);
}

std::string RangeOf(const IntegerType &type) {
  const std::string maximum = std::to_string(Maximum(type));
  if (type.kind == ArgumentKind::kUnsigned) return "0 to " + maximum;
  return "-" + std::to_string(Maximum(type) + 1) + " to " + maximum;
}

RawArgument MakeInteger(const IntegerType &type, Integer value) {
  return {type.kind, type.width, value.negative ? ~value.magnitude + 1 : value.magnitude, {}};
}

/// The parts of a number's text.
struct Spelling {
  bool negative;
  int base;
  std::string_view digits;
};

Spelling SpellingOf(std::string_view text) {
  const bool negative = text.starts_with('-');
  if (negative) text.remove_prefix(1);
  const bool hexadecimal = text.starts_with("0x") || text.starts_with("0X");
  if (hexadecimal) text.remove_prefix(2);
  return {negative, hexadecimal ? 16 : 10, text};
}

/// True for the text of a number of any size.
bool LooksNumeric(std::string_view text) {
  const Spelling spelling = SpellingOf(text);
  const char *digits = spelling.base == 16 ? "0123456789abcdefABCDEF" : "0123456789";
  return !spelling.digits.empty() && spelling.digits.find_first_not_of(digits) == std::string_view::npos;
}

}  // namespace

std::optional<Integer> ParseInteger(std::string_view text) {
  const Spelling spelling = SpellingOf(text);
  Integer value{spelling.negative, 0};
  const char *end = spelling.digits.data() + spelling.digits.size();
  const auto [rest, error] = std::from_chars(spelling.digits.data(), end, value.magnitude, spelling.base);
  if (spelling.digits.empty() || error != std::errc() || rest != end) return std::nullopt;
  return value;
}

std::optional<RawArgument> TypedInteger(std::string_view name, Integer value, std::string *error) {
  const IntegerType *type = FindIntegerType(name);
  if (type == nullptr) {
    *error = "no integer type (i8 i16 i32 i64 u8 u16 u32 u64)";
    return std::nullopt;
  }
  if (!Fits(*type, value)) {
    *error = "out of range: " + std::string(name) + " holds " + RangeOf(*type);
    return std::nullopt;
  }
  return MakeInteger(*type, value);
}

std::optional<RawArgument> SmallestInteger(Integer value, std::string *error) {
  for (const char *name : {"i32", "i64", "u64"}) {
    if (auto argument = TypedInteger(name, value, error)) return argument;
  }
  *error = "out of range: the widest types are i64 and u64";
  return std::nullopt;
}

bool IsIntegerType(std::string_view type) {
  return FindIntegerType(type) != nullptr;
}

RawArgument TextArgument(std::string_view text) {
  return {ArgumentKind::kString, 0, 0, std::string(text)};
}

RawArgument NullArgument() {
  return {ArgumentKind::kNullString, 0, 0, {}};
}

std::optional<RawArgument> ParseArgument(std::string_view word, std::string *error) {
  if (word == "null") return NullArgument();
  if (word.starts_with("s:")) return TextArgument(word.substr(2));

  const size_t colon = word.find(':');
  const std::string_view type = word.substr(0, colon);
  const bool typed = colon != std::string_view::npos && IsIntegerType(type);
  if (!typed && !LooksNumeric(word)) return TextArgument(word);

  const std::optional<Integer> value = ParseInteger(typed ? word.substr(colon + 1) : word);
  std::string reason = "the number must be decimal or 0x-hexadecimal and fit in 64 bits";
  std::optional<RawArgument> argument;
  if (value) argument = typed ? TypedInteger(type, *value, &reason) : SmallestInteger(*value, &reason);
  if (!argument) *error = "argument '" + std::string(word) + "': " + reason + " (s:TEXT sends text)";
  return argument;
}

}  // namespace rynctl
